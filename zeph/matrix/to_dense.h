#ifndef ZEPH_MATRIX_TO_DENSE_H
#define ZEPH_MATRIX_TO_DENSE_H

#include "zeph/dense_matrix.h"
#include "zeph/sparse_matrix.h"

namespace zeph {

/// All entries of m, symmetric forms completed, duplicates summed.
/// Throws Error(Memory) where rows x cols is more than memoryLimit bytes, or than there are.
DenseMatrix toDense(const SparseMatrix& m, double memoryLimit = 0.0);

}  // namespace zeph

#endif
