#include "sparse/ordering/ordering.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <numeric>
#include <utility>

#include "sparse/ordering/dissection.h"
#include "sparse/ordering/libraries.h"

namespace korin::sparse {
namespace {

/// Minimum degree with the last `kept` nodes last.
std::vector<Index> minimumDegreeBefore(const Graph& graph, Index kept) {
  // Without edges all keep their order.
  if (kept == 0 || graph.neighbour.empty()) return minimumDegree(graph);
  if (!canDissect(graph)) throw std::bad_alloc();
  std::vector<Index> stage(graph.weight.size(), 0);
  if (kept < graph.nodes()) std::fill(stage.end() - kept, stage.end(), 1);
  return minimumDegreeByStages(graph, stage);
}

}  // namespace

bool dissectionMayPay(const Graph& graph, const Prediction& predicted) {
  const auto nodes = static_cast<double>(graph.nodes());
  const double unknowns = std::accumulate(graph.weight.begin(), graph.weight.end(), 0.0);
  const double ofNodes = predicted.operations * std::pow(nodes / unknowns, 3);
  return ofNodes > kSpatialOperations * std::pow(nodes, 1.5) &&
         predicted.operations > kDissectionOperationsPerNode * nodes && canDissect(graph);
}

OrderedGraph withOrder(const Graph& graph, Ordering ordering, std::vector<Index> order,
                       Index kept) {
  OrderedGraph result{ordering, std::move(order), {}, {}};
  std::iota(result.order.end() - kept, result.order.end(), graph.nodes() - kept);
  result.tree = eliminationTree(graph, result.order);
  const Index eliminated = graph.nodes() - kept;
  Index height = 0;
  for (Index k = graph.nodes(); k-- > eliminated;) {
    result.tree.parent[k] = k + 1 < graph.nodes() ? k + 1 : -1;
    result.tree.height[k] = height += graph.weight[result.order[k]];
  }
  result.predicted = predict(graph, result.order, result.tree, eliminated);
  return result;
}

OrderedGraph orderGraph(const Graph& graph, Ordering ordering, Index kept,
                        const std::function<void(double bytes)>& room) {
  const auto dissected = [&] {
    if (room) room(dissectionMemory(graph));
    return withOrder(graph, Ordering::NestedDissection, nestedDissection(graph, kept), kept);
  };
  if (ordering == Ordering::NestedDissection) return dissected();
  if (ordering == Ordering::Natural) {
    std::vector<Index> order(static_cast<std::size_t>(graph.nodes()));
    std::iota(order.begin(), order.end(), Index{0});
    return withOrder(graph, ordering, std::move(order), kept);
  }
  if (room) room(minimumDegreeMemory(graph));
  OrderedGraph best =
      withOrder(graph, Ordering::MinimumDegree, minimumDegreeBefore(graph, kept), kept);
  if (ordering == Ordering::Automatic && dissectionMayPay(graph, best.predicted)) {
    OrderedGraph other = dissected();
    if (other.predicted.operations < best.predicted.operations) best = std::move(other);
  }
  return best;
}

}  // namespace korin::sparse
