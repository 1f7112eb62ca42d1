#ifndef ZEPH_SOLVER_ASSEMBLY_MATRIX_VIEWS_H
#define ZEPH_SOLVER_ASSEMBLY_MATRIX_VIEWS_H

#include <cstddef>
#include <functional>

#include "math/dense/korin_matrix.h"

namespace zeph_solver {

/// View on rows x cols elements of the caller's, rows `stride` apart. Made over const storage it
/// must only be read.
inline korin::Matrix viewOf(std::size_t rows, std::size_t cols, std::size_t stride,
                            const ZtReal* data) {
  return korin::Matrix(rows, cols, stride, const_cast<ZtReal*>(data), kZtView);
}

/// Whether the memory from the first to the last element of a and that of b overlap.
inline bool sharesMemory(const ZtMatrix& a, const ZtMatrix& b) {
  if (a.rows == 0 || b.rows == 0 || a.cols == 0 || b.cols == 0) return false;
  const std::less<const ZtReal*> before;
  const ZtReal* aLast = a.data + (a.rows - 1) * a.stride + (a.cols - 1);
  const ZtReal* bLast = b.data + (b.rows - 1) * b.stride + (b.cols - 1);
  return !before(aLast, b.data) && !before(bLast, a.data);
}

}  // namespace zeph_solver

#endif
