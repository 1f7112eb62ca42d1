#include "sparse/ordering/ordering.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bitset>
#include <random>
#include <string>

#include "sparse/ordering/domains.h"
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
        EXPECT_LE(chosen.predicted.operations,
                  (forced == expected ? 1.0 : 0.9) * other.predicted.operations);
      }
      std::vector<Index> sorted = other.order;
      std::sort(sorted.begin(), sorted.end());
      for (Index k = 0; k < graph.nodes(); ++k) ASSERT_EQ(sorted[k], k);
    }
  }
}

TEST(Domains, AreBalancedAndMeetInASmallInterfaceOnly) {
  const struct {
    Graph graph;
    Index domains;
    double most;  // of the nodes, in the interface
  } cases[] = {{grid(60, 60, 1, 1), 2, 0.02},  {grid(60, 60, 1, 2), 3, 0.04},
               {grid(60, 60, 1, 1), 8, 0.08},  {grid(14, 14, 14, 1), 4, 0.17},
               {grid(500, 1, 1, 1), 5, 0.009}, {grid(3, 1, 1, 1), 8, 1.0},
               {grid(1, 1, 1, 4), 2, 0.0},     {Graph(), 3, 0.0}};
  for (const auto& [graph, domains, most] : cases) {
    SCOPED_TRACE(std::to_string(graph.nodes()) + " nodes, " + std::to_string(domains));
    const std::vector<Index> domain = cutIntoDomains(graph, domains);
    EXPECT_EQ(domain, cutIntoDomains(graph, domains)) << "not the same twice";
    ASSERT_EQ(domain.size(), graph.weight.size());
    std::vector<Index> count(static_cast<std::size_t>(domains) + 1);
    for (Index k = 0; k < graph.nodes(); ++k) {
      ASSERT_LT(domain[k], domains);
      ++count[domain[k] + 1];
      for (Offset p = graph.start[k]; p < graph.start[k + 1] && domain[k] >= 0; ++p) {
        const Index other = domain[graph.neighbour[p]];
        ASSERT_TRUE(other == kInterface || other == domain[k]);
      }
    }
    EXPECT_LE(count[0], most * graph.nodes());
    if (graph.nodes() < 100) continue;
    const auto [least, largest] = std::minmax_element(count.begin() + 1, count.end());
    EXPECT_LT(*largest, 1.25 * *least);
  }
}

TEST(Domains, HalvesAreSeparatedByAMinimumCover) {
  std::mt19937 random(5);
  for (int round = 0; round < 300; ++round) {
    // Up to seven nodes on the left, which are all covers that there are by subsets.
    const Index left = 1 + static_cast<Index>(random() % 7), nodes = left + 1 + left;
    std::vector<unsigned> of(static_cast<std::size_t>(nodes), 0);
    Graph graph;
    graph.weight.assign(of.size(), 1);
    std::vector<std::vector<Index>> lists(of.size());
    for (Index i = 0; i < left; ++i) {
      for (Index j = left; j < nodes; ++j) {
        if (random() % 4 != 0) continue;
        lists[i].push_back(j), lists[j].push_back(i);
        of[j] |= 1U << i;
      }
    }
    for (const auto& list : lists) {
      graph.neighbour.insert(graph.neighbour.end(), list.begin(), list.end());
      graph.start.push_back(static_cast<Offset>(graph.neighbour.size()));
    }
    std::vector<Side> sides(of.size(), Side::Right);
    std::fill_n(sides.begin(), left, Side::Left);
    separateHalves(graph, sides);
    long least = nodes;
    for (unsigned taken = 0; taken < 1U << left; ++taken) {
      long size = std::bitset<8>(taken).count();
      for (const unsigned ends : of) size += (ends & ~taken) != 0 ? 1 : 0;
      least = std::min(least, size);
    }
    EXPECT_EQ(std::count(sides.begin(), sides.end(), Side::Separator), least);
    for (Index i = 0; i < left; ++i) {
      for (const Index j : lists[i]) {
        ASSERT_TRUE(sides[i] == Side::Separator || sides[j] == Side::Separator);
      }
    }
  }
}

}  // namespace
}  // namespace korin::sparse
