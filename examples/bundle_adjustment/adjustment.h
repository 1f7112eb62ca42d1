// Bundle adjustment by Levenberg and Marquardt, and the covariances of what it adjusts.
#ifndef ZEPH_EXAMPLES_BUNDLE_ADJUSTMENT_ADJUSTMENT_H
#define ZEPH_EXAMPLES_BUNDLE_ADJUSTMENT_ADJUSTMENT_H

#include <zeph/dense_matrix.h>
#include <zeph/factor.h>

#include <functional>
#include <memory>
#include <vector>

#include "normal_system.h"

namespace bundle {

struct Iteration {
  int number = 0;        ///< 0 before the first step
  double cost = 0.0;     ///< Σ (e / sigma)²
  double damping = 0.0;  ///< share of the diagonal that the step had added to it
  double seconds = 0.0;  ///< that the iteration took
};

struct Options {
  double pixelSigma = 1.0;  ///< standard deviation of image coordinates
  int maxIterations = 50;
  double tolerance = 1e-10;  ///< of the cost: less to gain ends the iterations
  int threads = 0;           ///< as zeph::Options::threads
  std::function<void(const Iteration&)> iterated;
};

/// The adjusted bundle with the factor of its whole normal matrix.
struct Adjustment {
  Problem problem;
  Datum datum;
  double cost = 0.0;
  bool converged = false;

  /// √(cost / redundancy): about 1 where the standard deviations that were given are right. All
  /// covariances below are multiplied by its square.
  double sigma0 = 0.0;
  std::int64_t redundancy = 0;

  std::shared_ptr<NormalSystem> system;
  std::shared_ptr<zeph::Factor> factor;

  /// The 9 x 9 covariance of each camera's movement (see moved); rows and columns of what the datum
  /// fixes are zero. One call for all: they lie on the pattern of the factor, so the points are
  /// passed over.
  std::vector<zeph::DenseMatrix> cameraCovariances() const;

  /// The 3 x 3 covariances of some points.
  std::vector<zeph::DenseMatrix> pointCovariances(const std::vector<std::size_t>& points) const;
};

/// Throws zeph::Error: Unfit as NormalSystem and where nothing is redundant, Singular where the
/// observations leave something free to move.
Adjustment adjust(Problem problem, const Datum& datum, const Options& options = {});

}  // namespace bundle

#endif
