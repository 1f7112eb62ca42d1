#include "solver/partial_inverse_lu.h"

#include <algorithm>

#include "solver/partial_inverse_chol.h"
#include "solver/solver.h"

namespace zeph_solver {
namespace {

ZtVector zeroVector(ZtSize size) {
  ZtVector v;
  if (size > 0) {
    ZtVector_assign(&v, size, nullptr);
    ZtVector_setZero(&v);
  }
  return v;
}

}  // namespace

void partialInverse(const ProtoSparse& A, bool useCholesky, ZtVector& diagonal) {
  if (useCholesky) {
    partialInverseChol(A, diagonal);
  } else {
    partialInverseLU(A, diagonal);
  }
}

void partialInverseLU(const ProtoSparse& A, ZtVector& diagonal) {
  Solver solver(Solver::kNestedDissection);
  Factorisation factorisation(&solver);
  ZtVector x = zeroVector(A.colCount);
  ZtVector b = zeroVector(A.rowCount);
  const ZtSize n = std::min(x.size, b.size);
  for (ZtSize i = 0; i < n; ++i) {
    b.data[i] = 1.0;
    solver.solveGeneric(A, x, b, /*useCholesky=*/false, &factorisation, /*refactorise=*/i == 0);
    diagonal.data[i] = x.data[i];
    b.data[i] = 0.0;
  }
}

}  // namespace zeph_solver
