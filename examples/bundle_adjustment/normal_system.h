// The normal equations of a bundle around its cameras and points.
#ifndef ZEPH_EXAMPLES_BUNDLE_ADJUSTMENT_NORMAL_SYSTEM_H
#define ZEPH_EXAMPLES_BUNDLE_ADJUSTMENT_NORMAL_SYSTEM_H

#include <zeph/sparse_matrix.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "problem.h"

namespace bundle {

/// What fixes position, orientation and scale, which images alone leave open: control points, or
/// where there are none one camera that is held (turn and centre) and one coordinate of another
/// one's centre.
struct Datum {
  std::vector<Control> control;
  std::uint32_t held = 0;
  std::uint32_t scaling = 0;
  int coordinate = 0;  ///< of the scaling camera's centre
};

/// The control points given, or the first camera and the one farthest from it, in the coordinate in
/// which it is farthest.
Datum chooseDatum(const Problem& problem, std::vector<Control> control);

/// Jᵀ W J δ = -Jᵀ W e in blocks: U for each camera, V for each point, and Q for each observation,
/// the product of its point's and its camera's derivatives. Weights are 1 / sigma².
class NormalSystem {
 public:
  /// Throws zeph::Error(Unfit) where a camera has fewer than five points, a point fewer than two
  /// cameras, or an observation no image.
  NormalSystem(const Problem& problem, const Datum& datum, double pixelSigma);

  void linearise(const Problem& problem);

  /// Σ (e / sigma)² over the image coordinates and the control points; not finite where a point
  /// lies beside a camera.
  double cost(const Problem& problem) const;

  /// The matrix, cameras before points, lower triangle; `values` are those of its entries with a
  /// share of the diagonal added, in the same order every time.
  zeph::SparseMatrix matrix() const;
  const std::vector<double>& values(double damping);

  /// The problem after the step that solves for the right-hand side.
  Problem moved(Problem problem, const std::vector<double>& step) const;

  std::vector<double> right() const;  ///< -Jᵀ W e, fixed unknowns left out
  std::int64_t unknowns() const { return unknowns_; }
  std::int64_t measurements() const;  ///< image coordinates and coordinates of control points

  /// Place of a parameter among the unknowns; -1 where it is fixed.
  std::int64_t ofCamera(std::size_t camera, int parameter) const {
    return cameraUnknown_[kCameraUnknowns * camera + static_cast<std::size_t>(parameter)];
  }
  std::int64_t ofPoint(std::size_t point, int coordinate) const {
    return firstPointUnknown_ + kPointUnknowns * static_cast<std::int64_t>(point) + coordinate;
  }
  std::string nameOf(std::int64_t unknown) const;

  using CameraBlock = std::array<double, 81>;  ///< 9 x 9, row after row
  using PointBlock = std::array<double, 9>;    ///< 3 x 3
  using CrossBlock = std::array<double, 27>;   ///< 3 x 9
  const std::vector<CameraBlock>& U() const { return U_; }
  const std::vector<PointBlock>& V() const { return V_; }
  const std::vector<CrossBlock>& Q() const { return Q_; }

 private:
  template <class Visit>
  void forEachEntry(const Visit& visit) const;

  std::vector<Observation> observations_;
  Datum datum_;
  double weight_;
  std::vector<std::int64_t> cameraUnknown_;
  std::int64_t firstPointUnknown_ = 0, unknowns_ = 0;
  std::vector<CameraBlock> U_;
  std::vector<PointBlock> V_;
  std::vector<CrossBlock> Q_;
  std::vector<double> cameraRight_, pointRight_;
  std::vector<double> values_;
};

}  // namespace bundle

#endif
