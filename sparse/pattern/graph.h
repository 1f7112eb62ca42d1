// The graph of a symmetric pattern, what orderings and symbolic factorisations work on.
#ifndef ZEPH_SPARSE_PATTERN_GRAPH_H
#define ZEPH_SPARSE_PATTERN_GRAPH_H

#include <vector>

#include "sparse/pattern/columns.h"

namespace korin::sparse {

/// Undirected graph with weighted nodes. The neighbours of node k are neighbour[start[k]] ..
/// neighbour[start[k+1]-1], ascending, k itself left out; every edge is there from both its ends.
/// A node stands for weight[k] unknowns.
struct Graph {
  std::vector<Offset> start{0};
  std::vector<Index> neighbour;
  std::vector<Index> weight;

  Index nodes() const { return static_cast<Index>(weight.size()); }
};

}  // namespace korin::sparse

#endif
