#include "sparse/ordering/ordering.h"

#include <cmath>
#include <numeric>
#include <utility>

#include "sparse/ordering/dissection.h"
#include "sparse/ordering/libraries.h"

namespace korin::sparse {

bool dissectionMayPay(const Graph& graph, const Prediction& predicted) {
  const auto nodes = static_cast<double>(graph.nodes());
  const double unknowns = std::accumulate(graph.weight.begin(), graph.weight.end(), 0.0);
  const double ofNodes = predicted.operations * std::pow(nodes / unknowns, 3);
  return ofNodes > kSpatialOperations * std::pow(nodes, 1.5) &&
         predicted.operations > kDissectionOperationsPerNode * nodes && canDissect(graph);
}

OrderedGraph withOrder(const Graph& graph, Ordering ordering, std::vector<Index> order) {
  OrderedGraph result{ordering, std::move(order), {}, {}};
  result.tree = eliminationTree(graph, result.order);
  result.predicted = predict(graph, result.order, result.tree);
  return result;
}

OrderedGraph orderGraph(const Graph& graph, Ordering ordering) {
  if (ordering == Ordering::NestedDissection) {
    return withOrder(graph, ordering, nestedDissection(graph));
  }
  if (ordering == Ordering::Natural) {
    std::vector<Index> order(static_cast<std::size_t>(graph.nodes()));
    std::iota(order.begin(), order.end(), Index{0});
    return withOrder(graph, ordering, std::move(order));
  }
  OrderedGraph best = withOrder(graph, Ordering::MinimumDegree, minimumDegree(graph));
  if (ordering == Ordering::Automatic && dissectionMayPay(graph, best.predicted)) {
    OrderedGraph other = withOrder(graph, Ordering::NestedDissection, nestedDissection(graph));
    if (other.predicted.operations < best.predicted.operations) best = std::move(other);
  }
  return best;
}

}  // namespace korin::sparse
