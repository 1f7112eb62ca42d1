#ifndef ZEPH_OPERATIONS_H
#define ZEPH_OPERATIONS_H

#include <cstdint>
#include <string>
#include <vector>

#include "zeph/dense_matrix.h"
#include "zeph/progress.h"
#include "zeph/sparse_matrix.h"

namespace zeph {

struct CholeskyFactor {
  SparseMatrix L;                   ///< lower triangular, compressed order
  std::vector<std::uint32_t> perm;  ///< L Lᵀ = A(perm, perm), zero-based; empty in A's own order
};

/// Sparse Cholesky factor of a symmetric positive definite A: in a fill-reducing order with
/// reorder, in A's own order without.
/// Throws Error(Unfit) when A is not square, symmetric and finite, Error(NotPositiveDefinite).
CholeskyFactor factor(SparseMatrix A, bool reorder, const Progress& progress = Progress());

/// Writes L, and where permPath is not empty the permutation, one zero-based index a line: both
/// files or neither.
void writeFactor(const std::string& path, const std::string& permPath, CholeskyFactor factor);

/// Symbolic set of an LDLᵀ-based partial inversion of A: the positions (row <= column) of A⁻¹ that
/// it has to compute. The values are markers that are not zero. A's lower triangle is used.
SparseMatrix inverseSet(SparseMatrix A, const Progress& progress = Progress());

/// C = A B for sparse A and dense B. Throws Error(Unfit) when the inner dimensions differ.
DenseMatrix multiply(SparseMatrix A, const DenseMatrix& B, const Progress& progress = Progress());

/// Writes a matrix as a MATLAB level-5 MAT-file holding one variable of that name: full, or sparse
/// with symmetric forms completed and duplicates summed.
/// Throws Error(Usage) when the name is not a letter followed by at most 62 letters, digits and
/// underscores, Error(Unfit) when the matrix exceeds the form's 2³²-1 bytes.
void exportMat(const std::string& path, const DenseMatrix& m, const std::string& variable);
void exportMat(const std::string& path, SparseMatrix m, const std::string& variable);

}  // namespace zeph

#endif
