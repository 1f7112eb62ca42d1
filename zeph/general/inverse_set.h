#ifndef ZEPH_GENERAL_INVERSE_SET_H
#define ZEPH_GENERAL_INVERSE_SET_H

#include "zeph/checks/progress.h"
#include "zeph/sparse_matrix.h"

namespace zeph {

/// Symbolic set of an LDLᵀ-based partial inversion of A: the positions (row <= column) of A⁻¹ that
/// it has to compute. The values are markers that are not zero. A's lower triangle is used.
SparseMatrix inverseSet(SparseMatrix A, const Progress& progress = Progress());

}  // namespace zeph

#endif
