#ifndef ZEPH_MATRIX_TO_DENSE_H
#define ZEPH_MATRIX_TO_DENSE_H

#include "zeph/dense_matrix.h"
#include "zeph/sparse_matrix.h"

namespace zeph {

/// All entries of m, symmetric forms completed, duplicates summed.
/// Throws Error(Memory) where rows x cols does not fit into memory.
DenseMatrix toDense(const SparseMatrix& m);

}  // namespace zeph

#endif
