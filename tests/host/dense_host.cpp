// Uses the dense library, the containers and the selected inverse through the static library alone.
#include <cmath>
#include <cstdio>

#include "math/korin.h"

int main() {
  const double entries[] = {4.0, 2.0, 2.0, 3.0};
  const korin::Matrix a(2, 2, entries);
  korin::Matrix square(2, 2);
  square.setMatMulTransMat(a, a);
  korin::SparseMatrix sparse(2, 2, true, true, nullptr);
  sparse.setValue(1, 0, square(1, 0));

  // The Cholesky factor of a, and from it the inverse: (0.375, -0.25; -0.25, 0.5).
  double values[] = {2.0, 1.0, std::sqrt(2.0)};
  unsigned int rows[] = {0, 1, 1}, starts[] = {0, 2, 3}, perm[] = {0, 1};
  const korin::SparseMxMatrix<unsigned int, double> factor(2, 2, 3, values, rows, starts, false);
  korin::SparseMxMatrix<unsigned int, double> inverse(2, 2, 3);
  factor.partialInverseCholesky(inverse, perm);

  const bool fine = sparse.getValue(1, 0) == 14.0 && std::fabs(inverse.values[1] + 0.25) < 1e-15;
  std::puts(fine ? "dense host: all fine" : "FAILED");
  return fine ? 0 : 1;
}
