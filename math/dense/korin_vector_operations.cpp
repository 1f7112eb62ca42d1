// Operations of korin::Vector: parts of a matrix, element-wise arithmetic, triangular solves,
// statistics.
#include <algorithm>

#include "math/dense/korin_matrix.h"
#include "math/dense/korin_row_sums.h"
#include "math/dense/korin_rows.h"
#include "math/dense/korin_vector.h"

namespace korin {

void Vector::setMatCol(const ZtMatrix& m, ZtSize c) {
  for (ZtSize i = 0; i < size; ++i) data[i] = m.data[i * m.stride + c];
}

void Vector::setMatRow(const ZtMatrix& m, ZtSize r) {
  std::copy_n(rowOf(m, r), size, data);
}

void Vector::setDiag(const ZtMatrix& m) {
  for (ZtSize i = 0; i < size; ++i) data[i] = m.data[i * m.stride + i];
}

void Vector::setVecAddVec(const ZtVector& a, const ZtVector& b) {
  asRow(*this).setMatAddMat(asRow(a), asRow(b));
}

void Vector::setVecSubVec(const ZtVector& a, const ZtVector& b) {
  asRow(*this).setMatSubMat(asRow(a), asRow(b));
}

void Vector::setScaMulVec(ZtReal s, const ZtVector& a) {
  asRow(*this).setScaMulMat(s, asRow(a));
}

void Vector::setVecAddScaMulVec(const ZtVector& a, ZtReal s, const ZtVector& b) {
  asRow(*this).setMatAddScaMulMat(asRow(a), s, asRow(b));
}

void Vector::setSelfAddScaMulVec(ZtReal s, const ZtVector& a) {
  asRow(*this).setSelfAddScaMulMat(s, asRow(a));
}

void Vector::setScaMulVecAddScaMulVec(ZtReal s, const ZtVector& a, ZtReal t, const ZtVector& b) {
  asRow(*this).setScaMulMatAddScaMulMat(s, asRow(a), t, asRow(b));
}

void Vector::setAbs(const ZtVector& a) {
  asRow(*this).setAbs(asRow(a));
}

void Vector::setSqrt(const ZtVector& a) {
  asRow(*this).setSqrt(asRow(a));
}

void Vector::setVecEMulVec(const ZtVector& a, const ZtVector& b) {
  asRow(*this).setMatEMulMat(asRow(a), asRow(b));
}

void Vector::setVecEDivVec(const ZtVector& a, const ZtVector& b) {
  asRow(*this).setMatEDivMat(asRow(a), asRow(b));
}

void Vector::setSub_zero(ZtSize first, ZtSize count) {
  setSub_scalar(0.0, first, count);
}

void Vector::setSub_scalar(ZtReal value, ZtSize first, ZtSize count) {
  std::fill_n(data + first, count, value);
}

void Vector::setSub_vec(const ZtVector& a, ZtSize first) {
  setSub_vec(a, first, a.size, 0);
}

void Vector::setSub_vec(const ZtVector& a, ZtSize first, ZtSize count, ZtSize aFirst) {
  std::copy_n(a.data + aFirst, count, data + first);
}

void Vector::setLeftDivideTriU(const ZtMatrix& u, const ZtVector& b) {
  const ZtSize n = std::min(u.rows, u.cols);
  if (n == 0) return;
  // Divided by the last column's element, not by u(n - 1, n - 1), on purpose: the two differ only
  // for a u with more columns than rows.
  data[size - 1] = b.data[n - 1] / u.data[(n - 1) * u.stride + u.cols - 1];
  // The order of the differences is fixed, and its first term needs the element found last, so
  // that rows cannot be worked on together here.
  for (ZtSize r = n - 1; r-- > 0;) {
    const ZtReal* x = rowOf(u, r);
    ZtReal s = b.data[r];
    for (ZtSize c = r + 1; c < n; ++c) s -= x[c] * data[c];
    data[r] = s / x[r];
  }
}

void Vector::setLeftDivideTriL(const ZtMatrix& l, const ZtVector& b) {
  // Groups of rows share the sweep over the elements found before the group; each row's own
  // differences stay in increasing order.
  ZtReal s[kRowGroup];
  for (ZtSize first = 0; first < size; first += kRowGroup) {
    const ZtSize count = std::min(kRowGroup, size - first);
    std::copy_n(b.data + first, count, s);
    addRowSums<-1>(rowOf(l, first), l.stride, count, data, first, s);
    for (ZtSize k = 0; k < count; ++k) {
      const ZtReal* x = rowOf(l, first + k);
      for (ZtSize c = first; c < first + k; ++c) s[k] -= x[c] * data[c];
      data[first + k] = s[k] / x[first + k];
    }
  }
}

void Vector::setLeftDivideDiag(const ZtMatrix& d, const ZtVector& b) {
  for (ZtSize i = 0; i < size; ++i) data[i] = b.data[i] / d.data[i * d.stride + i];
}

void Vector::setSolveCholesky(const ZtVector& b, korin::Matrix& a) {
  a.setCholesky(true);
  Vector y(b.size);
  // Each sum is completed before the one subtraction, on purpose: setLeftDivideTriL, which
  // subtracts term by term, rounds differently.
  for (ZtSize i = 0; i < y.size; ++i) {
    const ZtReal* x = rowOf(a, i);
    ZtReal sum = 0.0;
    for (ZtSize k = 0; k < i; ++k) sum += x[k] * y[k];
    y[i] = (b.data[i] - sum) / x[i];
  }
  a.setTransposeSelf();
  setLeftDivideTriU(a, y);
}

ZtReal Vector::sumVal() const {
  return asRow(*this).sumVal();
}

ZtReal Vector::sumSquaredVal() const {
  return asRow(*this).sumSquaredVal();
}

ZtReal Vector::avgVal() const {
  return asRow(*this).avgVal();
}

ZtReal Vector::minVal() const {
  return asRow(*this).minVal();
}

ZtReal Vector::maxVal() const {
  return asRow(*this).maxVal();
}

ZtReal Vector::maxAbsVal() const {
  return asRow(*this).maxAbsVal();
}

bool Vector::isEqual(const ZtVector& other, ZtReal tolerance) const {
  return asRow(*this).isEqual(asRow(other), tolerance);
}

bool Vector::isValid() const {
  return asRow(*this).isValid();
}

}  // namespace korin

bool operator==(const ZtVector& a, const ZtVector& b) {
  return korin::asRow(a).isEqual(korin::asRow(b));
}

bool operator!=(const ZtVector& a, const ZtVector& b) {
  return !(a == b);
}
