// Problems to compare covariances on.
#ifndef ZEPH_EXAMPLES_CERES_COVARIANCE_PROBLEMS_H
#define ZEPH_EXAMPLES_CERES_COVARIANCE_PROBLEMS_H

#include <ceres/problem.h>

#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace zeph_ceres {

struct TestProblem {
  std::string name;
  std::vector<std::vector<double>> values;  ///< of the parameter blocks
  std::unique_ptr<ceres::Problem> problem;
  /// What to ask for: blocks of blocks with themselves, and some with others.
  std::vector<std::pair<const double*, const double*>> wanted;
};

/// Poses on a screw line, each a position and a unit quaternion, measured to the next one and to
/// the one above, these with a loss function; the first pose is constant.
TestProblem poseGraph(std::size_t poses);

/// The simulated bundle of examples/bundle_adjustment: cameras of nine parameters, the last of
/// which is held by a manifold, points of three, control points.
TestProblem smallBundle(std::size_t images, std::size_t pointsPerImage);

}  // namespace zeph_ceres

#endif
