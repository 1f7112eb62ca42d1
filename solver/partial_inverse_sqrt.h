// Diagonal of the inverse of an information matrix given by a dense square-root factor.
#ifndef ZEPH_SOLVER_PARTIAL_INVERSE_SQRT_H
#define ZEPH_SOLVER_PARTIAL_INVERSE_SQRT_H

#include "solver/zeph_export.h"
#include "types/zttypes.h"

namespace zeph_solver {

/// Diagonal of (S^T S)^-1 for a dense upper-triangular square-root factor S, as a QR or Cholesky
/// step makes it: diagonal[i] = (S^T S)^-1(i, i) for i < diagonal.size.
///
/// @param S         square; nothing below its diagonal is read. A factor that is not square gives
///                  NaN everywhere.
/// @param diagonal  at most S.cols entries, not checked, not resized. It may be empty.
///
/// A zero on S's diagonal is not checked and gives infinities or NaN, in later entries too. Throws
/// std::bad_alloc. Cost: two triangular solves of order S.cols an entry.
ZEPH_EXPORT void partialInverseSqrt(const ZtMatrix& S, ZtVector& diagonal);

}  // namespace zeph_solver

#endif  // ZEPH_SOLVER_PARTIAL_INVERSE_SQRT_H
