// Transposition, triangles, diagonals and blocks of korin::Matrix.
#include "kernels/tiles/transpose.h"
#include "math/dense/korin_matrix.h"
#include "math/dense/korin_rows.h"
#include "math/dense/zt_error.h"

namespace korin {

namespace {

void transposeInto(ZtMatrix& target, const ZtMatrix& a) {
  kernels::transpose(target.cols, target.rows, a.data, step(a), target.data, step(target));
}

// Exchanges (i, j) and (j, i) for i < j of a square matrix, by pairs of tiles.
void transposeInPlace(ZtMatrix& m) {
  forEachTile(m.rows, m.cols, [&](ZtSize r0, ZtSize r1, ZtSize c0, ZtSize c1) {
    if (c1 <= r0) return;
    for (ZtSize r = r0; r < r1; ++r) {
      ZtReal* x = rowOf(m, r);
      for (ZtSize c = std::max(c0, r + 1); c < c1; ++c) std::swap(x[c], m.data[c * m.stride + r]);
    }
  });
}

template <typename Diagonal>
void addToDiagonal(ZtMatrix& m, Diagonal d) {
  for (ZtSize i = 0; i < std::min(m.rows, m.cols); ++i) m.data[i * m.stride + i] += d(i);
}

template <typename Diagonal>
void scaleColumns(ZtMatrix& target, const ZtMatrix& a, Diagonal d) {
  for (ZtSize r = 0; r < target.rows; ++r) {
    ZtReal* t = rowOf(target, r);
    const ZtReal* x = rowOf(a, r);
    for (ZtSize c = 0; c < target.cols; ++c) t[c] = x[c] * d(c);
  }
}

template <typename Diagonal>
void scaleRows(ZtMatrix& target, Diagonal d, const ZtMatrix& a) {
  for (ZtSize r = 0; r < target.rows; ++r) {
    ZtReal* t = rowOf(target, r);
    const ZtReal* x = rowOf(a, r);
    const ZtReal factor = d(r);
    for (ZtSize c = 0; c < target.cols; ++c) t[c] = factor * x[c];
  }
}

auto diagonalOf(const ZtMatrix& d) {
  return [&d](ZtSize i) { return d.data[i * d.stride + i]; };
}

auto diagonalOf(const ZtVector& d) {
  return [&d](ZtSize i) { return d.data[i]; };
}

}  // namespace

void Matrix::setTransposeOf(const ZtMatrix& a) {
  transposeInto(*this, a);
}

void Matrix::setTransposeSelf() {
  if (rows == cols) {
    transposeInPlace(*this);
    return;
  }
  if (rows == 0 || cols == 0) {
    std::swap(rows, cols);
    return;
  }
  if (data != nullptr && (flags & kZtManaged) == 0) {
    // Capital R on purpose, unlike changeSize: callers tell the two apart.
    throwError(__PRETTY_FUNCTION__, "Resizing of this object is not allowed");
  }
  Matrix transposed(cols, rows);
  transposeInto(transposed, *this);
  ZtMatrix_swap(this, &transposed);
}

void Matrix::setMatAddTransMatMulSca(const ZtMatrix& a, const ZtMatrix& b, ZtReal s) {
  forEachTile(rows, cols, [&](ZtSize r0, ZtSize r1, ZtSize c0, ZtSize c1) {
    for (ZtSize r = r0; r < r1; ++r) {
      ZtReal* t = rowOf(*this, r);
      const ZtReal* x = rowOf(a, r);
      const ZtReal* y = b.data + r;
      for (ZtSize c = c0; c < c1; ++c) t[c] = (x[c] + y[c * b.stride]) * s;
    }
  });
}

void Matrix::setTriU(const ZtMatrix& a) {
  for (ZtSize r = 0; r < rows; ++r) {
    const ZtSize below = std::min(r, cols);
    std::fill_n(rowOf(*this, r), below, 0.0);
    std::copy_n(rowOf(a, r) + below, cols - below, rowOf(*this, r) + below);
  }
}

void Matrix::setTriL(const ZtMatrix& a) {
  for (ZtSize r = 0; r < rows; ++r) {
    const ZtSize kept = std::min(r + 1, cols);
    std::copy_n(rowOf(a, r), kept, rowOf(*this, r));
    std::fill_n(rowOf(*this, r) + kept, cols - kept, 0.0);
  }
}

void Matrix::setTransposeOfTriU(const ZtMatrix& a) {
  setTransposeOf(a);
  setTriL(*this);
}

void Matrix::setSymmetricTriL(const ZtMatrix& a) {
  setTriL(a);
  forEachTile(rows, cols, [&](ZtSize r0, ZtSize r1, ZtSize c0, ZtSize c1) {
    for (ZtSize r = r0; r < r1; ++r) {
      for (ZtSize c = std::max(c0, r + 1); c < c1; ++c) (*this)(r, c) = (*this)(c, r);
    }
  });
}

void Matrix::setIdentity(ZtReal value) {
  setSub_zero(0, 0, rows, cols);
  setSelfAddDiag(value);
}

void Matrix::setMatAddIdentity(const ZtMatrix& a) {
  setSub_mat(a, 0, 0, rows, cols, 0, 0);
  setSelfAddDiag(1.0);
}

void Matrix::setSelfAddDiag(const ZtMatrix& d) {
  addToDiagonal(*this, diagonalOf(d));
}

void Matrix::setSelfAddDiag(const ZtVector& d) {
  addToDiagonal(*this, diagonalOf(d));
}

void Matrix::setSelfAddDiag(ZtReal value) {
  addToDiagonal(*this, [value](ZtSize) { return value; });
}

void Matrix::setMatMulDiag(const ZtMatrix& a, const ZtMatrix& d) {
  scaleColumns(*this, a, diagonalOf(d));
}

void Matrix::setMatMulDiag(const ZtMatrix& a, const ZtVector& d) {
  scaleColumns(*this, a, diagonalOf(d));
}

void Matrix::setDiagMulMat(const ZtMatrix& d, const ZtMatrix& a) {
  scaleRows(*this, diagonalOf(d), a);
}

void Matrix::setDiagMulMat(const ZtVector& d, const ZtMatrix& a) {
  scaleRows(*this, diagonalOf(d), a);
}

void Matrix::setInverseDiagonal(const ZtMatrix& a) {
  const auto diagonal = diagonalOf(a);
  for (ZtSize i = 0; i < rows; ++i) {
    if (diagonal(i) == 0.0) throwError(__PRETTY_FUNCTION__, "matrix is singular");
    (*this)(i, i) = 1.0 / diagonal(i);
  }
}

void Matrix::setSub_zero(ZtSize rowFirst, ZtSize colFirst, ZtSize rowCount, ZtSize colCount) {
  setSub_scalar(0.0, rowFirst, colFirst, rowCount, colCount);
}

void Matrix::setSub_scalar(ZtReal value, ZtSize rowFirst, ZtSize colFirst, ZtSize rowCount,
                           ZtSize colCount) {
  for (ZtSize r = rowFirst; r < rowFirst + rowCount; ++r) {
    std::fill_n(rowOf(*this, r) + colFirst, colCount, value);
  }
}

void Matrix::setSub_identity(ZtSize rowFirst, ZtSize colFirst, ZtSize rowCount, ZtSize colCount) {
  Matrix(rowCount, colCount, *this, rowFirst, colFirst).setIdentity();
}

void Matrix::setSub_mat(const ZtMatrix& a, ZtSize rowFirst, ZtSize colFirst) {
  setSub_mat(a, rowFirst, colFirst, a.rows, a.cols, 0, 0);
}

void Matrix::setSub_mat(const ZtMatrix& a, ZtSize rowFirst, ZtSize colFirst, ZtSize rowCount,
                        ZtSize colCount, ZtSize aRowFirst, ZtSize aColFirst) {
  for (ZtSize r = 0; r < rowCount; ++r) {
    std::copy_n(rowOf(a, aRowFirst + r) + aColFirst, colCount,
                rowOf(*this, rowFirst + r) + colFirst);
  }
}

}  // namespace korin
