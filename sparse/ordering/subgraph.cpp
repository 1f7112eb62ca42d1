#include "sparse/ordering/subgraph.h"

#include <numeric>

namespace korin::sparse {

Subgraph wholeOf(const Graph& graph) {
  Subgraph whole{graph, std::vector<Index>(graph.weight.size())};
  std::iota(whole.node.begin(), whole.node.end(), Index{0});
  return whole;
}

Subgraph sideOf(const Subgraph& whole, const std::vector<Side>& sides, Side side,
                std::vector<Index>& place) {
  Subgraph result;
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

}  // namespace korin::sparse
