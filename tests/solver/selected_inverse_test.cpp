#include "solver/selected_inverse.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "solver/partial_inverse_lu.h"
#include "tests/solver/dense_inverse.h"

namespace zeph_solver {
namespace {

using Random = std::mt19937;

double uniform(Random& random) {
  return std::uniform_real_distribution<double>(-1, 1)(random);
}

void scatter(ProtoSparse& A, std::size_t count, Random& random,
             const std::function<double(Random&)>& value) {
  for (; count > 0; --count) {
    A.addElement(random() % A.rowCount, random() % A.colCount, value(random));
  }
}

void addDiagonal(ProtoSparse& A, double value) {
  for (std::size_t i = 0; i < A.rowCount; ++i) A.addElement(i, i, value);
}

// Upwind differences on a side x side grid: unsymmetric values on a symmetric pattern.
ProtoSparse convectionDiffusion(std::size_t side) {
  ProtoSparse A(side * side, side * side);
  for (std::size_t i = 0; i < side * side; ++i) {
    A.addElement(i, i, 4.1);
    if (i % side > 0) A.addElement(i, i - 1, -1.4);
    if (i % side + 1 < side) A.addElement(i, i + 1, -0.6);
    if (i >= side) A.addElement(i, i - side, -1.3);
    if (i + side < side * side) A.addElement(i, i + side, -0.7);
  }
  return A;
}

struct Kind {
  const char* name;
  std::size_t largest;
  std::function<ProtoSparse(std::size_t n, Random&)> make;
};

const Kind kKinds[] = {
    {"random, strong diagonal", 60,
     [](std::size_t n, Random& random) {
       ProtoSparse A(n, n);
       scatter(A, 3 * n, random, uniform);
       addDiagonal(A, 3.0);
       return A;
     }},
    {"random, weak diagonal, pivoting needed", 60,
     [](std::size_t n, Random& random) {
       ProtoSparse A(n, n);
       scatter(A, 4 * n, random, uniform);
       addDiagonal(A, 1e-3);
       return A;
     }},
    // Small integers: numbers cancel exactly, and UMFPACK then leaves holes in its factors.
    {"integers, cancelling", 40,
     [](std::size_t n, Random& random) {
       ProtoSparse A(n, n);
       scatter(A, 4 * n, random, [](Random& r) { return static_cast<double>(r() % 3) - 1.0; });
       addDiagonal(A, 1.0);
       return A;
     }},
    {"no diagonal stored, wanted entries off the pattern", 50,
     [](std::size_t n, Random& random) {
       ProtoSparse A(n, n);
       for (std::size_t i = 0; i < n; ++i) {
         A.addElement(i, (i + 1) % n, 2.0 + uniform(random));
         const std::size_t j = random() % n;
         if (j != i) A.addElement(i, j, uniform(random));
       }
       return A;
     }},
    {"constrained least squares", 60,
     [](std::size_t n, Random& random) {
       ProtoSparse A(n, n);
       const std::size_t free = n - n / 4;
       for (std::size_t i = 0; i < free; ++i) A.addElement(i, i, 1.5 + uniform(random));
       for (std::size_t i = free; i < n; ++i) {
         for (std::size_t j : {i - free, random() % free}) {
           const double v = uniform(random);
           A.addElement(i, j, v);
           A.addElement(j, i, v);
         }
       }
       return A;
     }},
    {"full, wider than a group", 230,
     [](std::size_t n, Random& random) {
       ProtoSparse A(n, n);
       scatter(A, 8 * n * n, random, uniform);
       return A;
     }},
    {"dense form", 30,
     [](std::size_t n, Random& random) {
       ProtoSparse A(n, n);
       scatter(A, 2 * n, random, uniform);
       addDiagonal(A, 2.0);
       A.makeDense();
       return A;
     }},
    {"rows of very different size, blocks apart", 60,
     [](std::size_t n, Random& random) {
       ProtoSparse A(n, n);
       for (std::size_t i = 0; i < n; ++i) {
         const double scale = std::ldexp(1.0, static_cast<int>(random() % 20));
         A.addElement(i, i, 3.0 * scale);
         A.addElement(i, i / 5 * 5, uniform(random) * scale);
       }
       return A;
     }},
    {"grid", 400,
     [](std::size_t n, Random&) {
       return convectionDiffusion(static_cast<std::size_t>(std::sqrt(static_cast<double>(n))));
     }},
};

TEST(SelectedInverseTest, DiagonalMatchesTheDenseInverse) {
  Random random(11);
  for (const Kind& kind : kKinds) {
    int compared = 0;
    const int trials = kind.largest > 100 ? 3 : 60;
    for (int trial = 0; trial < trials; ++trial) {
      const std::size_t n = trial == 0 ? kind.largest : 1 + random() % kind.largest;
      const ProtoSparse A = kind.make(n, random);
      const DenseInverse expected = denseInverse(A);
      if (expected.condition > 1e9) continue;
      ++compared;
      ZtVector diagonal(A.rowCount + 1);
      diagonal.data[A.rowCount] = -7.0;
      partialInverseLUSelected(A, diagonal);
      double largest = 0.0;
      for (double d : expected.diagonal) largest = std::max(largest, std::fabs(d));
      for (std::size_t i = 0; i < A.rowCount; ++i) {
        ASSERT_NEAR(diagonal.data[i], expected.diagonal[i], 1e-13 * expected.condition * largest)
            << kind.name << ", trial " << trial << ", n " << A.rowCount << ", entry " << i;
      }
      ASSERT_EQ(diagonal.data[A.rowCount], -7.0) << kind.name;
    }
    EXPECT_GT(compared, trials / 3) << kind.name << ": too few matrices are regular";
  }
}

TEST(SelectedInverseTest, AgreesWithSolvesOnAGrid) {
  const ProtoSparse A = convectionDiffusion(25);
  ZtVector selected(A.rowCount), solved(A.rowCount);
  partialInverseLUSelected(A, selected);
  partialInverseLU(A, solved);
  for (std::size_t i = 0; i < A.rowCount; ++i) {
    ASSERT_NEAR(selected.data[i] / solved.data[i], 1.0, 1e-12) << i;
  }
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
    ZtVector diagonal(n + 2);
    std::fill_n(diagonal.data, n + 2, 3.0);
    partialInverseLUSelected(A, diagonal);
    for (std::size_t i = 0; i < n; ++i) EXPECT_TRUE(std::isnan(diagonal.data[i])) << c.name << i;
    EXPECT_EQ(diagonal.data[n], 3.0) << c.name;
    EXPECT_EQ(diagonal.data[n + 1], 3.0) << c.name;
  }
}

}  // namespace
}  // namespace zeph_solver
