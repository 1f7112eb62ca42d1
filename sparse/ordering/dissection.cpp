#include "sparse/ordering/dissection.h"

#include <algorithm>
#include <cstddef>
#include <new>
#include <numeric>
#include <utility>

#include "sparse/ordering/libraries.h"
#include "sparse/ordering/subgraph.h"

namespace korin::sparse {
namespace {

/// A separator that leaves more than this share of the nodes on one side is not worth its fill. It
/// bounds the depth, too.
constexpr double kLargestSide = 0.9;

/// What METIS and the parts of the graph take together: 180 to 230 bytes a node on grids and
/// networks of 5*10^5 to 10^6 nodes with 4 to 6 neighbours, 300 with 10.
constexpr double kBytesOfNode = 100.0;
constexpr double kBytesOfNeighbour = 20.0;

/// A part of the graph that is dissected, and how many separators it lies between.
struct Domain {
  Subgraph part;
  Index depth;
};

/// The graph without its last `kept` nodes, which count as the separator of depth 0.
Subgraph withoutKept(const Graph& graph, Index kept, std::vector<Index>& depth,
                     std::vector<Index>& place) {
  Subgraph whole = wholeOf(graph);
  if (kept == 0) return whole;
  std::vector<Side> sides(graph.weight.size(), Side::Left);
  std::fill(sides.end() - kept, sides.end(), Side::Separator);
  std::fill(depth.end() - kept, depth.end(), 0);
  return sideOf(whole, sides, Side::Left, place);
}

/// The depth of the separator that each node belongs to; -1 for the nodes of no separator.
std::vector<Index> separatorDepths(const Graph& graph, Index kept) {
  const auto n = static_cast<std::size_t>(graph.nodes());
  std::vector<Index> depth(n, -1), place(n);
  std::vector<Domain> waiting;
  waiting.push_back({withoutKept(graph, kept, depth, place), kept > 0 ? 1 : 0});
  while (!waiting.empty()) {
    const auto [part, level] = std::move(waiting.back());
    waiting.pop_back();
    if (part.graph.nodes() < kLeastDissected || part.graph.neighbour.empty()) continue;
    const std::vector<Side> sides = separate(part.graph);
    Subgraph left = sideOf(part, sides, Side::Left, place);
    Subgraph right = sideOf(part, sides, Side::Right, place);
    const Index larger = std::max(left.graph.nodes(), right.graph.nodes());
    if (larger > kLargestSide * part.graph.nodes()) continue;
    for (Index k = 0; k < part.graph.nodes(); ++k) {
      if (sides[k] == Side::Separator) depth[part.node[k]] = level;
    }
    waiting.push_back({std::move(left), level + 1});
    waiting.push_back({std::move(right), level + 1});
  }
  return depth;
}

}  // namespace

std::vector<Index> nestedDissection(const Graph& graph, Index kept) {
  if (!canDissect(graph)) throw std::bad_alloc();
  if (graph.neighbour.empty()) return minimumDegree(graph);  // all in their own order
  std::vector<Index> stage = separatorDepths(graph, kept);
  const Index deepest = *std::max_element(stage.begin(), stage.end());
  for (Index& s : stage) s = s < 0 ? 0 : deepest - s + 1;
  return minimumDegreeByStages(graph, stage);
}

double dissectionMemory(const Graph& graph) {
  return kBytesOfNode * graph.nodes() +
         kBytesOfNeighbour * static_cast<double>(graph.neighbour.size());
}

}  // namespace korin::sparse
