#include "sparse/inverse/lu_inverse.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "sparse/inverse/lu_solve.h"

namespace korin::sparse {
namespace {

// Factors of any pattern: closing it under elimination is left to the inverse. Pivots have a long
// or a short column of L, and a long or a short row of U.
struct RandomFactors {
  int n;
  std::vector<double> lu;  // row-major: L below the diagonal, U on it and above
  LuFactors factors;

  RandomFactors(int order, unsigned shareLong, std::mt19937& random) : n(order), lu(n * n, 0.0) {
    std::uniform_real_distribution<double> uniform(-1.0, 1.0);
    factors.n = n;
    factors.diagonal.resize(n);
    factors.rowScale.resize(n);
    factors.rowPosition.resize(n);
    std::iota(factors.rowPosition.begin(), factors.rowPosition.end(), 0);
    factors.colPosition = factors.rowPosition;
    // Close to the diagonal, so that most of the wanted entries lie on the pattern.
    for (int k = 0; k + 1 < n; ++k) {
      if (random() % 4 == 0) std::swap(factors.rowPosition[k], factors.rowPosition[k + 1]);
    }
    for (int k = 0; k < n; ++k) {
      factors.diagonal[k] = lu[k * n + k] = 1.5 + 0.5 * uniform(random);
      factors.rowScale[k] = 2.0 + uniform(random);
      const unsigned column = random() % 100 < shareLong ? 80 : 2;
      const unsigned row = random() % 100 < shareLong ? 80 : 2;
      for (int i = k + 1; i < n; ++i) {
        if (random() % 100 < column) lu[i * n + k] = uniform(random) / std::sqrt(n);
        if (random() % 100 < row) lu[k * n + i] = uniform(random) / std::sqrt(n);
      }
    }
    compress(factors.lower, n, 1);
    compress(factors.upper, 1, n);
  }

  void compress(Columns& lines, int along, int across) {
    lines.rows = lines.cols = n;
    for (int k = 0; k < n; ++k) {
      for (int i = k + 1; i < n; ++i) {
        const double value = lu[i * along + k * across];
        if (value == 0.0) continue;
        lines.row.push_back(i);
        lines.value.push_back(value);
      }
      lines.start.push_back(static_cast<Offset>(lines.row.size()));
    }
  }

  // x = (L U)^-1 e(col)
  std::vector<double> solveUnit(int col) const {
    std::vector<double> x(n, 0.0);
    x[col] = 1.0;
    for (int i = col; i < n; ++i) {
      for (int k = col; k < i; ++k) x[i] -= lu[i * n + k] * x[k];
    }
    for (int i = n - 1; i >= 0; --i) {
      for (int k = i + 1; k < n; ++k) x[i] -= lu[i * n + k] * x[k];
      x[i] /= lu[i * n + i];
    }
    return x;
  }
};

TEST(LuInverseTest, DiagonalAndSolutionsOfAnyPatternMatchDenseSolves) {
  std::mt19937 random(5);
  for (int trial = 0; trial < 60; ++trial) {
    // The first are wider than a group and longer than a strip of columns.
    const int n = trial < 2 ? 320 : 1 + static_cast<int>(random() % 150);
    const unsigned shareLong = trial == 0 ? 100 : trial % 5 * 20;
    const RandomFactors f(n, shareLong, random);
    std::vector<double> diagonal(n);
    luInverseDiagonal(f.factors, diagonal.data());
    std::vector<double> weights(n), transposed(n), x(n);
    for (double& w : weights) w = static_cast<double>(random() % 9);
    luSolveTransposed(f.factors, weights.data(), transposed.data());
    for (int i = 0; i < n; ++i) {
      SCOPED_TRACE("trial " + std::to_string(trial) + ", n " + std::to_string(n) + ", entry " +
                   std::to_string(i) + ", % long: " + std::to_string(shareLong));
      std::vector<double> unit(n, 0.0);
      unit[i] = 1.0;
      luSolve(f.factors, unit.data(), x.data());
      const std::vector<double> z = f.solveUnit(f.factors.rowPosition[i]);
      double sum = 0.0;
      for (int j = 0; j < n; ++j) {
        ASSERT_NEAR(x[j], z[f.factors.colPosition[j]] * f.factors.rowScale[i], 1e-11);
        sum += weights[j] * x[j];
      }
      ASSERT_NEAR(diagonal[i], x[i], 1e-11);
      ASSERT_NEAR(transposed[i], sum, 1e-9);
    }
  }
}

}  // namespace
}  // namespace korin::sparse
