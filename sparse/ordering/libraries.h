// The ordering libraries, behind one function each.
#ifndef ZEPH_SPARSE_ORDERING_LIBRARIES_H
#define ZEPH_SPARSE_ORDERING_LIBRARIES_H

#include <string>
#include <vector>

#include "sparse/pattern/graph.h"

namespace korin::sparse {

/// Approximate minimum degree (AMD: Amestoy, Davis, Duff 1996, 2004): order[k] is eliminated as the
/// k-th. Weights are not looked at. Nodes with more than about ten times the square root of all as
/// neighbours come last, unseen by the rest, so that a dense row costs no more than its entries.
/// std::bad_alloc if memory runs out. The same graph gives the same order every time.
std::vector<Index> minimumDegree(const Graph& graph);

/// Bytes of memory that it takes.
double minimumDegreeMemory(const Graph& graph);

/// The same where stage[k] says when node k is eliminated: those of a smaller stage first, and
/// minimum degree decides within a stage (CAMD). Stages are 0, 1, ... without gaps, and not of more
/// than `canDissect` takes.
std::vector<Index> minimumDegreeByStages(const Graph& graph, const std::vector<Index>& stage);

/// How far the sides of a separator may differ: as much as makes orders good, or little, so that
/// they are the same work for two.
enum class Balance { Loose, Tight };

/// Which side of a separator a node is on.
enum class Side : int { Left = 0, Right = 1, Separator = 2 };

/// A small set of nodes between two sides of about the same weight without an edge from one to the
/// other (METIS 5: Karypis, Kumar 1998), for each node. Seeded, so that the same graph gives the
/// same sides every time. std::bad_alloc if memory runs out. The graph has edges, and no more than
/// `canDissect` takes.
std::vector<Side> separate(const Graph& graph, Balance balance = Balance::Loose);

/// Two halves, Left with about `share` of the weight, such that few edges lead from one to the
/// other (METIS 5 as above). As for `separate`.
std::vector<Side> bisect(const Graph& graph, double share);

/// Whether the integers of the functions above count the graph's edges.
bool canDissect(const Graph& graph);

/// The versions of AMD and METIS that this was compiled with.
std::string minimumDegreeVersion();
std::string separatorVersion();

}  // namespace korin::sparse

#endif
