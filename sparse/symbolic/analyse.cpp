#include "sparse/symbolic/analyse.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <numeric>
#include <stdexcept>
#include <string>
#include <utility>

#include "sparse/pattern/compress.h"
#include "sparse/symbolic/grouping.h"
#include "sparse/symbolic/tree.h"

namespace korin::sparse {
namespace {

std::vector<Index> checkedPermutation(const Index* permutation, Index n) {
  std::vector<Index> place(static_cast<std::size_t>(n), kNone);
  for (Index k = 0; k < n; ++k) {
    const Index at = permutation[k];
    if (at < 0 || at >= n) {
      throw std::invalid_argument("The permutation's entry " + std::to_string(k) + " is " +
                                  std::to_string(at) + ", but the matrix has the rows 0 to " +
                                  std::to_string(n - 1) + ".");
    }
    if (place[at] != kNone) {
      throw std::invalid_argument("The permutation names row " + std::to_string(at) +
                                  " twice, in its entries " + std::to_string(place[at]) + " and " +
                                  std::to_string(k) + "; each row must occur once.");
    }
    place[at] = k;
  }
  return std::vector<Index>(permutation, permutation + n);
}

/// Bytes of the structure, and of what it is filled with.
double structureMemory(Index n, Index nodes, const Grouping& grouping) {
  double rows = 0.0;
  for (Index g = 0; g < grouping.groups(); ++g) {
    rows += static_cast<double>(grouping.width[g]) + grouping.below[g];
  }
  return sizeof(Index) * (2.0 * rows + 3.0 * n + nodes + 3.0 * grouping.groups()) +
         (2.0 * sizeof(Offset) + sizeof(Index*)) * grouping.groups();
}

/// Sizes of the groups and their places in `permutation`, `rows` and the panels. `order` becomes
/// the nodes in their final order.
void layOut(const CompressedGraph& compressed, const OrderedGraph& ordered,
            const Grouping& grouping, Symbolic& s) {
  const Index groups = grouping.groups();
  s.permutation.reserve(static_cast<std::size_t>(s.n));
  for (const Index place : grouping.node) {
    const Index node = ordered.order[place];
    s.permutation.insert(s.permutation.end(),
                         compressed.member.begin() + compressed.memberStart[node],
                         compressed.member.begin() + compressed.memberStart[node + 1]);
  }
  s.parent = grouping.parent;
  s.firstColumn.resize(static_cast<std::size_t>(groups) + 1);
  s.rowStart.resize(static_cast<std::size_t>(groups) + 1);
  s.panelStart.resize(static_cast<std::size_t>(groups) + 1);
  s.groupOf.resize(static_cast<std::size_t>(s.n));
  s.firstDescendant.resize(static_cast<std::size_t>(groups));
  std::iota(s.firstDescendant.begin(), s.firstDescendant.end(), Index{0});
  for (Index g = 0; g < groups; ++g) {
    const Index width = grouping.width[g];
    const Offset height = Offset{width} + grouping.below[g];
    s.firstColumn[g + 1] = s.firstColumn[g] + width;
    s.rowStart[g + 1] = s.rowStart[g] + height;
    s.panelStart[g + 1] = s.panelStart[g] + height * width;
    std::fill_n(s.groupOf.begin() + s.firstColumn[g], width, g);
    if (s.parent[g] != kNone) {
      Index& first = s.firstDescendant[s.parent[g]];
      first = std::min(first, s.firstDescendant[g]);
    }
  }
}

/// Rows of all groups: row i of the factor is the subtree that the groups of A's entries in row i
/// span below the group of i, so that rows ascend in every group without sorting.
void fillRows(const Graph& graph, const OrderedGraph& ordered, const Grouping& grouping,
              Symbolic& s) {
  const Index groups = grouping.groups();
  s.rows.resize(static_cast<std::size_t>(s.rowStart[groups]));
  std::vector<Index*> end(static_cast<std::size_t>(groups));
  std::vector<Index> lastRow(static_cast<std::size_t>(groups), kNone);
  std::vector<Index> groupOfNode(static_cast<std::size_t>(graph.nodes()));
  for (Index g = 0; g < groups; ++g) {
    Index* own = s.rows.data() + s.rowStart[g];
    std::iota(own, own + grouping.width[g], s.firstColumn[g]);
    end[g] = own + grouping.width[g];
    for (Index k = grouping.nodeStart[g]; k < grouping.nodeStart[g + 1]; ++k) {
      groupOfNode[ordered.order[grouping.node[k]]] = g;
    }
  }
  Index row = 0;
  for (Index g = 0; g < groups; ++g) {
    for (Index k = grouping.nodeStart[g]; k < grouping.nodeStart[g + 1]; ++k) {
      const Index node = ordered.order[grouping.node[k]];
      const Index weight = graph.weight[node];
      for (Offset p = graph.start[node]; p < graph.start[node + 1]; ++p) {
        for (Index at = groupOfNode[graph.neighbour[p]]; at < g && lastRow[at] != row;
             at = s.parent[at]) {
          lastRow[at] = row;
          for (Index w = 0; w < weight; ++w) *end[at]++ = row + w;
        }
      }
      row += weight;
    }
  }
}

}  // namespace

Symbolic analyse(const ColumnsView& lower, const AnalysisOptions& options) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point begin = Clock::now();
  Symbolic s;
  s.n = lower.cols;
  s.kept = options.kept;
  CompressedGraph compressed;
  OrderedGraph ordered;
  if (options.ordering == Ordering::Given) {
    if (s.kept > 0) throw std::invalid_argument("Kept unknowns cannot be given an order.");
    std::vector<Index> order = checkedPermutation(options.permutation, s.n);
    compressed = compress(lower, Compression::None);
    ordered = withOrder(compressed.graph, Ordering::Given, std::move(order));
  } else {
    const bool natural = options.ordering == Ordering::Natural;
    compressed = compress(lower, natural ? Compression::Runs : Compression::All, s.kept);
    ordered = orderGraph(compressed.graph, options.ordering, s.kept, options.room);
  }
  s.secondsOrdering = std::chrono::duration<double>(Clock::now() - begin).count();
  const Graph& graph = compressed.graph;
  s.compressedNodes = graph.nodes();
  s.ordering = ordered.ordering;
  s.entries = ordered.predicted.entries;
  s.operations = ordered.predicted.operations;

