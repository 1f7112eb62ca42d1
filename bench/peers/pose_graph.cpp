#include "pose_graph.h"

#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>

namespace compare {
namespace {

struct Kind {
  bool planar;
  bool edge;
};

const std::map<std::string, Kind> kKinds = {{"VERTEX_SE2", {true, false}},
                                            {"EDGE_SE2", {true, true}},
                                            {"VERTEX_SE3:QUAT", {false, false}},
                                            {"EDGE_SE3:QUAT", {false, true}}};

}  // namespace

PoseGraph readPoseGraph(const std::string& path) {
  std::ifstream file(path);
  if (!file) throw std::runtime_error(path + " cannot be read");
  PoseGraph graph;
  std::map<long, std::size_t> places;
  std::string text;
  for (std::size_t line = 1; std::getline(file, text); ++line) {
    const auto broken = [&](const std::string& what) {
      return std::runtime_error(path + ", line " + std::to_string(line) + ": " + what);
    };
    std::istringstream words(text);
    std::string tag;
    if (!(words >> tag)) continue;
    const auto kind = kKinds.find(tag);
    if (kind == kKinds.end()) throw broken("unknown kind " + tag);
    const auto [planar, isEdge] = kind->second;
    if (graph.poses.empty()) graph.planar = planar;
    if (graph.planar != planar) throw broken("planar and spatial poses in one file");
    long names[2] = {0, 0};
    for (int k = 0; k < (isEdge ? 2 : 1); ++k) words >> names[k];
    PoseGraph::Pose pose{};
    for (int k = 0; k < (planar ? 3 : 7); ++k) words >> pose[k];
    PoseGraph::Edge edge{0, 0, pose, {}};
    for (int k = 0; isEdge && k < (planar ? 6 : 21); ++k) words >> edge.information[k];
    if (!words) throw broken("numbers are missing");
    if (isEdge) {
      const auto from = places.find(names[0]), to = places.find(names[1]);
      if (from == places.end() || to == places.end()) throw broken("a pose is not defined above");
      edge.from = from->second;
      edge.to = to->second;
      graph.edges.push_back(edge);
    } else {
      if (!places.emplace(names[0], graph.poses.size()).second)
        throw broken("the pose is there already");
      graph.poses.push_back(pose);
    }
  }
  return graph;
}

}  // namespace compare
