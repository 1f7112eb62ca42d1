#ifndef ZEPH_MATRIX_MULTIPLY_H
#define ZEPH_MATRIX_MULTIPLY_H

#include "zeph/checks/progress.h"
#include "zeph/dense_matrix.h"
#include "zeph/sparse_matrix.h"

namespace zeph {

/// C = A B for sparse A and dense B. Throws Error(Unfit) when the inner dimensions differ.
DenseMatrix multiply(SparseMatrix A, const DenseMatrix& B, const Progress& progress = Progress());

}  // namespace zeph

#endif
