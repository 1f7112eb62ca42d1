#ifndef ZEPH_SPARSE_INVERSE_LU_SOLVE_H
#define ZEPH_SPARSE_INVERSE_LU_SOLVE_H

#include "sparse/pattern/lu_factors.h"

namespace korin::sparse {

/// A x = b from P R A Q = L U; n entries each, not overlapping. No refinement.
void luSolve(const LuFactors& factors, const double* b, double* x);

/// Aᵀ x = b.
void luSolveTransposed(const LuFactors& factors, const double* b, double* x);

}  // namespace korin::sparse

#endif
