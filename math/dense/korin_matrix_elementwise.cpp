// Element-wise operations, comparisons and statistics of korin::Matrix.
#include <cmath>
#include <limits>

#include "math/dense/korin_matrix.h"
#include "math/dense/korin_rows.h"

namespace korin {

namespace {

// target(i, j) = op(a(i, j)) over the target's extent. The target may be a.
template <typename Op>
void mapElements(ZtMatrix& target, const ZtMatrix& a, Op op) {
  for (ZtSize r = 0; r < target.rows; ++r) {
    ZtReal* t = rowOf(target, r);
    const ZtReal* x = rowOf(a, r);
    for (ZtSize c = 0; c < target.cols; ++c) t[c] = op(x[c]);
  }
}

// target(i, j) = op(a(i, j), b(i, j)). The target may be a or b.
template <typename Op>
void mapElements(ZtMatrix& target, const ZtMatrix& a, const ZtMatrix& b, Op op) {
  for (ZtSize r = 0; r < target.rows; ++r) {
    ZtReal* t = rowOf(target, r);
    const ZtReal* x = rowOf(a, r);
    const ZtReal* y = rowOf(b, r);
    for (ZtSize c = 0; c < target.cols; ++c) t[c] = op(x[c], y[c]);
  }
}

// Folds op over all elements, row by row.
template <typename Value, typename Op>
Value foldElements(const ZtMatrix& m, Value value, Op op) {
  for (ZtSize r = 0; r < m.rows; ++r) {
    const ZtReal* x = rowOf(m, r);
    for (ZtSize c = 0; c < m.cols; ++c) value = op(value, x[c]);
  }
  return value;
}

}  // namespace

void Matrix::setMatAddMat(const ZtMatrix& a, const ZtMatrix& b) {
  mapElements(*this, a, b, [](ZtReal x, ZtReal y) { return x + y; });
}

void Matrix::setMatSubMat(const ZtMatrix& a, const ZtMatrix& b) {
  mapElements(*this, a, b, [](ZtReal x, ZtReal y) { return x - y; });
}

void Matrix::setScaMulMat(ZtReal s, const ZtMatrix& a) {
  mapElements(*this, a, [s](ZtReal x) { return s * x; });
}

void Matrix::setMatAddScaMulMat(const ZtMatrix& a, ZtReal s, const ZtMatrix& b) {
  mapElements(*this, a, b, [s](ZtReal x, ZtReal y) { return x + s * y; });
}

void Matrix::setSelfAddScaMulMat(ZtReal s, const ZtMatrix& a) {
  setMatAddScaMulMat(*this, s, a);
}

void Matrix::setScaMulMatAddScaMulMat(ZtReal s, const ZtMatrix& a, ZtReal t, const ZtMatrix& b) {
  mapElements(*this, a, b, [s, t](ZtReal x, ZtReal y) { return s * x + t * y; });
}

void Matrix::setAbs(const ZtMatrix& a) {
  mapElements(*this, a, [](ZtReal x) { return std::fabs(x); });
}

void Matrix::setSqrt(const ZtMatrix& a) {
  mapElements(*this, a, [](ZtReal x) { return std::sqrt(x); });
}

void Matrix::setMatEMulMat(const ZtMatrix& a, const ZtMatrix& b) {
  mapElements(*this, a, b, [](ZtReal x, ZtReal y) { return x * y; });
}

void Matrix::setMatEDivMat(const ZtMatrix& a, const ZtMatrix& b) {
  mapElements(*this, a, b, [](ZtReal x, ZtReal y) { return x / y; });
}

ZtSize Matrix::countNonZeros() const {
  return foldElements(*this, ZtSize{0}, [](ZtSize n, ZtReal x) { return n + (x != 0.0); });
}

ZtReal Matrix::trace() const {
  ZtReal sum = 0.0;
  for (ZtSize i = 0; i < std::min(rows, cols); ++i) sum += (*this)(i, i);
  return sum;
}

ZtReal Matrix::sumVal() const {
  return foldElements(*this, 0.0, [](ZtReal sum, ZtReal x) { return sum + x; });
}

ZtReal Matrix::sumSquaredVal() const {
  return foldElements(*this, 0.0, [](ZtReal sum, ZtReal x) { return sum + x * x; });
}

ZtReal Matrix::avgVal() const {
  return sumVal() / (static_cast<ZtReal>(rows) * static_cast<ZtReal>(cols));
}

ZtReal Matrix::minVal() const {
  return foldElements(*this, std::numeric_limits<ZtReal>::infinity(),
                      [](ZtReal least, ZtReal x) { return x < least ? x : least; });
}

ZtReal Matrix::maxVal() const {
  return foldElements(*this, -std::numeric_limits<ZtReal>::infinity(),
                      [](ZtReal most, ZtReal x) { return x > most ? x : most; });
}

ZtReal Matrix::maxAbsVal() const {
  return foldElements(
      *this, 0.0, [](ZtReal most, ZtReal x) { return std::fabs(x) > most ? std::fabs(x) : most; });
}

bool Matrix::isEqual(const ZtMatrix& other, ZtReal tolerance) const {
  if (rows != other.rows || cols != other.cols) return false;
  for (ZtSize r = 0; r < rows; ++r) {
    const ZtReal* x = rowOf(*this, r);
    const ZtReal* y = rowOf(other, r);
    for (ZtSize c = 0; c < cols; ++c) {
      // Infinities of the same sign are equal although their difference is NaN.
      if (x[c] != y[c] && !(std::fabs(x[c] - y[c]) <= tolerance)) return false;
    }
  }
  return true;
}

bool Matrix::isValid() const {
  return foldElements(*this, true, [](bool ok, ZtReal x) { return ok && std::isfinite(x); });
}

}  // namespace korin

bool operator==(const ZtMatrix& a, const ZtMatrix& b) {
  // A view, because the operand itself need not be a korin::Matrix.
  return korin::Matrix(a.rows, a.cols, a.stride, a.data, kZtView).isEqual(b);
}

bool operator!=(const ZtMatrix& a, const ZtMatrix& b) {
  return !(a == b);
}
