// The diagonal blocks of the covariances of all poses of a graph: our engine beside Ceres'
// Covariance, on the Jacobian that Ceres itself evaluates.
//   compare_ceres FILE.g2o [--limit=SECONDS] [--patience=SECONDS]
// Where all poses would take Ceres longer than the patience, some are computed and the rest is
// extrapolated.
#include <ceres/ceres.h>
#include <ceres/product_manifold.h>

#include <Eigen/Cholesky>
#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>
#include <vector>

#include "engine_call.h"
#include "kernels/team.h"
#include "measure.h"
#include "sparse/inverse/selected_inverse.h"
#include "zeph/pose_graph.h"

namespace {

using compare::Engine;
using compare::seconds;
using korin::sparse::Index;
using zeph::Pose;
using zeph::PoseEdge;
using zeph::PoseGraph;

constexpr std::size_t kFew = 20, kMore = 120;

bool planar(const PoseGraph& graph) {
  return graph.freedom == 3;
}

/// W with information = W^T W.
template <int Size>
Eigen::Matrix<double, Size, Size> whitening(const PoseEdge& edge) {
  const Eigen::Map<const Eigen::Matrix<double, Size, Size>> information(edge.information.data());
  return information.llt().matrixU();
}

struct PlanarMotion {
  Pose motion;
  Eigen::Matrix3d weight;

  template <class T>
  bool operator()(const T* a, const T* b, T* residual) const {
    const T c = cos(a[2]), s = sin(a[2]), dx = b[0] - a[0], dy = b[1] - a[1];
    const T angle = b[2] - a[2] - motion[2];
    Eigen::Map<Eigen::Matrix<T, 3, 1>> r(residual);
    // Residuals are linearised only: turns that wrap are a constant.
    r << c * dx + s * dy - motion[0], -s * dx + c * dy - motion[1], angle;
    r = weight.template cast<T>() * r;
    return true;
  }
};

struct SpatialMotion {
  Pose motion;
  Eigen::Matrix<double, 6, 6> weight;

  template <class T>
  bool operator()(const T* a, const T* b, T* residual) const {
    using Vector = Eigen::Matrix<T, 3, 1>;
    using Quaternion = Eigen::Quaternion<T>;
    const Eigen::Map<const Vector> pa(a), pb(b);
    const Eigen::Map<const Quaternion> qa(a + 3), qb(b + 3);
    const Eigen::Map<const Eigen::Vector3d> p(motion.data());
    const Eigen::Map<const Eigen::Quaterniond> q(motion.data() + 3);
    Eigen::Map<Eigen::Matrix<T, 6, 1>> r(residual);
    r.template head<3>() = qa.conjugate() * (pb - pa) - p.cast<T>();
    r.template tail<3>() = T(2.0) * (q.cast<T>().conjugate() * (qa.conjugate() * qb)).vec();
    r = weight.template cast<T>() * r;
    return true;
  }
};

/// Keeps a pose where it is, with unit weights.
struct PlanarPrior {
  Pose at;

  template <class T>
  bool operator()(const T* a, T* residual) const {
    for (int k = 0; k < 3; ++k) residual[k] = a[k] - at[k];
    return true;
  }
};

struct SpatialPrior {
  Pose at;

