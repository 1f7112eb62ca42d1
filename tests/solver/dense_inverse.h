// Reference for the partial inverses: the dense inverse in long double.
#ifndef ZEPH_TESTS_SOLVER_DENSE_INVERSE_H
#define ZEPH_TESTS_SOLVER_DENSE_INVERSE_H

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "math/dense/korin_matrix.h"
#include "solver/assembly/protosparse.h"
#include "tests/zeph/factor/dense_truth.h"

namespace zeph_solver {

struct DenseInverse {
  korin::Matrix inverse;
  double condition = HUGE_VAL;  // order times the largest entries of both; infinite if singular
};

inline DenseInverse denseInverse(const ProtoSparse& A) {
  const auto n = static_cast<unsigned>(A.rowCount);
  korin::Matrix a(n, n), inverse(n, n);
  A.toDenseMatrix(a, false);
  zeph::SparseMatrix entries;
  entries.rows = entries.cols = n;
  for (unsigned k = 0; k < n * n; ++k) entries.entries.push_back({k / n, k % n, *a.flatRow(k)});
  const DenseTruth truth(entries);
  if (!std::isfinite(truth.logAbs)) return {};
  for (unsigned k = 0; k < n * n; ++k) *inverse.flatRow(k) = static_cast<double>(truth.inverse[k]);
  return {inverse, n * a.maxAbsVal() * inverse.maxAbsVal()};
}

}  // namespace zeph_solver

#endif  // ZEPH_TESTS_SOLVER_DENSE_INVERSE_H
