#include "sparse/ordering/dissection.h"

#include <algorithm>
#include <cstddef>
#include <new>
#include <numeric>
#include <utility>

#include "sparse/ordering/libraries.h"

namespace korin::sparse {
namespace {

/// A separator that leaves more than this share of the nodes on one side is not worth its fill. It
/// bounds the depth, too.
constexpr double kLargestSide = 0.9;

/// Some nodes of the graph that is dissected, with the edges among them.
struct Domain {
  Graph graph;
  std::vector<Index> node;
  Index depth;
};

/// The nodes of one side. `place` is scratch for the domain's nodes.
Domain sideOf(const Domain& whole, const std::vector<Side>& sides, Side side,
              std::vector<Index>& place) {
  Domain result{{}, {}, whole.depth + 1};
  const Graph& graph = whole.graph;
  Graph& part = result.graph;
  for (Index k = 0; k < graph.nodes(); ++k) {
    if (sides[k] != side) continue;
    place[k] = part.nodes();
    part.weight.push_back(graph.weight[k]);
    result.node.push_back(whole.node[k]);
  }
  part.start.reserve(part.weight.size() + 1);
  for (Index k = 0; k < graph.nodes(); ++k) {
    if (sides[k] != side) continue;
    for (Offset p = graph.start[k]; p < graph.start[k + 1]; ++p) {
      const Index other = graph.neighbour[p];
      if (sides[other] == side) part.neighbour.push_back(place[other]);
    }
    part.start.push_back(static_cast<Offset>(part.neighbour.size()));
  }
  return result;
}

/// The graph without its last `kept` nodes, which count as the separator of depth 0.
Domain withoutKept(const Graph& graph, Index kept, std::vector<Index>& depth,
                   std::vector<Index>& place) {
  Domain whole{graph, std::vector<Index>(graph.weight.size()), 0};
  std::iota(whole.node.begin(), whole.node.end(), Index{0});
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
  waiting.push_back(withoutKept(graph, kept, depth, place));
  while (!waiting.empty()) {
    const Domain domain = std::move(waiting.back());
    waiting.pop_back();
    if (domain.graph.nodes() < kLeastDissected || domain.graph.neighbour.empty()) continue;
    const std::vector<Side> sides = separate(domain.graph);
    Domain left = sideOf(domain, sides, Side::Left, place);
    Domain right = sideOf(domain, sides, Side::Right, place);
    const Index larger = std::max(left.graph.nodes(), right.graph.nodes());
    if (larger > kLargestSide * domain.graph.nodes()) continue;
    for (Index k = 0; k < domain.graph.nodes(); ++k) {
      if (sides[k] == Side::Separator) depth[domain.node[k]] = domain.depth;
    }
    waiting.push_back(std::move(left));
    waiting.push_back(std::move(right));
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

}  // namespace korin::sparse
