#ifndef ZEPH_FACTOR_DESIGN_H
#define ZEPH_FACTOR_DESIGN_H

#include "sparse/pattern/columns.h"
#include "zeph/sparse_matrix.h"

namespace zeph {

/// Throws Error(Unfit) unless J is a design matrix: general, finite, with indices in range.
void requireDesign(const SparseMatrix& J);

/// J in compressed columns, or its transpose (J by rows), duplicates added up.
korin::sparse::Columns compressed(const SparseMatrix& J, bool transposed);

}  // namespace zeph

#endif
