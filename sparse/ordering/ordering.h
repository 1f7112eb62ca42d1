// The order of elimination: which one, and its choice from predicted costs.
#ifndef ZEPH_SPARSE_ORDERING_ORDERING_H
#define ZEPH_SPARSE_ORDERING_ORDERING_H

#include <vector>

#include "sparse/ordering/choice.h"
#include "sparse/pattern/graph.h"
#include "sparse/symbolic/elimination_tree.h"

namespace korin::sparse {

/// An order of a graph's nodes with what follows from it.
struct OrderedGraph {
  /// What was chosen; never Automatic.
  Ordering ordering;
  /// order[k] is the node eliminated as the k-th.
  std::vector<Index> order;
  EliminationTree tree;
  Prediction predicted;
};

/// Predicted seconds from which on nested dissection is worth trying: what it takes itself, against
/// what fewer operations save in factorisation and inverse together.
///
/// Measured on one core: the library takes about 3 microseconds an edge end and node on graphs of
/// 10^3 to 10^6 nodes. Of all that was measured only grids in three dimensions gain (2 to 2.8 times
/// fewer operations from 30^3 on); pose graphs, grids and networks in the plane gain nothing or
/// lose. These two families stand apart in operations an edge.
inline constexpr double kDissectionOperationsPerEdge = 2.0e4;

/// Whether an order that needs `predicted` is bad enough for `orderGraph` to try nested dissection.
bool dissectionMayPay(const Graph& graph, const Prediction& predicted);

/// Orders the graph; `Given` is not for graphs but for unknowns (see analyse) and not accepted
/// here. Automatic keeps the order with fewer predicted operations of the one or two that it tried.
/// std::bad_alloc as the libraries below.
OrderedGraph orderGraph(const Graph& graph, Ordering ordering);

/// The same for an order that is there already.
OrderedGraph withOrder(const Graph& graph, Ordering ordering, std::vector<Index> order);

}  // namespace korin::sparse

#endif