  std::vector<Index> weight(ordered.order.size());
  for (std::size_t k = 0; k < weight.size(); ++k) weight[k] = graph.weight[ordered.order[k]];
  const Grouping grouping = groupNodes(ordered.tree, weight, s.kept);
  if (options.room) options.room(structureMemory(s.n, graph.nodes(), grouping));
  layOut(compressed, ordered, grouping, s);
  fillRows(graph, ordered, grouping, s);
  findParentPlaces(s);
  return s;
}

MemoryPrediction predictMemory(const Symbolic& s) {
  MemoryPrediction bytes;
  bytes.panels = static_cast<double>(s.storage()) * sizeof(double);
  const std::size_t groups = s.parent.size();
  bytes.structure = static_cast<double>(
      sizeof(Index) * (2 * s.rows.size() + 2 * static_cast<std::size_t>(s.n) + 3 * groups + 1) +
      sizeof(Offset) * 2 * (groups + 1));
  std::vector<double> ofChildren(groups, 0.0);
  double waiting = 0.0;
  for (std::size_t g = 0; g < groups; ++g) {
    const double below = s.below(static_cast<Index>(g));
    const double update = sizeof(double) * below * below;
    bytes.updates = std::max(bytes.updates, waiting + update);
    waiting += update - ofChildren[g];
    if (s.parent[g] != kNone) ofChildren[s.parent[g]] += update;
  }
  return bytes;
}

}  // namespace korin::sparse
