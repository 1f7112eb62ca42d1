// An optimised pose graph as tables and as a picture.
#ifndef ZEPH_JOBS_POSE_GRAPH_OUTPUT_H
#define ZEPH_JOBS_POSE_GRAPH_OUTPUT_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "zeph/files/atomic_file.h"
#include "zeph/pose_graph.h"

namespace zeph {

/// The places of a pair "i,j" of ids. Throws Error(Usage) for what is no such pair of the graph.
std::pair<std::size_t, std::size_t> posePair(const PoseGraph& graph, const std::string& text);

/// A line for each pose below a header: id, pose, standard deviations of its movement. The caller
/// commits what is written.
void writePoses(AtomicFile& out, const PoseGraph& graph,
                const std::vector<DenseMatrix>& covariances);

/// Lines "i,j,row,col,covariance" below a header; i and j are ids, rows and columns from zero.
void writePairs(AtomicFile& out, const PoseGraphResult& result,
                const std::vector<std::pair<std::size_t, std::size_t>>& pairs);

/// An SVG document without background, for light and dark pages: the trajectory, the loop closures,
/// and the ellipses of some positions at 95 %; 3-D graphs from above.
std::string drawPoseGraph(const PoseGraph& graph, const std::vector<DenseMatrix>& covariances);

}  // namespace zeph

#endif
