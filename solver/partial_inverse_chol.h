// Sparse Cholesky factor, and the diagonal of the inverse from it.
#ifndef ZEPH_SOLVER_PARTIAL_INVERSE_CHOL_H
#define ZEPH_SOLVER_PARTIAL_INVERSE_CHOL_H

#include "solver/assembly/protosparse.h"
#include "solver/zeph_export.h"

namespace zeph_solver {

/// Sparse lower Cholesky factor: L L^T = P A P^T.
///
/// @param A     symmetric positive definite, n x n; only the upper triangle is read. Its elements
///              are sorted.
/// @param L     resized to n x n, receives the factor's entries sorted column-major. Elements it
///              held before are not cleared.
/// @param perm  null: P = I, the factor of A in its own order. Otherwise n entries; receives a
///              fill-reducing permutation, row k of P A P^T being row perm[k] of A.
///
/// A matrix that is not positive definite is not reported: the columns from the first bad pivot on
/// are missing from L. Throws ZtException (256, "... Failed to do cholmod_solve, cmX = nullptr")
/// when there is no factor at all, for example of a rectangular matrix.
ZEPH_EXPORT void choleskyFactor(const ProtoSparse& A, ProtoSparse& L, unsigned int* perm);

/// diagonal[j] = (A^-1)(j, j), by Cholesky factorisation and selected inversion.
///
/// @param A         as for `choleskyFactor`.
/// @param diagonal  must hold n entries; neither resized nor checked, a surplus stays unchanged.
///
/// A matrix that is not positive definite gives infinities and NaN. Throws as `choleskyFactor`,
/// leaving the diagonal unchanged. Time: ordering and factorisation, and up to twice the
/// factorisation's operations; memory: the factor and about a panel of its largest supernode.
ZEPH_EXPORT void partialInverseChol(const ProtoSparse& A, ZtVector& diagonal);

}  // namespace zeph_solver

#endif
