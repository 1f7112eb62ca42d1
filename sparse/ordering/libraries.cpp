#include "sparse/ordering/libraries.h"

#include <amd.h>
#include <metis.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <mutex>
#include <new>
#include <numeric>

#include "kernels/panel_storage.h"

namespace korin::sparse {
namespace {

/// AMD's direct interface, which eats its input: a copy of the graph with room to work in.
template <class Int, class Call>
std::vector<Index> withWorkspace(const Graph& graph, Call call) {
  const auto n = static_cast<std::size_t>(graph.nodes());
  const std::size_t entries = graph.neighbour.size();
  // A fifth of the entries and one place a node are what AMD asks for.
  const std::size_t room = entries + entries / 5 + n + 1;
  std::vector<Int> start(graph.start.begin(), graph.start.end() - 1), length(n), space(room);
  for (std::size_t k = 0; k < n; ++k) {
    length[k] = static_cast<Int>(graph.start[k + 1] - graph.start[k]);
  }
  std::copy(graph.neighbour.begin(), graph.neighbour.end(), space.begin());
  std::vector<Int> work(7 * n);
  Int* part[7];
  for (std::size_t k = 0; k < 7; ++k) part[k] = work.data() + k * n;
  double control[AMD_CONTROL], info[AMD_INFO];
  amd_defaults(control);
  call(static_cast<Int>(n), start.data(), space.data(), length.data(), static_cast<Int>(room),
       static_cast<Int>(entries), part[0], part[1], part[2], part[3], part[4], part[5], part[6],
       control, info);
  return std::vector<Index>(part[2], part[2] + n);
}

/// Halves may differ by a factor of 1.32 instead of 1.2, with 3 two-sided passes of refinement
/// instead of 10 one-sided ones. On grids of 20^3 to 36^3, over six seeds: two-sided passes take a
/// tenth less time for 3 to 5 % fewer operations; factors of 1.3 to 1.35 need 5 to 10 % fewer
/// operations than 1.4, and 20 to 25 % fewer than 1.2 or 1.25. (More separators to choose from take
/// half as long again for nothing; the other settings change less than the seed does.)
constexpr idx_t kImbalance = 320;
constexpr idx_t kRefinements = 3;
constexpr std::size_t kDoublesOfDissection = 8;

std::vector<Index> identity(const Graph& graph) {
  std::vector<Index> order(static_cast<std::size_t>(graph.nodes()));
  std::iota(order.begin(), order.end(), Index{0});
  return order;
}

}  // namespace

std::vector<Index> minimumDegree(const Graph& graph) {
  if (graph.neighbour.empty()) return identity(graph);
  const std::size_t room = 2 * (graph.neighbour.size() + graph.weight.size());
  if (room < static_cast<std::size_t>(std::numeric_limits<int>::max())) {
    return withWorkspace<int>(graph, amd_2);
  }
  return withWorkspace<SuiteSparse_long>(graph, amd_l2);
}

bool canDissect(const Graph& graph) {
  return graph.neighbour.size() < static_cast<std::size_t>(std::numeric_limits<idx_t>::max()) / 2;
}

std::vector<Index> nestedDissection(const Graph& graph) {
  if (graph.neighbour.empty()) return identity(graph);
  if (!canDissect(graph)) throw std::bad_alloc();
  std::vector<idx_t> start(graph.start.begin(), graph.start.end());
  std::vector<idx_t> neighbour(graph.neighbour.begin(), graph.neighbour.end());
  std::vector<idx_t> weight(graph.weight.begin(), graph.weight.end());
  std::vector<idx_t> order(graph.weight.size()), place(graph.weight.size());
  auto nodes = static_cast<idx_t>(graph.nodes());
  idx_t options[METIS_NOPTIONS];
  METIS_SetDefaultOptions(options);
  options[METIS_OPTION_SEED] = 1;
  options[METIS_OPTION_COMPRESS] = 0;  // the graph is compressed
  options[METIS_OPTION_UFACTOR] = kImbalance;
  options[METIS_OPTION_NITER] = kRefinements;
  options[METIS_OPTION_RTYPE] = METIS_RTYPE_SEP2SIDED;
  // Where its own memory runs out it tells the terminal and leaves by a signal: asked for here,
  // that ends in an exception. The most it took, on six graphs, is 46 bytes a node and neighbour.
  kernels::rawPanels(kDoublesOfDissection * (order.size() + neighbour.size()));
  // It draws from the C library's one sequence of random numbers and replaces the program's signal
  // handlers while it runs: two at once would order differently and restore the wrong handlers.
  static std::mutex oneAtATime;
  const std::lock_guard<std::mutex> lock(oneAtATime);
  const int status = METIS_NodeND(&nodes, start.data(), neighbour.data(), weight.data(), options,
                                  order.data(), place.data());
  if (status != METIS_OK) throw std::bad_alloc();
  return std::vector<Index>(order.begin(), order.end());
}

}  // namespace korin::sparse
