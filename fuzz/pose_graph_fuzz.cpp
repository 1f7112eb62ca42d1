// Pose graphs: a graph that can be optimised, or one sentence that names the line.
#include <string>

#include "fuzz/input.h"
#include "zeph/error.h"
#include "zeph/pose_graph.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const MemoryFile file(data, size);
  try {
    zeph::PoseGraph graph = zeph::readPoseGraph(file.path());
    PROMISE(graph.poses.size() == graph.ids.size() && graph.fixed.size() == graph.ids.size());
    for (const zeph::PoseEdge& e : graph.edges) {
      PROMISE(e.from < graph.ids.size() && e.to < graph.ids.size() && e.from != e.to);
    }
    if (graph.poses.size() > 200) return 0;
    zeph::PoseGraphOptions options;
    options.maxIterations = 3;
    options.solver.threads = 1;
    const zeph::PoseGraphResult result = zeph::optimise(std::move(graph), options);
    PROMISE(std::isfinite(result.cost) && result.cost <= result.initialCost);
    for (std::size_t i = 0; i < result.graph.poses.size(); ++i) {
      const zeph::DenseMatrix c = result.covariance(i);
      for (std::size_t k = 0; k < c.rows; ++k) PROMISE(c.values[k * c.rows + k] >= 0.0);
    }
  } catch (const zeph::Error& e) {
    PROMISE(std::string(e.what()).find('\n') == std::string::npos);
  }
  return 0;
}
