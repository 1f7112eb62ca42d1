// Diagonal of the inverse of a sparse matrix: the entry point, and the route by repeated LU solves.
#ifndef ZEPH_SOLVER_PARTIAL_INVERSE_LU_H
#define ZEPH_SOLVER_PARTIAL_INVERSE_LU_H

#include "solver/assembly/protosparse.h"
#include "solver/zeph_export.h"

namespace zeph_solver {

/// Diagonal of A^-1 (the variances, when A is an information matrix): partialInverseChol for
/// useCholesky, which needs a symmetric positive-definite A, otherwise partialInverseLU. Nothing is
/// checked, and no route falls back to the other.
ZEPH_EXPORT void partialInverse(const ProtoSparse& A, bool useCholesky, ZtVector& diagonal);

/// Diagonal of A^-1 for any non-singular A, by one LU factorisation and a solve per unit vector:
/// diagonal[i] = A^-1(i, i) for i < n = min(rows, columns).
///
/// @param A         square. Its triplets are sorted in place.
/// @param diagonal  at least n entries, not checked, not resized; entries beyond n stay, and
///                  nothing is written for n = 0.
///
/// A singular matrix is not detected: what UMFPACK makes of it is copied out. Where UMFPACK can
/// solve nothing at all, as for a matrix that is not square, the entries are NaN. What the solver
/// throws passes through, with the entries before the failure written.
///
/// Cost: n full solves, however sparse A is. partialInverseLUSelected gives the same values at the
/// price of the factorisation.
ZEPH_EXPORT void partialInverseLU(const ProtoSparse& A, ZtVector& diagonal);

}  // namespace zeph_solver

#endif  // ZEPH_SOLVER_PARTIAL_INVERSE_LU_H
