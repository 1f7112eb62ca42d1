#include "solver/assembly/compressed_columns.h"

#include <algorithm>
#include <cmath>

namespace zeph_solver {

namespace {

// p, i, x = compressed columns of a column-major sorted triplet list. `setSize` can leave elements
// just outside the shape; they are not part of the matrix.
template <typename Index>
void fillFromTriplets(const std::vector<MatrixElement>& elements, std::size_t rows,
                      std::size_t cols, Index* p, Index* i, double* x) {
  Index count = 0;
  std::size_t open = 0;  // columns before this one have their start written
  std::int64_t lastRow = -1;
  for (const MatrixElement& e : elements) {
    if (e.row >= rows) continue;
    if (e.col >= open) {
      if (e.col >= cols) break;
      std::fill(p + open, p + e.col + 1, count);
      open = std::size_t{e.col} + 1;
      lastRow = -1;
    }
    if (e.row == lastRow) {
      x[count - 1] += e.value;
    } else {
      x[count] = e.value;
      i[count] = static_cast<Index>(e.row);
      ++count;
      lastRow = e.row;
    }
  }
  std::fill(p + open, p + cols + 1, count);
}

// p, i, x = compressed columns of the significant entries of a dense block
template <typename Index>
void fillFromBlock(const korin::Matrix& block, Index* p, Index* i, double* x) {
  if (block.cols < 1) return;
  Index count = 0;
  for (std::size_t c = 0; c < block.cols; ++c) {
    p[c] = count;
    for (std::size_t r = 0; r < block.rows; ++r) {
      const double value = block(r, c);
      if (!(std::fabs(value) > kDoubleEpsilon)) continue;
      x[count] = value;
      i[count] = static_cast<Index>(r);
      ++count;
    }
  }
  p[block.cols] = count;
}

}  // namespace

template <typename Index>
void fillCompressedColumns(const ProtoSparse& A, Index* colPointers, Index* rowIndices,
                           double* values) {
  if (A.denseBlock) {
    fillFromBlock(*A.denseBlock, colPointers, rowIndices, values);
  } else {
    fillFromTriplets(A.elements, static_cast<std::uint32_t>(A.rowCount),
                     static_cast<std::uint32_t>(A.colCount), colPointers, rowIndices, values);
  }
}

template void fillCompressedColumns(const ProtoSparse&, int*, int*, double*);
template void fillCompressedColumns(const ProtoSparse&, unsigned int*, unsigned int*, double*);

}  // namespace zeph_solver
