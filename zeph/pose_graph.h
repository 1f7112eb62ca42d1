#ifndef ZEPH_POSE_GRAPH_H
#define ZEPH_POSE_GRAPH_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "zeph/api.h"
#include "zeph/dense_matrix.h"
#include "zeph/factor.h"
#include "zeph/options.h"

namespace zeph {

/// x, y, angle in 2-D, zeros behind them; x, y, z, qx, qy, qz, qw (a unit quaternion) in 3-D.
using Pose = std::array<double, 7>;

/// A measurement of pose `to` as seen from pose `from`. Poses are counted as PoseGraph::poses.
struct PoseEdge {
  std::size_t from = 0;                  ///< zero-based, below the number of poses
  std::size_t to = 0;                    ///< as from, and another pose
  Pose measurement{};                    ///< `to` in the frame of `from`
  std::array<double, 36> information{};  ///< freedom x freedom, symmetric, column after column
};

/// Poses in the plane or in space and what was measured between them.
struct PoseGraph {
  std::size_t freedom = 3;           ///< of a pose: 3 in 2-D (x, y, angle), 6 in 3-D
  std::vector<std::int64_t> ids;     ///< ascending
  std::vector<Pose> poses;           ///< as many
  std::vector<bool> fixed;           ///< as many; at least one in each connected part
  std::vector<PoseEdge> edges;       ///< in any order
  std::string source = "the graph";  ///< file name, for messages
};

/// Reads the usual text form: a record a line, VERTEX_SE2 id x y angle, VERTEX_SE3:QUAT id x y z qx
/// qy qz qw, EDGE_SE2 and EDGE_SE3:QUAT from to measurement information (the upper triangle, row
/// after row), FIX id; # begins a comment. Poses that only edges name are placed along the
/// odometry, the edges between neighbouring ids, and where there is none along any edge. Without
/// FIX the pose with the smallest id is fixed. Throws Error(Input) with the line at fault, also for
/// an information matrix that is indefinite. `progress` is as in Options.
ZEPH_API PoseGraph readPoseGraph(const std::string& path, const ProgressCall& progress = {});

/// When to stop, whom to tell, and how to factorise.
struct PoseGraphOptions {
  int maxIterations = 100;   ///< at most; 0 leaves the poses where they are
  double tolerance = 1e-10;  ///< done when a step promises less than this share of the cost

  /// Called after each iteration, and for the initial cost as iteration 0.
  std::function<void(int iteration, double cost, double damping)> iterated;

  Options solver;  ///< of the factor; its route is ignored
};

/// An optimised pose graph. The residual of an edge i -> j with the measurement (R_z, t_z) is
/// (R_zᵀ(R_iᵀ(t_j - t_i) - t_z), Log(R_zᵀ R_iᵀ R_j)), in 2-D with the angle wrapped to (-π, π]. A
/// pose moves by t += R δt, R <- R Exp(δr) in 3-D and by plain addition in 2-D; covariances are
/// those of (δt, δr).
class ZEPH_API PoseGraphResult {
 public:
  PoseGraph graph;                       ///< with its poses where they are most likely
  double initialCost = 0.0;              ///< Σ eᵀ Ω e
  double cost = 0.0;                     ///< the same for the optimised poses
  int iterations = 0;                    ///< that were made
  bool converged = false;                ///< false: maxIterations were not enough
  std::shared_ptr<const Factor> factor;  ///< of the normal matrix of the poses that are not fixed

  /// The covariance of pose i, freedom x freedom, zero where it is fixed. Indices as in
  /// graph.poses. Throws Error(Unfit) for an index out of range.
  DenseMatrix covariance(std::size_t i) const { return covariance(i, i); }
  /// That between the poses i (rows) and j (columns).
  DenseMatrix covariance(std::size_t i, std::size_t j) const;

  /// Those of all poses, at the price of about one factorisation.
  std::vector<DenseMatrix> covariances() const;
  /// As Factor::warnings(), of the covariances asked for last, with the id of the pose concerned.
  std::vector<std::string> warnings() const;
};

/// Moves the poses to where Σ eᵀ Ω e is least: Gauss-Newton, damped after Levenberg and Marquardt
/// where a step fails. The factor is analysed once.
/// Throws Error(Singular) for a pose that no chain of edges ties to a fixed one, Error(Unfit) for
/// values that are not finite and indices out of range.
ZEPH_API PoseGraphResult optimise(PoseGraph graph, const PoseGraphOptions& options = {});

}  // namespace zeph

#endif
