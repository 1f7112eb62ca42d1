#ifndef ZEPH_BENCH_PEERS_POSE_GRAPH_H
#define ZEPH_BENCH_PEERS_POSE_GRAPH_H

#include <array>
#include <string>
#include <vector>

namespace compare {

/// A pose graph from a g2o file, planar or in space.
struct PoseGraph {
  /// Numbers of a pose and of a measured motion: x, y, angle; or x, y, z and the quaternion's x, y,
  /// z, w.
  using Pose = std::array<double, 7>;
  struct Edge {
    std::size_t from, to;
    Pose motion;
    /// Upper triangle by rows: 3 x 3 (6 values) or 6 x 6 (21 values), translation first.
    std::array<double, 21> information;
  };

  bool planar = true;
  std::vector<Pose> poses;
  std::vector<Edge> edges;
};

/// Reads the lines VERTEX_SE2 and EDGE_SE2, or VERTEX_SE3:QUAT and EDGE_SE3:QUAT. Throws
/// std::runtime_error with file and line where one is broken, of another kind, or names a pose that
/// is not there.
PoseGraph readPoseGraph(const std::string& path);

}  // namespace compare

#endif
