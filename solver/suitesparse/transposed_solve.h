#ifndef ZEPH_SOLVER_SUITESPARSE_TRANSPOSED_SOLVE_H
#define ZEPH_SOLVER_SUITESPARSE_TRANSPOSED_SOLVE_H

#include "solver/solver.h"

namespace zeph_solver {

/// Solves Aᵀ x = b with a factorisation made on the LU route; n entries each, not overlapping.
/// x is all NaN where there are no factors. For the floors above this one: not exported.
void solveTransposedLU(const Factorisation& f, const double* b, double* x);

}  // namespace zeph_solver

#endif
