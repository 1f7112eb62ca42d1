#include "sparse/ordering/ordering.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "sparse/pattern/assembly.h"
#include "sparse/pattern/compress.h"

namespace korin::sparse {
namespace {

/// Grid of the given sides with links to the 2 neighbours along each axis and `dofs` unknowns a
/// node.
Graph grid(Index x, Index y, Index z, Index dofs) {
  std::vector<Index> row, col;
  const auto link = [&](Index i, Index j) {
    for (Index k = 0; k < dofs * dofs; ++k) {
      row.push_back(i * dofs + k / dofs);
      col.push_back(j * dofs + k % dofs);
    }
  };
  const Index n = x * y * z;
  for (Index i = 0; i < n; ++i) {
    link(i, i);
    if (i % x > 0) link(i, i - 1);
    if (i / x % y > 0) link(i, i - x);
    if (i >= x * y) link(i, i - x * y);
  }
  const std::vector<double> value(row.size(), 1.0);
  return compress(assembleTriplets(n * dofs, n * dofs, row.data(), col.data(), value.data(),
                                   row.size(), Part::OneTriangle)
                      .view(),
                  Compression::All)
      .graph;
}

TEST(Ordering, DissectsSpaceAndLeavesThePlaneToMinimumDegree) {
  const struct {
    Graph graph;
    Ordering expected;
  } cases[] = {{grid(60, 60, 1, 1), Ordering::MinimumDegree},
               {grid(25, 25, 1, 6), Ordering::MinimumDegree},
               {grid(8, 8, 8, 1), Ordering::MinimumDegree},
               {grid(16, 16, 16, 2), Ordering::NestedDissection}};
  for (const auto& [graph, expected] : cases) {
    SCOPED_TRACE(graph.nodes());
    const OrderedGraph chosen = orderGraph(graph, Ordering::Automatic);
    EXPECT_EQ(chosen.ordering, expected);
    for (const Ordering forced : {Ordering::MinimumDegree, Ordering::NestedDissection}) {
      const OrderedGraph other = orderGraph(graph, forced);
      EXPECT_EQ(other.order, orderGraph(graph, forced).order) << "not the same twice";
      if (expected == Ordering::NestedDissection) {
        EXPECT_LE(chosen.predicted.operations, other.predicted.operations);
      }
      std::vector<Index> sorted = other.order;
      std::sort(sorted.begin(), sorted.end());
      for (Index k = 0; k < graph.nodes(); ++k) ASSERT_EQ(sorted[k], k);
    }
  }
}

}  // namespace
}  // namespace korin::sparse