  template <class T>
  bool operator()(const T* a, T* residual) const {
    const Eigen::Map<const Eigen::Quaternion<T>> q(a + 3);
    const Eigen::Map<const Eigen::Quaterniond> there(at.data() + 3);
    const Eigen::Quaternion<T> turn = there.cast<T>().conjugate() * q;
    for (int k = 0; k < 3; ++k) residual[k] = a[k] - at[k];
    for (int k = 0; k < 3; ++k) residual[3 + k] = T(2.0) * turn.vec()[k];
    return true;
  }
};

/// The graph as a problem of Ceres; poses are the parameter blocks, in their order.
void state(PoseGraph& graph, ceres::Problem& problem) {
  using Spatial =
      ceres::ProductManifold<ceres::EuclideanManifold<3>, ceres::EigenQuaternionManifold>;
  for (Pose& pose : graph.poses) {
    if (planar(graph)) {
      problem.AddParameterBlock(pose.data(), 3);
    } else {
      Eigen::Map<Eigen::Quaterniond>(pose.data() + 3).normalize();
      problem.AddParameterBlock(pose.data(), 7, new Spatial);
    }
  }
  for (PoseEdge& e : graph.edges) {
    ceres::CostFunction* cost;
    if (planar(graph)) {
      cost = new ceres::AutoDiffCostFunction<PlanarMotion, 3, 3, 3>(
          new PlanarMotion{e.measurement, whitening<3>(e)});
    } else {
      Eigen::Map<Eigen::Quaterniond>(e.measurement.data() + 3).normalize();
      cost = new ceres::AutoDiffCostFunction<SpatialMotion, 6, 7, 7>(
          new SpatialMotion{e.measurement, whitening<6>(e)});
    }
    problem.AddResidualBlock(cost, nullptr, graph.poses[e.from].data(), graph.poses[e.to].data());
  }
  const Pose& first = graph.poses[0];
  ceres::CostFunction* prior;
  if (planar(graph)) {
    prior = new ceres::AutoDiffCostFunction<PlanarPrior, 3, 3>(new PlanarPrior{first});
  } else {
    prior = new ceres::AutoDiffCostFunction<SpatialPrior, 6, 7>(new SpatialPrior{first});
  }
  problem.AddResidualBlock(prior, nullptr, graph.poses[0].data());
}

/// J^T J as the sum of a dense block for each residual, whose rows share their columns.
compare::Triplets normalEquations(PoseGraph& graph, ceres::Problem& problem) {
  ceres::Problem::EvaluateOptions options;
  for (Pose& pose : graph.poses) options.parameter_blocks.push_back(pose.data());
  ceres::CRSMatrix J;
  problem.Evaluate(options, nullptr, nullptr, nullptr, &J);
  const int rows = static_cast<int>(graph.freedom);
  compare::Triplets t;
  t.n = J.num_cols;
  for (int r = 0; r < J.num_rows; r += rows) {
    const int first = J.rows[r], width = J.rows[r + 1] - first;
    for (int a = 0; a < width; ++a) {
      for (int b = 0; b < width; ++b) {
        double sum = 0.0;
        for (int k = 0; k < rows; ++k)
          sum += J.values[first + k * width + a] * J.values[first + k * width + b];
        t.row.push_back(J.cols[first + a]);
        t.col.push_back(J.cols[first + b]);
        t.value.push_back(sum);
      }
    }
  }
  return t;
}

/// Seconds of Ceres for the diagonal blocks of `count` poses, spread over the graph, size x size
/// each; NaN where it fails.
double ceresBlocks(PoseGraph& graph, ceres::Problem& problem, std::size_t count, std::size_t size,
                   std::vector<double>& blocks) {
  std::vector<std::pair<const double*, const double*>> wanted;
  std::vector<std::size_t> chosen;
  for (std::size_t k = 0; k < count; ++k) {
    chosen.push_back(k * graph.poses.size() / count);
    const double* pose = graph.poses[chosen.back()].data();
    wanted.emplace_back(pose, pose);
  }
  ceres::Covariance covariance{ceres::Covariance::Options()};
  bool good = false;
  const double time = seconds([&] { good = covariance.Compute(wanted, &problem); });
  if (!good) return std::numeric_limits<double>::quiet_NaN();
  blocks.assign(graph.poses.size() * size * size, std::numeric_limits<double>::quiet_NaN());
  for (std::size_t k = 0; k < count; ++k) {
    covariance.GetCovarianceBlockInTangentSpace(wanted[k].first, wanted[k].first,
                                                blocks.data() + chosen[k] * size * size);
  }
  return time;
}

/// Seconds from triplets to our diagonal blocks of all poses: unknowns with equal neighbours lie in
/// one group.
double engineBlocks(const compare::Triplets& t, std::size_t size, std::vector<double>& blocks) {
  Engine engine;
  std::vector<double> variances(static_cast<std::size_t>(t.n));
  const compare::Stages stages = compare::callEngine(t, 1, engine, variances.data());
  const auto& s = engine.symbolic;
  const auto read = [&](Index g, const double* z) {
    const Index* unknowns = s.permutation.data() + s.firstColumn[g];
    const auto width = static_cast<std::size_t>(s.width(g));
    const auto height = static_cast<std::size_t>(s.height(g));
    for (std::size_t c = 0; c < width; ++c) {
      const auto u = static_cast<std::size_t>(unknowns[c]);
      for (std::size_t r = 0; r < width; ++r) {
        const auto v = static_cast<std::size_t>(unknowns[r]);
        if (u / size == v / size) blocks[u * size + v % size] = z[c * height + r];
      }
    }
  };
  korin::kernels::Team team(1);
  const double inverse = seconds([&] {
    blocks.assign(static_cast<std::size_t>(t.n) * size, 0.0);
    selectedInverse(s, engine.panels.get(), nullptr, read, team, nullptr);
  });
  return stages.total - stages.inverse + inverse;
}

struct Agreement {
  double difference = 0.0;  ///< largest one, as a share of the standard deviations
  double tolerance = 0.0;   ///< what the condition of the normal equations allows
};

Agreement agreement(const compare::Triplets& t, std::size_t size, const std::vector<double>& ours,
                    const std::vector<double>& theirs) {
  Agreement result;
  for (std::size_t at = 0; at < ours.size(); ++at) {
    if (std::isnan(theirs[at])) continue;
    const std::size_t u = at / size, v = u / size * size + at % size;
    const double scale = std::sqrt(ours[u * size + u % size] * ours[v * size + v % size]);
    const double d = std::fabs(ours[at] - theirs[at]) / scale;
    result.difference = d <= result.difference ? result.difference : d;
  }
  double condition = 0.0;
  for (std::size_t k = 0; k < t.value.size(); ++k) {
    const auto u = static_cast<std::size_t>(t.row[k]);
    if (t.row[k] == t.col[k]) condition += t.value[k] * ours[u * size + u % size];
  }
  result.tolerance = std::max(1e-10, 4.0 * std::numeric_limits<double>::epsilon() * condition);
  return result;
}

int measure(const compare::Arguments& arguments) {
  const std::string path = arguments.positions().at(0);
  PoseGraph graph = zeph::readPoseGraph(path);
  ceres::Problem problem;
  state(graph, problem);
  const std::size_t poses = graph.poses.size(), size = graph.freedom;
  const std::string file = path.substr(path.find_last_of('/') + 1);
  compare::Record record("ceres");
  record.add("graph", file.substr(0, file.rfind('.'))).add("poses", poses).add("size", size);

  std::vector<double> ours, theirs;
  compare::Triplets t;
  compare::Best best;
  compare::repeat(arguments.number("limit", 3.0) / 2.0, 3, 40, [&] {
    const double evaluation = seconds([&] { t = normalEquations(graph, problem); });
    best.add(evaluation + engineBlocks(t, size, ours));
  });
  // A line through the times of a few blocks and of more: Ceres factorises once and solves for each
  // column.
  std::size_t computed = std::min(poses, kMore);
  const double few = ceresBlocks(graph, problem, std::min(poses, kFew), size, theirs);
  const double more = ceresBlocks(graph, problem, computed, size, theirs);
  const double slope = std::max(0.0, (more - few) / static_cast<double>(kMore - kFew));
  double all = more + slope * static_cast<double>(poses - computed);
  if (all <= arguments.number("patience", 120.0) && computed < poses) {
    computed = poses;
    all = ceresBlocks(graph, problem, poses, size, theirs);
  }
  const Agreement found = agreement(t, size, ours, theirs);
  record.add("ours", best.value).add("ceres", all).add("ceres_poses", computed);
  record.add("extrapolated", computed < poses);
  record.add("difference", found.difference).add("tolerance", found.tolerance);
  record.print();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  return compare::run("compare_ceres", measure, argc, argv);
}
