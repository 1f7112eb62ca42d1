#ifndef ZEPH_SPARSE_INVERSE_SIMPLICIAL_INVERSE_H
#define ZEPH_SPARSE_INVERSE_SIMPLICIAL_INVERSE_H

#include "sparse/pattern/columns.h"

namespace korin::sparse {

/// Entries of (L L^T)^-1 on the pattern of L, column by column (Takahashi, Fagan and Chin, 1973).
///
/// @param factor   L, n x n, rows ascending in every column, any pattern; what lies outside the
///                 pattern counts as 0.
/// @param inverse  as many values as L has entries, laid out like them.
///
/// A zero or missing diagonal entry gives infinities and NaN. Throws std::bad_alloc.
/// Cost: the sum of the squared column lengths of L; for factors of very short columns. Needs
/// n doubles and one index an entry.
void simplicialInverse(const ColumnsView& factor, double* inverse);

/// Estimated time of `simplicialInverse` in nanoseconds, on the scale of the panels' estimate.
double estimatedTime(const ColumnsView& factor);

}  // namespace korin::sparse

#endif
