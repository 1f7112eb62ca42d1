// Products of matrices and vectors.
#include <algorithm>

#include "math/dense/korin_matrix.h"
#include "math/dense/korin_row_sums.h"
#include "math/dense/korin_rows.h"
#include "math/dense/korin_vector.h"

namespace korin {

namespace {

// out[i * outStep] = row i of m times v, for i < count.
void multiplyRows(const ZtMatrix& m, const ZtVector& v, ZtReal* out, ZtSize outStep, ZtSize count) {
  for (ZtSize first = 0; first < count; first += kRowGroup) {
    const ZtSize rows = std::min(kRowGroup, count - first);
    ZtReal sums[kRowGroup] = {};
    addRowSums<1>(rowOf(m, first), m.stride, rows, v.data, m.cols, sums);
    for (ZtSize k = 0; k < rows; ++k) out[(first + k) * outStep] = sums[k];
  }
}

}  // namespace

void Vector::setMatMulVec(const ZtMatrix& m, const ZtVector& v) {
  multiplyRows(m, v, data, 1, size);
}

void Vector::setVecMulMat(const ZtVector& v, const ZtMatrix& m) {
  std::fill_n(data, size, 0.0);
  for (ZtSize p = 0; p < m.rows; ++p) {
    const ZtReal factor = v.data[p];
    const ZtReal* x = rowOf(m, p);
    for (ZtSize j = 0; j < size; ++j) data[j] += factor * x[j];
  }
}

void Matrix::setMatMulVec(const ZtMatrix& m, const ZtVector& v) {
  multiplyRows(m, v, data, stride, rows);
}

void Matrix::setVecMulMat(const ZtVector& v, const ZtMatrix& m) {
  Vector(*this, 0).setVecMulMat(v, m);
}

void Matrix::setVecMulVec(const ZtVector& a, const ZtVector& b) {
  for (ZtSize r = 0; r < rows; ++r) {
    ZtReal* t = rowOf(*this, r);
    for (ZtSize c = 0; c < cols; ++c) t[c] = a.data[r] * b.data[c];
  }
}

}  // namespace korin
