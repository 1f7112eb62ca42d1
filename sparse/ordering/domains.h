// A graph cut into domains that touch each other only through an interface.
#ifndef ZEPH_SPARSE_ORDERING_DOMAINS_H
#define ZEPH_SPARSE_ORDERING_DOMAINS_H

#include <vector>

#include "sparse/ordering/libraries.h"
#include "sparse/pattern/columns.h"
#include "sparse/pattern/graph.h"

namespace korin::sparse {

/// What a node of no domain has in place of its domain's number.
inline constexpr Index kInterface = -1;

/// For each node its domain, 0 .. domains-1, or kInterface: no edge joins two domains. The domains
/// have about the same weight, and the interface is small: it consists of separators (as of
/// `separate`) that halve the graph again and again. Where an odd number of domains asks for
/// unequal parts, they are parts with few edges between them, less the fewest nodes that have an
/// end of each of those (a minimum vertex cover: König, 1931; by the matching of Hopcroft and Karp,
/// 1973).
///
/// A graph that falls apart needs no interface. Where a cut would leave one side nearly everything,
/// as in a dense matrix, what would have been cut is one domain and others stay empty; so they do
/// where there are fewer nodes than domains. The same graph gives the same domains every time.
/// Throws std::bad_alloc, also for a graph with more edges than `canDissect` takes. Cost: that of
/// the bisections, O(edges log(domains)), and matchings on the edges that are cut.
std::vector<Index> cutIntoDomains(const Graph& graph, Index domains);

/// The same for the unknowns of a symmetric matrix, given by the pattern of its lower triangle:
/// those with equal neighbourhoods stay together. With another cut `before`, the unknowns of a
/// domain there count as much as `share` says of it, 1 to kMostShare, those between domains as one.
std::vector<Index> cutUnknowns(const ColumnsView& lower, Index domains,
                               const std::vector<Index>* before = nullptr,
                               const std::vector<double>& share = {});

/// What eliminating a domain takes, and of how many unknowns.
struct DomainWork {
  double operations = 0.0;
  double unknowns = 0.0;
};

/// Whether what the busiest has more to do than others on average is worth another cut of so many
/// unknowns altogether, and the shares for that cut.
bool worthAnotherCut(double most, double mean, double unknowns);
std::vector<double> sharesForLikeWork(const std::vector<DomainWork>& work);

/// Sums of weights have to stay below 2³¹.
inline constexpr double kMostShare = 16.0;

/// A smallest set of nodes with an end of every edge between Left and Right becomes Separator;
/// there is none on either side before. O(edges between the sides · √nodes).
void separateHalves(const Graph& graph, std::vector<Side>& sides);

}  // namespace korin::sparse

#endif
