// Conversion of a ProtoSparse, or parts of it, to dense matrices and vectors.
#include <algorithm>

#include "math/dense/korin_vector.h"
#include "solver/assembly/protosparse.h"

namespace zeph_solver {

namespace {

void resizeUnset(ZtMatrix& m, std::size_t rows, std::size_t cols) {
  ZtMatrix_assign(&m, rows, cols, cols, nullptr, 0);
}

// target += the elements, (r, c) of the list landing on (rowOffset + r, colOffset + c), or with the
// indices exchanged. `setSize` can leave elements just outside the shape: what misses m is skipped.
void addElements(const std::vector<MatrixElement>& elements, ZtMatrix& m, bool transpose,
                 std::size_t rowOffset, std::size_t colOffset) {
  for (const MatrixElement& e : elements) {
    const std::size_t r = rowOffset + (transpose ? e.col : e.row);
    const std::size_t c = colOffset + (transpose ? e.row : e.col);
    if (r < m.rows && c < m.cols) m.data[r * m.stride + c] += e.value;
  }
}

void overwriteWindow(ZtMatrix& m, const korin::Matrix& block, bool transpose, std::size_t rowOffset,
                     std::size_t colOffset) {
  if (transpose) {
    korin::Matrix window(block.cols, block.rows, m, rowOffset, colOffset);
    window.setTransposeOf(block);
    return;
  }
  for (std::size_t r = 0; r < block.rows; ++r) {
    const double* row = block.data + r * block.stride;
    std::copy_n(row, block.cols, m.data + (rowOffset + r) * m.stride + colOffset);
  }
}

}  // namespace

void ProtoSparse::toDenseMatrix(ZtMatrix& m, bool transpose) const {
  toDenseMatrix(m, transpose, 0, 0, true);
}

void ProtoSparse::toDenseMatrix(ZtMatrix& m, bool transpose, std::size_t rowOffset,
                                std::size_t colOffset, bool resize) const {
  if (resize) {
    resizeUnset(m, rowOffset + (transpose ? colCount : rowCount),
                colOffset + (transpose ? rowCount : colCount));
    // A block without offsets overwrites every entry.
    if (!denseBlock || rowOffset != 0 || colOffset != 0) ZtMatrix_setZero(&m);
  }
  if (denseBlock) {
    overwriteWindow(m, *denseBlock, transpose, rowOffset, colOffset);
  } else {
    addElements(elements, m, transpose, rowOffset, colOffset);
  }
}

void ProtoSparse::toDenseVector(ZtVector& v) const {
  ZtVector_assign(&v, rowCount * colCount, denseBlock->data);
}

void ProtoSparse::toDenseVectorSub(ZtVector& v, unsigned int first, unsigned int count) const {
  ZtVector_assign(&v, count, denseBlock->data + first);
}

void ProtoSparse::getDenseColumn(unsigned int index, ZtVector& v, bool transpose) const {
  ZtVector_assign(&v, transpose ? colCount : rowCount, nullptr);
  if (denseBlock) {
    korin::Vector target(v.size, v, 0);
    if (transpose) {
      target.setMatRow(*denseBlock, index);
    } else {
      target.setMatCol(*denseBlock, index);
    }
    return;
  }
  ZtVector_setZero(&v);
  for (const MatrixElement& e : elements) {
    const std::uint32_t line = transpose ? e.row : e.col;
    const std::uint32_t place = transpose ? e.col : e.row;
    if (line == index && place < v.size) v.data[place] += e.value;
  }
}

}  // namespace zeph_solver
