// Reference for the partial inverses: the dense inverse by Gauss-Jordan elimination with pivoting.
#ifndef ZEPH_TESTS_SOLVER_DENSE_INVERSE_H
#define ZEPH_TESTS_SOLVER_DENSE_INVERSE_H

#include <cmath>

#include "math/dense/korin_matrix.h"
#include "solver/assembly/protosparse.h"

namespace zeph_solver {

struct DenseInverse {
  korin::Matrix inverse;
  double condition = HUGE_VAL;  // order times the largest entries of both; infinite if singular
};

inline DenseInverse denseInverse(const ProtoSparse& A) {
  const std::size_t n = A.rowCount;
  korin::Matrix a(n, n), work(n, 2 * n);
  A.toDenseMatrix(a, false);
  work.setIdentity(0.0);
  work.setSub_mat(a, 0, 0);
  work.setSub_identity(0, n, n, n);
  for (std::size_t k = 0; k < n; ++k) {
    std::size_t pivot = k;
    for (std::size_t i = k; i < n; ++i) {
      if (std::fabs(work(i, k)) > std::fabs(work(pivot, k))) pivot = i;
    }
    if (work(pivot, k) == 0.0) return {};
    work.swapRows(k, pivot, 1, 0);
    const double divisor = work(k, k);
    for (std::size_t j = k; j < 2 * n; ++j) work(k, j) /= divisor;
    for (std::size_t i = 0; i < n; ++i) {
      if (i != k) work.setRow_rowAddScaMulRow(i, -work(i, k), k);
    }
  }
  const korin::Matrix inverse(n, n, work, 0, n);  // a view; the result is a copy
  return {inverse, static_cast<double>(n) * a.maxAbsVal() * inverse.maxAbsVal()};
}

}  // namespace zeph_solver

#endif  // ZEPH_TESTS_SOLVER_DENSE_INVERSE_H
