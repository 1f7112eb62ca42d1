#include "solver/selected_inverse.h"

#include <algorithm>
#include <limits>

#include "solver/assembly/compressed_columns.h"
#include "solver/partial_inverse_lu.h"
#include "solver/suitesparse/lu_factors.h"
#include "sparse/inverse/lu_groups.h"
#include "tests/solver/dense_inverse.h"

namespace zeph_solver {
namespace {

// A matrix of order n while it is filled.
struct Draft {
  std::size_t n;
  std::mt19937& random;
  ProtoSparse A{n, n};

  double uniform() { return std::uniform_real_distribution<double>(-1, 1)(random); }
  // Integers cancel exactly, and UMFPACK then leaves holes in its factors.
  void scatter(std::size_t count, bool integers = false) {
    for (; count > 0; --count) {
      const double value = integers ? static_cast<double>(random() % 3) - 1.0 : uniform();
      A.addElement(random() % n, random() % n, value);
    }
  }
  void addDiagonal(double value) {
    for (std::size_t i = 0; i < n; ++i) A.addElement(i, i, value);
  }
};

const struct {
  const char* name;
  std::size_t largest;
  void (*fill)(Draft& d);
} kKinds[] = {
    {"random, pivoting needed", 60, [](Draft& d) { d.scatter(4 * d.n), d.addDiagonal(1e-3); }},
    {"integers", 40, [](Draft& d) { d.scatter(4 * d.n, true), d.addDiagonal(1.0); }},
    {"no diagonal stored, wanted entries off the pattern", 50,
     [](Draft& d) {
       for (std::size_t i = 0; i < d.n; ++i) {
         d.A.addElement(i, (i + 1) % d.n, 2.0 + d.uniform());
         const std::size_t j = d.random() % d.n;
         if (j != i) d.A.addElement(i, j, d.uniform());
       }
     }},
    {"full, wider than a group", 230, [](Draft& d) { d.scatter(8 * d.n * d.n); }},
    // Row sums below 1e-12 make UMFPACK divide by them instead of multiplying with reciprocals.
    {"rows of very different size, blocks apart", 60,
     [](Draft& d) {
       for (std::size_t i = 0; i < d.n; ++i) {
         const double scale = std::ldexp(1.0, static_cast<int>(d.random() % 20) - 50);
         d.A.addElement(i, i, 3.0 * scale);
         d.A.addElement(i, i / 5 * 5, d.uniform() * scale);
       }
     }},
    {"grid of 15 columns, symmetric pattern", 300,
     [](Draft& d) {
       d.addDiagonal(4.0);
       for (std::size_t i = 0; i < d.n; ++i) {
         for (std::size_t j : {i + 1, i + 15}) {
           if (j >= d.n || (j == i + 1 && j % 15 == 0)) continue;
           d.A.addElement(i, j, d.uniform());
           d.A.addElement(j, i, d.uniform());
         }
       }
     }},
};

TEST(SelectedInverseTest, DiagonalMatchesTheDenseInverse) {
  std::mt19937 random(11);
  for (const auto& kind : kKinds) {
    int compared = 0;
    const int trials = kind.largest > 100 ? 3 : 60;
    for (int trial = 0; trial < trials; ++trial) {
      const std::size_t n = trial == 0 ? kind.largest : 1 + random() % kind.largest;
      Draft draft{n, random};
      kind.fill(draft);
      ProtoSparse& A = draft.A;
      if (trial % 5 == 4) A.makeDense();
      const DenseInverse expected = denseInverse(A);
      if (expected.condition > 1e9) continue;
      ++compared;
      const double tolerance = 1e-13 * expected.condition * expected.inverse.maxAbsVal();
      for (const auto route : {partialInverseLU, partialInverseLUSelected}) {
        ZtVector diagonal(n + 1);
        diagonal.data[n] = -7.0;
        route(A, diagonal);
        for (std::size_t i = 0; i < n; ++i) {
          ASSERT_NEAR(diagonal.data[i], expected.inverse(i, i), tolerance)
              << kind.name << ", trial " << trial << ", n " << n << ", entry " << i;
        }
        ASSERT_EQ(diagonal.data[n], -7.0) << kind.name;
      }
    }
    EXPECT_GT(compared, trials / 3) << kind.name << ": too few matrices are regular";
  }
}

// Without entries on the diagonal its positions belong to the pattern all the same, and the order
// keeps the pattern small.
TEST(SelectedInverseTest, TheDiagonalIsPartOfASmallPattern) {
  constexpr int n = 4000;
  ProtoSparse A(n, n);
  for (int i = 0; i + 1 < n; ++i) A.addElement(i, i + 1, 1.0 + i % 3), A.addElement(i + 1, i, 2.0);
  A.sortElements();
  std::vector<int> starts(n + 1), rows(A.nz());
  std::vector<double> values(A.nz());
  fillCompressedColumns(A, starts.data(), rows.data(), values.data());
  const auto factors = luFactors(n, n, starts.data(), rows.data(), values.data());
  const auto groups = korin::sparse::luGroups(factors);
  std::size_t entries = 0, missing = 0;
  for (int g = 0; g < groups.count(); ++g) {
    entries += static_cast<std::size_t>(groups.width(g)) *
               (groups.below[g].size() + groups.right[g].size());
  }
  for (int i = 0; i < n; ++i) {
    const int row = groups.position[factors.colPosition[i]];
    const int col = groups.position[factors.rowPosition[i]];
    const int g = groups.groupOf[std::min(row, col)], later = std::max(row, col);
    const auto beyond = row > col ? groups.right[g] : groups.below[g];
    missing +=
        later >= groups.first[g + 1] && !std::binary_search(beyond.begin(), beyond.end(), later);
  }
  EXPECT_EQ(missing, 0u);
  EXPECT_LT(entries, 40u * n);
}

TEST(SelectedInverseTest, NoInverseGivesNaNOnly) {
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  constexpr double inf = std::numeric_limits<double>::infinity();
  struct Case {
    const char* name;
    std::size_t rows, cols;
    std::vector<MatrixElement> elements;
  };
  const Case cases[] = {
      {"equal rows", 3, 3, {{0, 0, 1}, {0, 1, 2}, {1, 0, 1}, {1, 1, 2}, {2, 2, 5}}},
      {"empty row", 3, 3, {{0, 0, 1}, {0, 1, 2}, {2, 1, 1}, {2, 2, 2}}},
      {"no elements", 4, 4, {}},
      {"nothing at all", 0, 0, {}},
      {"no rows", 0, 3, {}},
      {"no columns", 3, 0, {}},
      {"lost in rounding", 2, 2, {{0, 0, 0.1}, {0, 1, 0.3}, {1, 0, 0.7}, {1, 1, 2.1}}},
      {"more rows", 4, 3, {{0, 0, 1}, {1, 1, 1}, {2, 2, 1}}},
      {"more columns", 3, 4, {{0, 0, 1}, {1, 1, 1}, {2, 2, 1}}},
      {"NaN", 2, 2, {{0, 0, 1}, {1, 1, nan}}},
      {"infinity", 2, 2, {{0, 0, 1}, {0, 1, inf}, {1, 1, 1}}},
      {"1 x 1 zero", 1, 1, {}},
      {"one row", 1, 3, {{0, 0, 1}}},
  };
  for (const Case& c : cases) {
    ProtoSparse A(c.rows, c.cols);
    for (const MatrixElement& e : c.elements) A.addElement(e.row, e.col, e.value);
    const std::size_t n = std::min(c.rows, c.cols);
    for (const auto route : {partialInverseLU, partialInverseLUSelected}) {
      ZtVector diagonal(n + 2);
      std::fill_n(diagonal.data, n + 2, 3.0);
      route(A, diagonal);
      for (std::size_t i = 0; i < n + 2; ++i) {
        EXPECT_EQ(diagonal.data[i] == 3.0, i >= n) << c.name << i;
        EXPECT_TRUE(i >= n || route == partialInverseLU || std::isnan(diagonal.data[i])) << c.name;
      }
    }
  }
}

}  // namespace
}  // namespace zeph_solver
