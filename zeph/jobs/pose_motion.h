// Poses as elements of a group: how they are put together, how they move, and how an edge sees it.
#ifndef ZEPH_JOBS_POSE_MOTION_H
#define ZEPH_JOBS_POSE_MOTION_H

#include <array>
#include <cstddef>

#include "zeph/pose_graph.h"

namespace zeph {

/// The residual of an edge and its derivatives with respect to the movements of both ends, column
/// after column.
struct EdgeTerms {
  std::array<double, 6> residual{};
  std::array<double, 36> from{};
  std::array<double, 36> to{};
};

Pose identityPose(std::size_t freedom);

/// a ∘ b: the pose that a sees as b.
Pose composed(std::size_t freedom, const Pose& a, const Pose& b);
Pose inverted(std::size_t freedom, const Pose& a);

/// The pose moved by `freedom` values.
Pose moved(std::size_t freedom, const Pose& pose, const double* step);

EdgeTerms edgeTerms(std::size_t freedom, const Pose& from, const Pose& to, const Pose& measurement);

/// The rotation of a pose in space as a matrix, row after row.
std::array<double, 9> rotation(const Pose& pose);

}  // namespace zeph

#endif
