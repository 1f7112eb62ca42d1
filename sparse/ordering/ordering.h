// The order of elimination: which one, and its choice from predicted costs.
#ifndef ZEPH_SPARSE_ORDERING_ORDERING_H
#define ZEPH_SPARSE_ORDERING_ORDERING_H

#include <functional>
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

/// Nested dissection is tried where both hold of the operations that minimum degree needs:
///
/// * The graph fills space rather than a plane. With N nodes, counted as one unknown each, minimum
///   degree takes 10 to 25 N^1.5 operations on grids and networks in the plane and on pose graphs,
///   100 on a stiffness matrix of shells, 130 (12^3) to 2000 (40^3) on grids in space. From 16^3 on
///   the last gain, 1.6 to 2.8 times fewer operations; the others gain at most what dissection
///   takes.
inline constexpr double kSpatialOperations = 150.0;
/// * There is more to save than it takes: 2.5 to 4 microseconds a node, against half the operations
///   of a factorisation and the twice as many of an inverse at some 3e10 a second.
inline constexpr double kDissectionOperationsPerNode = 6.0e4;

/// Whether `orderGraph` tries nested dissection after minimum degree with this prediction.
bool dissectionMayPay(const Graph& graph, const Prediction& predicted);

/// Orders the graph; `Given` is not for graphs but for unknowns (see analyse) and not accepted
/// here. Automatic keeps the order with fewer predicted operations of the one or two that it tried.
/// std::bad_alloc as the libraries below.
///
/// `room`, where given, is called with the bytes of memory that an order is about to take; may
/// throw.
///
/// The last `kept` nodes come last, in their order, and are not eliminated: in the tree they are a
/// chain, as if all of them were neighbours, and the prediction leaves them out. Minimum degree
/// counts them among the neighbours of the others.
OrderedGraph orderGraph(const Graph& graph, Ordering ordering, Index kept = 0,
                        const std::function<void(double bytes)>& room = {});

/// The same for an order that is there already.
OrderedGraph withOrder(const Graph& graph, Ordering ordering, std::vector<Index> order,
                       Index kept = 0);

}  // namespace korin::sparse

#endif
