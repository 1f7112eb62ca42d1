#ifndef ZEPH_FACTOR_LOWER_FACTOR_H
#define ZEPH_FACTOR_LOWER_FACTOR_H

#include <cstdint>
#include <string>
#include <vector>

#include "zeph/options.h"
#include "zeph/sparse_matrix.h"

namespace zeph {

struct CholeskyFactor {
  SparseMatrix L;                   ///< lower triangular, sorted by column, then row
  std::vector<std::uint32_t> perm;  ///< L Lᵀ = A(perm, perm), zero-based; empty in A's own order
};

/// Sparse Cholesky factor of a symmetric positive definite A in the order of `options`; for
/// Ordering::Natural without a permutation. The route in `options` is not looked at.
/// Throws Error(Unfit) when A is not square, symmetric and finite, Error(NotPositiveDefinite).
CholeskyFactor lowerFactor(const SparseMatrix& A, const Options& options);

/// Writes L, and where permPath is not empty the permutation, one zero-based index a line: both
/// files or neither.
void writeFactor(const std::string& path, const std::string& permPath, CholeskyFactor factor);

}  // namespace zeph

#endif
