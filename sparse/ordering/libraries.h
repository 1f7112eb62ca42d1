// The ordering libraries, behind one function each.
#ifndef ZEPH_SPARSE_ORDERING_LIBRARIES_H
#define ZEPH_SPARSE_ORDERING_LIBRARIES_H

#include <vector>

#include "sparse/pattern/graph.h"

namespace korin::sparse {

/// Approximate minimum degree (AMD: Amestoy, Davis, Duff 1996, 2004): order[k] is eliminated as the
/// k-th. Weights are not looked at. Nodes with more than about ten times the square root of all as
/// neighbours come last, unseen by the rest, so that a dense row costs no more than its entries.
/// std::bad_alloc if memory runs out. The same graph gives the same order every time.
std::vector<Index> minimumDegree(const Graph& graph);

/// Nested dissection of the weighted graph (METIS 5: Karypis, Kumar 1998): order[k] is eliminated
/// as the k-th. std::bad_alloc if memory runs out or if the graph has more edges than the library
/// counts
/// (`canDissect`). Seeded, so that the same graph gives the same order every time.
std::vector<Index> nestedDissection(const Graph& graph);

/// Whether the library's integers count the graph's edges.
bool canDissect(const Graph& graph);

}  // namespace korin::sparse

#endif
