// Some nodes of a graph as a graph of their own.
#ifndef ZEPH_SPARSE_ORDERING_SUBGRAPH_H
#define ZEPH_SPARSE_ORDERING_SUBGRAPH_H

#include <vector>

#include "sparse/ordering/libraries.h"
#include "sparse/pattern/graph.h"

namespace korin::sparse {

/// Nodes of a larger graph with the edges among them; node k was called node[k] there.
struct Subgraph {
  Graph graph;
  std::vector<Index> node;
};

/// All of a graph.
Subgraph wholeOf(const Graph& graph);

/// The nodes of one side. `place` is scratch for as many nodes as `whole` has. O(its edges).
Subgraph sideOf(const Subgraph& whole, const std::vector<Side>& sides, Side side,
                std::vector<Index>& place);

}  // namespace korin::sparse

#endif
