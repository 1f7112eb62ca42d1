#include "sparse/symbolic/analyse.h"

#include <limits>
#include <new>
#include <stdexcept>

#include "kernels/panel_storage.h"
#include "sparse/inverse/selected_inverse.h"
#include "sparse/symbolic/placement.h"
#include "tests/sparse/symbolic/symbolic_model.h"

namespace korin::sparse {
namespace {

using testing::checkSymbolic;
using testing::denseOf;
using testing::kShapes;
using testing::makeLower;

constexpr Ordering kOrderings[] = {Ordering::Automatic, Ordering::MinimumDegree,
                                   Ordering::NestedDissection, Ordering::Natural, Ordering::Given};

/// Number of different rows of the full pattern.
Index differentRows(const ColumnsView& lower) {
  const std::vector<double> full = denseOf(lower, true);
  std::set<std::vector<double>> rows;
  const auto n = static_cast<std::size_t>(lower.cols);
  for (std::size_t i = 0; i < n; ++i) {
    rows.emplace(full.begin() + static_cast<std::ptrdiff_t>(i * n),
                 full.begin() + static_cast<std::ptrdiff_t>((i + 1) * n));
  }
  return static_cast<Index>(rows.size());
}

/// What waits at one time, group after group.
double simulatedUpdates(const Symbolic& s) {
  std::vector<double> update(static_cast<std::size_t>(s.groups()));
  double most = 0.0;
  for (Index g = 0; g < s.groups(); ++g) {
    update[g] = 8.0 * s.below(g) * s.below(g);
    most = std::max(most, std::accumulate(update.begin(), update.end(), 0.0));
    for (Index child = 0; child < g; ++child) {
      if (s.parent[child] == g) update[child] = 0.0;
    }
  }
  return most;
}

/// Every entry of the lower triangle of A(p, p) is where its column, group and position say.
void checkPlacement(const Symbolic& s, const Columns& lower, const PlacedEntries& placed) {
  const std::vector<double> full = denseOf(lower.view());
  std::vector<double> found(full.size(), 0.0);
  ASSERT_EQ(placed.start.back(), lower.entries());
  for (Index c = 0; c < s.n; ++c) {
    for (Offset p = placed.start[c]; p < placed.start[c + 1]; ++p) {
      ASSERT_LT(placed.position[p], s.height(s.groupOf[c]));
      const Index r = s.rowsOf(s.groupOf[c])[placed.position[p]];
      ASSERT_GE(r, c);
      const auto i = static_cast<std::size_t>(s.permutation[r]);
      const auto j = static_cast<std::size_t>(s.permutation[c]);
      ASSERT_EQ(found[i * s.n + j], 0.0);
      found[i * s.n + j] = found[j * s.n + i] = placed.value[p];
    }
  }
  ASSERT_EQ(found, full);
}

TEST(Analyse, KeepsItsPromisesOnEveryShapeInEveryOrder) {
  std::mt19937 random(5);
  for (const std::string shape : kShapes) {
    for (const Index n : {1, 2, 3, 7, 20, 41, 60}) {
      const Columns lower = makeLower(shape, n, random);
      std::vector<Index> given(static_cast<std::size_t>(lower.cols));
      std::iota(given.begin(), given.end(), 0);
      std::shuffle(given.begin(), given.end(), random);
      for (const Ordering ordering : kOrderings) {
        SCOPED_TRACE(shape + ", n = " + std::to_string(n) + ", ordering " +
                     std::to_string(static_cast<int>(ordering)));
        const Symbolic s = analyse(lower.view(), {ordering, given.data()});
        ASSERT_NO_FATAL_FAILURE(checkSymbolic(s, lower.view()));
        if (ordering < Ordering::Natural) {
          EXPECT_EQ(s.compressedNodes, differentRows(lower.view()));
        }
        if (ordering != Ordering::Automatic) {
          EXPECT_EQ(s.ordering, ordering);
        }
        EXPECT_EQ(predictMemory(s).updates, simulatedUpdates(s));

        // An input of shuffled duplicates reaches the same places through its slots.
        std::vector<Index> row, col;
        for (Index j = 0; j < lower.cols; ++j) {
          for (Offset p = lower.start[j]; p < lower.start[j + 1]; ++p) {
            for (int copy = 0; copy < 2; ++copy) {
              row.push_back(copy == 0 ? lower.row[p] : j);
              col.push_back(copy == 0 ? j : lower.row[p]);
            }
          }
        }
        std::vector<double> half;
        for (const double v : lower.value) half.insert(half.end(), 2, v / 2);
        const Places<Index> places{row.data(), col.data(), row.size()};
        Slots slots;
        const Columns again = assemblePattern(lower.rows, lower.cols, places, Part::OneTriangle);
        ASSERT_TRUE(findSlots(again, places, Part::OneTriangle, slots));
        PlacedEntries placed = place(s, again.view(), &slots);
        EXPECT_TRUE(placed.value.empty());
        placed.value.assign(placed.position.size(), 0.0);
        auto next = half.begin();
        slots.forEach([&](Offset at, bool) { placed.value[at] += *next++; });
        ASSERT_NO_FATAL_FAILURE(checkPlacement(s, lower, placed));
      }
    }
  }
}

TEST(Analyse, KeepsTheFillOfAGivenOrderAndRefusesWhatIsNone) {
  std::mt19937 random(6);
  const Columns lower = makeLower("random", 40, random);
  const Symbolic best = analyse(lower.view());
  const Symbolic same = analyse(lower.view(), {Ordering::Given, best.permutation.data()});
  EXPECT_EQ(same.entries, best.entries);
  EXPECT_EQ(same.operations, best.operations);
  std::vector<Index> wrong = best.permutation;
  for (const Index at : {wrong[1], Index{-1}, Index{40}}) {
    wrong[0] = at;
    EXPECT_THROW(analyse(lower.view(), {Ordering::Given, wrong.data()}), std::invalid_argument);
  }
}

TEST(Analyse, MergesColumnsWhereThatCostsFewZeros) {
  std::mt19937 random(7);
  const Columns grid = makeLower("grid", 60, random);
  const Symbolic s = analyse(grid.view());
  EXPECT_LT(s.groups(), 40);
  EXPECT_LT(s.storage(), 4 * s.entries);
  EXPECT_EQ(analyse(makeLower("dense", 3, random).view()).groups(), 1);
}

/// Nodes that stand for many unknowns reach the largest order without its memory.
TEST(Analyse, CountsFactorsOfTheLargestOrder) {
  constexpr Index kLargest = std::numeric_limits<Index>::max();
  // Five leaves below a node, all tied to a last one that is nearly everything.
  Graph star;
  star.weight = {1, 1, 1, 1, 1, 1, kLargest - 6};
  for (Index k = 0; k < 7; ++k) {
    for (Index other = 0; other < 7; ++other) {
      if (other != k && (std::max(k, other) > 4)) star.neighbour.push_back(other);
    }
    star.start.push_back(static_cast<Offset>(star.neighbour.size()));
  }
  const OrderedGraph ordered = withOrder(star, Ordering::Given, {0, 1, 2, 3, 4, 5, 6});
  const Offset n = kLargest, last = n - 6;
  EXPECT_EQ(ordered.predicted.entries, 5 * (last + 2) + last + 1 + last * (last + 1) / 2);
  const auto cube = static_cast<double>(n) * static_cast<double>(n) * static_cast<double>(n);
  EXPECT_NEAR(ordered.predicted.operations, cube / 3, 1e-6 * cube);

  Symbolic s;
  s.n = kLargest;
  s.firstColumn = {0, kLargest};
  s.rowStart = {0, n};
  s.panelStart = {0, n * n};
  s.parent = {-1};
  s.firstDescendant = {0};
  const auto bytes = 8.0 * static_cast<double>(n) * static_cast<double>(n);
  EXPECT_GT(bytes, 0x1p63);
  EXPECT_EQ(predictMemory(s).panels, bytes);
  EXPECT_GE(inverseMemory(s, 1), 0x1p62);
  EXPECT_GE(kernels::panelBytes(static_cast<std::size_t>(n * n)), std::size_t{1} << 62);
  for (const std::size_t count : {std::size_t{1} << 61, (std::size_t{1} << 61) + 1}) {
    EXPECT_THROW(kernels::rawPanels(count), std::bad_alloc);
    EXPECT_THROW(kernels::zeroPanels(count), std::bad_alloc);
  }
}

/// Anything quadratic or recursive in the unknowns would not come back from these.
TEST(Analyse, TakesPathsAndStarsOfAMillionUnknowns) {
  constexpr Index n = 1000000;
  for (const bool star : {false, true}) {
    for (const Index hub : {0, n - 1}) {
      std::vector<Index> row, col;
      for (Index i = 0; i < n; ++i) {
        row.push_back(i);
        col.push_back(i);
        const Index other = star ? hub : i + 1;
        if (other == i || other == n) continue;
        row.push_back(other);
        col.push_back(i);
      }
      const std::vector<double> value(row.size(), 1.0);
      const Columns lower = assembleTriplets(n, n, row.data(), col.data(), value.data(), row.size(),
                                             Part::OneTriangle);
      for (const Ordering ordering : {Ordering::Automatic, Ordering::Natural}) {
        if (star && hub == 0 && ordering == Ordering::Natural) continue;  // fills completely
        const Symbolic s = analyse(lower.view(), {ordering, nullptr});
        EXPECT_EQ(s.entries, 2 * n - 1);
        EXPECT_EQ(place(s, lower.view()).start.back(), lower.entries());
      }
    }
  }
}

}  // namespace
}  // namespace korin::sparse
