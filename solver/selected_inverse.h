// Diagonal of the inverse of a general sparse matrix at the price of its factorisation.
#ifndef ZEPH_SOLVER_SELECTED_INVERSE_H
#define ZEPH_SOLVER_SELECTED_INVERSE_H

#include "solver/assembly/protosparse.h"
#include "solver/zeph_export.h"

namespace zeph_solver {

/// Diagonal of A^-1 from one LU factorisation, without a solve per entry: diagonal[i] = A^-1(i, i).
///
/// The factors P R A Q = L U come from UMFPACK; the recurrence of Erisman and Tinney (1975), run on
/// groups of pivots with the same pattern, then gives the entries of the inverse on the transposed
/// pattern of L + U. A diagonal entry that A does not store counts as a stored zero, so that the
/// whole diagonal of the inverse is among them.
///
/// @param A         square; read as it stands (both triangles). Triplets are sorted in place and
///                  duplicates summed.
/// @param diagonal  at least n = min(rows, columns) entries, not checked, not resized; entries
///                  beyond n stay as they are, and nothing is written for n = 0.
///
/// All n entries are NaN when there is no inverse to speak of: A is not square, holds a value that
/// is not finite, cannot be factorised, or is singular - a pivot is zero, or smaller than the
/// rounding error made in computing it. Matrices that are merely ill-conditioned are not detected.
/// Throws std::bad_alloc, and std::length_error for more than 2^31 - 1 elements.
///
/// Cost: the factorisation and about twice its operations again (partialInverseLU makes n solves);
/// memory: the factors twice, with the positions that the recurrence adds to them.
ZEPH_EXPORT void partialInverseLUSelected(const ProtoSparse& A, ZtVector& diagonal);

}  // namespace zeph_solver

#endif  // ZEPH_SOLVER_SELECTED_INVERSE_H
