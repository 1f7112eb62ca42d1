#include "solver/selected_inverse.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <vector>

#include "solver/assembly/compressed_columns.h"
#include "solver/assembly/element_count.h"
#include "solver/suitesparse/lu_factors.h"
#include "sparse/inverse/lu_inverse.h"

namespace zeph_solver {
namespace {

korin::sparse::LuFactors factorsOf(const ProtoSparse& A) {
  requireWorkspace(A.colCount);
  A.sortElements();
  const std::size_t capacity = std::max<std::size_t>(requireCountable(A.nz()), 1);
  std::vector<int> colPointers(A.colCount + 1, 0);
  std::vector<int> rowIndices(capacity);
  std::vector<double> values(capacity);
  fillCompressedColumns(A, colPointers.data(), rowIndices.data(), values.data());
  return luFactors(static_cast<int>(A.rowCount), static_cast<int>(A.colCount), colPointers.data(),
                   rowIndices.data(), values.data());
}

}  // namespace

void partialInverseLUSelected(const ProtoSparse& A, ZtVector& diagonal) {
  const std::size_t n = std::min<std::size_t>(A.rowCount, A.colCount);
  if (n == 0) return;
  const korin::sparse::LuFactors factors =
      A.getInvalidIndex() == kNoIndex ? factorsOf(A) : korin::sparse::LuFactors();
  if (factors.invertible) {
    korin::sparse::luInverseDiagonal(factors, diagonal.data);
  } else {
    std::fill_n(diagonal.data, n, std::numeric_limits<double>::quiet_NaN());
  }
}

}  // namespace zeph_solver
