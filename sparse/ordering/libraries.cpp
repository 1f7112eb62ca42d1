#include "sparse/ordering/libraries.h"

#include <amd.h>
#include <camd.h>
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

/// Sides may differ by a factor of 1.32 instead of 1.2, with one two-sided pass of refinement
/// instead of 10 one-sided ones. On the grids of 30^3 and 40^3 a second pass takes a quarter longer
/// for up to a fifth fewer operations or none; factors of 1.2 and 1.5 and one-sided passes need 10
/// to 40 % more operations.
constexpr idx_t kImbalance = 320;
constexpr idx_t kRefinements = 1;
/// Sides for two processes may differ by 5 %; halves may miss their share by 2 %.
constexpr idx_t kTightImbalance = 50;
constexpr idx_t kImbalanceOfHalves = 20;
constexpr std::size_t kDoublesOfDissection = 8;

/// METIS draws from the C library's one sequence of random numbers: two at once would find other
/// separators.
std::mutex oneAtATime;

/// A graph in METIS's integers, with its options and room for its answer.
struct MetisGraph {
  idx_t nodes;
  std::vector<idx_t> start, neighbour, weight, side;
  idx_t options[METIS_NOPTIONS];

  explicit MetisGraph(const Graph& graph)
      : nodes(static_cast<idx_t>(graph.nodes())),
        start(graph.start.begin(), graph.start.end()),
        neighbour(graph.neighbour.begin(), graph.neighbour.end()),
        weight(graph.weight.begin(), graph.weight.end()),
        side(graph.weight.size()) {
    METIS_SetDefaultOptions(options);
    options[METIS_OPTION_SEED] = 1;
  }

  template <class Call>
  std::vector<Side> sides(const Call& call) {
    // Where its own memory runs out it tells the terminal and leaves by a signal, which this
    // function of METIS, unlike METIS_NodeND, does not catch: asked for here, that ends in an
    // exception. The most it took, on six graphs, is 46 bytes a node and neighbour.
    kernels::rawPanels(kDoublesOfDissection * (side.size() + neighbour.size()));
    const std::lock_guard<std::mutex> lock(oneAtATime);
    if (call() != METIS_OK) throw std::bad_alloc();
    std::vector<Side> result(side.size());
    std::transform(side.begin(), side.end(), result.begin(),
                   [](idx_t s) { return static_cast<Side>(s); });
    return result;
  }
};

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

double minimumDegreeMemory(const Graph& graph) {
  if (graph.neighbour.empty()) return sizeof(Index) * static_cast<double>(graph.nodes());
  const auto edges = static_cast<double>(graph.neighbour.size());
  return sizeof(int) * (1.2 * edges + 11.0 * graph.nodes());  // see withWorkspace
}

bool canDissect(const Graph& graph) {
  return graph.neighbour.size() < static_cast<std::size_t>(std::numeric_limits<idx_t>::max()) / 2;
}

std::vector<Index> minimumDegreeByStages(const Graph& graph, const std::vector<Index>& stage) {
  const std::vector<int> start(graph.start.begin(), graph.start.end());
  std::vector<int> order(graph.weight.size());
  double control[CAMD_CONTROL], info[CAMD_INFO];
  camd_defaults(control);
  const int status = camd_order(graph.nodes(), start.data(), graph.neighbour.data(), order.data(),
                                control, info, stage.data());
  if (status != CAMD_OK) throw std::bad_alloc();
  return order;
}

std::vector<Side> separate(const Graph& graph, Balance balance) {
  MetisGraph g(graph);
  if (balance == Balance::Loose) {
    g.options[METIS_OPTION_UFACTOR] = kImbalance;
    g.options[METIS_OPTION_NITER] = kRefinements;
    g.options[METIS_OPTION_RTYPE] = METIS_RTYPE_SEP2SIDED;
  } else {
    g.options[METIS_OPTION_UFACTOR] = kTightImbalance;
    g.options[METIS_OPTION_RTYPE] = METIS_RTYPE_SEP1SIDED;
  }
  return g.sides([&] {
    idx_t weightOfSeparator = 0;
    return METIS_ComputeVertexSeparator(&g.nodes, g.start.data(), g.neighbour.data(),
                                        g.weight.data(), g.options, &weightOfSeparator,
                                        g.side.data());
  });
}

std::vector<Side> bisect(const Graph& graph, double share) {
  MetisGraph g(graph);
  g.options[METIS_OPTION_UFACTOR] = kImbalanceOfHalves;
  return g.sides([&] {
    idx_t conditions = 1, parts = 2, cut = 0;
    real_t shares[2] = {static_cast<real_t>(share), static_cast<real_t>(1.0 - share)};
    return METIS_PartGraphRecursive(&g.nodes, &conditions, g.start.data(), g.neighbour.data(),
                                    g.weight.data(), nullptr, nullptr, &parts, shares, nullptr,
                                    g.options, &cut, g.side.data());
  });
}

std::string minimumDegreeVersion() {
  return std::to_string(AMD_MAIN_VERSION) + "." + std::to_string(AMD_SUB_VERSION) + "." +
         std::to_string(AMD_SUBSUB_VERSION);
}

std::string separatorVersion() {
  return std::to_string(METIS_VER_MAJOR) + "." + std::to_string(METIS_VER_MINOR) + "." +
         std::to_string(METIS_VER_SUBMINOR);
}

}  // namespace korin::sparse
