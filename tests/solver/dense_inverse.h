// Reference for the partial inverses: the inverse by Gauss-Jordan elimination in long double.
#ifndef ZEPH_TESTS_SOLVER_DENSE_INVERSE_H
#define ZEPH_TESTS_SOLVER_DENSE_INVERSE_H

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "math/korin_matrix.h"
#include "solver/protosparse.h"

namespace zeph_solver {

struct DenseInverse {
  std::vector<double> diagonal;
  double condition = 0.0;  // in the largest-row-sum norm; infinite for a singular matrix
};

inline DenseInverse denseInverse(const ProtoSparse& A) {
  const std::size_t n = A.rowCount;
  using Row = std::vector<long double>;
  std::vector<Row> a(n, Row(2 * n, 0.0L));
  for (std::size_t i = 0; i < n; ++i) {
    a[i][n + i] = 1.0L;
    for (std::size_t j = 0; A.isDense() && j < n; ++j) a[i][j] = (*A.denseBlock)(i, j);
  }
  if (!A.isDense()) {
    for (const MatrixElement& e : A.elements) a[e.row][e.col] += e.value;
  }
  const auto norm = [&](std::size_t first) {
    long double largest = 0.0L;
    for (const Row& row : a) {
      long double sum = 0.0L;
      for (std::size_t j = 0; j < n; ++j) sum += std::fabs(row[first + j]);
      largest = std::max(largest, sum);
    }
    return largest;
  };
  DenseInverse result;
  const long double size = norm(0);
  for (std::size_t k = 0; k < n; ++k) {
    std::size_t pivot = k;
    for (std::size_t i = k; i < n; ++i) {
      if (std::fabs(a[i][k]) > std::fabs(a[pivot][k])) pivot = i;
    }
    std::swap(a[k], a[pivot]);
    const long double divisor = a[k][k];
    if (divisor == 0.0L) return {std::vector<double>(n, NAN), HUGE_VAL};
    for (long double& v : a[k]) v /= divisor;
    for (std::size_t i = 0; i < n; ++i) {
      if (i == k || a[i][k] == 0.0L) continue;
      const long double factor = a[i][k];
      for (std::size_t j = k; j < 2 * n; ++j) a[i][j] -= factor * a[k][j];
    }
  }
  for (std::size_t i = 0; i < n; ++i) result.diagonal.push_back(static_cast<double>(a[i][n + i]));
  result.condition = static_cast<double>(size * norm(n));
  return result;
}

}  // namespace zeph_solver

#endif  // ZEPH_TESTS_SOLVER_DENSE_INVERSE_H
