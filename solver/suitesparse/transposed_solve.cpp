#include "solver/suitesparse/transposed_solve.h"

#include <umfpack.h>

#include <algorithm>
#include <limits>

namespace zeph_solver {

void solveTransposedLU(const Factorisation& f, const double* b, double* x) {
  std::fill_n(x, f.rows, std::numeric_limits<double>::quiet_NaN());
  if (f.numeric == nullptr) return;
  umfpack_di_solve(UMFPACK_At, f.colPointers, f.rowIndices, f.values, x, b, f.numeric, nullptr,
                   nullptr);
}

}  // namespace zeph_solver
