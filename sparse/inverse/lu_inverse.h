#ifndef ZEPH_SPARSE_INVERSE_LU_INVERSE_H
#define ZEPH_SPARSE_INVERSE_LU_INVERSE_H

#include <functional>

#include "sparse/pattern/lu_factors.h"

namespace korin::sparse {

/// Diagonal of the inverse of a square matrix from its LU factors, d[i] = (A^-1)(i, i).
///
/// With Z = (L U)^-1 and the pivots of one group gathered in the first block row and column,
///
///   Y = L21 L11^-1,   X = U11^-1 U12,
///   Z21 = -Z22 Y,     Z12 = -X Z22,     Z11 = U11^-1 L11^-1 - X Z21,
///
/// where only rows of Z22 in U12's pattern and columns in L21's are needed. They are known when the
/// groups are taken from the last to the first: Z is wanted on the transposed pattern of L+U only
/// (Erisman and Tinney 1975), to which the groups add what the diagonal of A^-1 lacks there.
///
/// @param factors    factors of an invertible matrix (factors.invertible)
/// @param diagonal   n entries, written
/// @param room       where given, called with the bytes of memory that lists hold and that are
/// taken
///                   next; may throw
/// Cost: about twice the factorisation's operations. Memory: the closed pattern of the factors in
/// doubles, with the zeros that groups store, and a strip of the gathered block of one group.
/// Throws std::bad_alloc and what `room` throws.
void luInverseDiagonal(const LuFactors& factors, double* diagonal,
                       const std::function<void(double held, double more)>& room = {});

}  // namespace korin::sparse

#endif
