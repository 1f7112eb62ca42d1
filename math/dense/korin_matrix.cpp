// Storage of korin::Matrix: construction, sizing, rows and columns.
#include "math/dense/korin_matrix.h"

#include <algorithm>

#include "math/dense/korin_rows.h"
#include "math/dense/korin_vector.h"
#include "math/dense/zt_error.h"

namespace korin {

namespace {

constexpr char kMatrixResizeRefused[] = "resizing of this object is not allowed";

bool isViewWithData(const ZtMatrix& m) {
  return m.data != nullptr && (m.flags & kZtManaged) == 0;
}

}  // namespace

Matrix::Matrix(ZtSize rows, ZtSize cols) : ZtMatrix(rows, cols, cols, nullptr) {}

Matrix::Matrix(ZtSize rows, ZtSize cols, const ZtReal* values)
    : ZtMatrix(rows, cols, cols, values) {}

Matrix::Matrix(ZtSize rows, ZtSize cols, ZtSize stride, ZtReal* buffer, ZtDataFlags flags) {
  this->data = buffer;
  this->rows = rows;
  this->cols = cols;
  this->stride = stride;
  this->flags = flags;
}

Matrix::Matrix(ZtSize rows, ZtSize cols, ZtMatrix& parent, ZtSize firstRow, ZtSize firstCol)
    : Matrix(rows, cols, parent.stride, rowOf(parent, firstRow) + firstCol, kZtView) {}

Matrix::Matrix(const ZtMatrix& other) : ZtMatrix(other) {}

Matrix::Matrix(const Matrix& other) : ZtMatrix(other) {}

Matrix& Matrix::operator=(const ZtMatrix& other) {
  ZtMatrix::operator=(other);
  return *this;
}

Matrix& Matrix::operator=(const Matrix& other) {
  ZtMatrix::operator=(other);
  return *this;
}

void Matrix::changeSize(ZtSize newRows, ZtSize newCols) {
  if (newRows == rows && newCols == cols) return;
  if (isViewWithData(*this)) throwError(__PRETTY_FUNCTION__, kMatrixResizeRefused);
  if (data == nullptr || rows == 0 || cols == 0) {
    ZtMatrix_assign(this, newRows, newCols, newCols, nullptr, 0);
    return;
  }
  ZtMatrix resized;
  // Not the constructor: it would turn a shape such as 0 x 5 into 0 x 0.
  ZtMatrix_construct(&resized, newRows, newCols, newCols, nullptr, 0);
  if (newRows > rows || newCols > cols) ZtMatrix_setZero(&resized);
  const ZtSize keptRows = std::min(newRows, rows);
  const ZtSize keptCols = std::min(newCols, cols);
  for (ZtSize r = 0; r < keptRows; ++r) {
    std::copy_n(rowOf(*this, r), keptCols, rowOf(resized, r));
  }
  ZtMatrix_swap(this, &resized);
}

void Matrix::insertRows(ZtSize before, ZtSize count, ZtReal value) {
  if (isViewWithData(*this)) throwError(__PRETTY_FUNCTION__, kMatrixResizeRefused);
  const ZtSize oldRows = rows;
  changeSize(rows + count, cols);
  for (ZtSize r = oldRows; r-- > before;) {
    std::copy_n(rowOf(*this, r), cols, rowOf(*this, r + count));
  }
  for (ZtSize r = before; r < before + count; ++r) setRow(value, r);
}

void Matrix::insertCols(ZtSize before, ZtSize count, ZtReal value) {
  if (isViewWithData(*this)) throwError(__PRETTY_FUNCTION__, kMatrixResizeRefused);
  const ZtSize oldCols = cols;
  changeSize(rows, cols + count);
  for (ZtSize r = 0; r < rows; ++r) {
    ZtReal* x = rowOf(*this, r);
    if (before < oldCols) std::copy_backward(x + before, x + oldCols, x + oldCols + count);
    std::fill_n(x + before, count, value);
  }
}

void Matrix::toArray(ZtReal* out) const {
  for (ZtSize r = 0; r < rows; ++r) std::copy_n(rowOf(*this, r), cols, out + r * cols);
}

void Matrix::setArray(const ZtReal* in) {
  for (ZtSize r = 0; r < rows; ++r) std::copy_n(in + r * cols, cols, rowOf(*this, r));
}

void Matrix::setCol(const ZtVector& v, ZtSize c) {
  setCol(v.data, c);
}

void Matrix::setCol(const ZtReal* values, ZtSize c) {
  for (ZtSize r = 0; r < rows; ++r) (*this)(r, c) = values[r];
}

void Matrix::setCol(ZtReal value, ZtSize c) {
  for (ZtSize r = 0; r < rows; ++r) (*this)(r, c) = value;
}

void Matrix::setCol(const ZtQuaternion& q, ZtSize c) {
  (*this)(0, c) = q.w;
  (*this)(1, c) = q.x;
  (*this)(2, c) = q.y;
  (*this)(3, c) = q.z;
}

void Matrix::setRow(const ZtVector& v, ZtSize r) {
  setRow(v.data, r);
}

void Matrix::setRow(const ZtReal* values, ZtSize r) {
  std::copy_n(values, cols, rowOf(*this, r));
}

void Matrix::setRow(ZtReal value, ZtSize r) {
  std::fill_n(rowOf(*this, r), cols, value);
}

void Matrix::setRow(const ZtQuaternion& q, ZtSize r) {
  (*this)(r, 0) = q.w;
  (*this)(r, 1) = q.x;
  (*this)(r, 2) = q.y;
  (*this)(r, 3) = q.z;
}

void Matrix::getCol(ZtVector& v, ZtSize c) const {
  for (ZtSize r = 0; r < rows; ++r) v.data[r] = (*this)(r, c);
}

Vector Matrix::col(ZtSize c) const {
  Vector result(rows);
  getCol(result, c);
  return result;
}

Vector Matrix::row(ZtSize r) const {
  return Vector(cols, rowOf(*this, r));
}

void Matrix::setRow_rowAddScaMulRow(ZtSize target, ZtReal factor, ZtSize source) {
  ZtReal* x = rowOf(*this, target);
  const ZtReal* y = rowOf(*this, source);
  for (ZtSize c = 0; c < cols; ++c) x[c] += factor * y[c];
}

void Matrix::swapRows(ZtSize r1, ZtSize r2, ZtSize count, ZtSize firstCol) {
  if (r1 == r2 || count == 0 || firstCol >= cols) return;
  for (ZtSize k = 0; k < count; ++k) {
    ZtReal* x = rowOf(*this, r1 + k);
    std::swap_ranges(x + firstCol, x + cols, rowOf(*this, r2 + k) + firstCol);
  }
}

void Matrix::swapCols(ZtSize c1, ZtSize c2, ZtSize count, ZtSize firstRow) {
  if (c1 == c2 || count == 0) return;
  for (ZtSize r = firstRow; r < rows; ++r) {
    ZtReal* x = rowOf(*this, r);
    for (ZtSize k = 0; k < count; ++k) std::swap(x[c1 + k], x[c2 + k]);
  }
}

}  // namespace korin
