#ifndef ZEPH_MATH_DENSE_KORIN_VECTOR_H
#define ZEPH_MATH_DENSE_KORIN_VECTOR_H

#include <iosfwd>
#include <string>

#include "math/dense/korin_export.h"
#include "types/zttypes.h"

namespace korin {

class Matrix;

/// Dense vector: a ZtVector record with operations, and no fields of its own.
///
/// Element i is data[i], zero-based. Ownership, copying, naming, unchecked indices and errors are
/// as in korin::Matrix: views (flags 0) never change their size, copies are always deep and
/// managed. Unless a member says otherwise this must have the size of the result before the call,
/// and loops take their extent from it.
class Vector : public ZtVector {
 public:
  /// Empty: no data, size 0.
  Vector() = default;
  /// Managed, contents not set.
  KORIN_EXPORT explicit Vector(ZtSize size);
  /// Managed copy of size contiguous values; a null source leaves the contents unset.
  KORIN_EXPORT Vector(ZtSize size, const ZtReal* source);
  /// View on parent[offset] to parent[offset + size - 1].
  KORIN_EXPORT Vector(ZtSize size, const ZtVector& parent, ZtSize offset);
  /// View on m.cols elements from the element of m with *row-major flat index* `index` on, found
  /// as by Matrix::flatRow; row r of m is index r * m.cols, not r.
  KORIN_EXPORT Vector(korin::Matrix& m, ZtSize index);
  /// Managed vector of the four components.
  KORIN_EXPORT explicit Vector(const ZtQuaternion& q);
  /// Managed deep copies.
  KORIN_EXPORT Vector(const ZtVector& other);
  KORIN_EXPORT Vector(const Vector& other);
  Vector(Vector&& other) : ZtVector(static_cast<ZtVector&&>(other)) {}
  KORIN_EXPORT Vector& operator=(const ZtVector& other);
  KORIN_EXPORT Vector& operator=(const Vector& other);
  Vector& operator=(Vector&& other) {
    ZtVector::operator=(static_cast<ZtVector&&>(other));
    return *this;
  }

  ZtReal& operator[](ZtSize i) { return data[i]; }
  const ZtReal& operator[](ZtSize i) const { return data[i]; }

  /// Changes the size; elements keep their indices, new ones are zero. A vector without elements
  /// comes out with unset contents. Does nothing when the size is the current one. Throws
  /// "Resizing of this object is not allowed" for a view with data.
  KORIN_EXPORT void changeSize(ZtSize size);
  /// Inserts count elements of the given value before index `before` <= size. Throws as changeSize
  /// does, for a view with data even when count is 0.
  void insertItems(ZtSize before, ZtSize count, ZtReal value);
  /// Appends one element; linear in the size. Throws as changeSize does, under changeSize's name.
  void push_back(ZtReal value);

  // Parts of a matrix

  /// this[i] = m(i, c).
  void setMatCol(const ZtMatrix& m, ZtSize c);
  /// this[j] = m(r, j).
  void setMatRow(const ZtMatrix& m, ZtSize r);
  /// this[i] = m(i, i).
  void setDiag(const ZtMatrix& m);

  // Element-wise; this may be an operand

  /// this = a + b, a - b.
  void setVecAddVec(const ZtVector& a, const ZtVector& b);
  void setVecSubVec(const ZtVector& a, const ZtVector& b);
  /// this = s * a.
  void setScaMulVec(ZtReal s, const ZtVector& a);
  /// this = a + s * b.
  void setVecAddScaMulVec(const ZtVector& a, ZtReal s, const ZtVector& b);
  /// this += s * a.
  void setSelfAddScaMulVec(ZtReal s, const ZtVector& a);
  /// this = s * a + t * b.
  void setScaMulVecAddScaMulVec(ZtReal s, const ZtVector& a, ZtReal t, const ZtVector& b);
  /// this[i] = |a[i]|, sqrt(a[i]).
  void setAbs(const ZtVector& a);
  void setSqrt(const ZtVector& a);
  /// this[i] = a[i] * b[i], a[i] / b[i].
  void setVecEMulVec(const ZtVector& a, const ZtVector& b);
  void setVecEDivVec(const ZtVector& a, const ZtVector& b);

  /// Writes count elements from index first on: zeros, or one value.
  void setSub_zero(ZtSize first, ZtSize count);
  void setSub_scalar(ZtReal value, ZtSize first, ZtSize count);
  /// Copies all of a, or its count elements from aFirst on, to index first on.
  void setSub_vec(const ZtVector& a, ZtSize first);
  void setSub_vec(const ZtVector& a, ZtSize first, ZtSize count, ZtSize aFirst);

  // Products; this must not overlap v. Each element is summed in increasing inner index from 0.0.

  /// this = m * v.
  void setMatMulVec(const ZtMatrix& m, const ZtVector& v);
  /// this = v^T * m.
  void setVecMulMat(const ZtVector& v, const ZtMatrix& m);

  // Solves; no pivoting and no test for zeros on the diagonal, which give infinities or NaN. this
  // may be b.

  /// this = u^-1 * b by back substitution, of order min(u.rows, u.cols) = this.size; nothing below
  /// the diagonal of u is read. Does nothing for order 0.
  void setLeftDivideTriU(const ZtMatrix& u, const ZtVector& b);
  /// this = l^-1 * b by forward substitution; nothing above the diagonal of l is read.
  void setLeftDivideTriL(const ZtMatrix& l, const ZtVector& b);
  /// this[i] = b[i] / d(i, i).
  void setLeftDivideDiag(const ZtMatrix& d, const ZtVector& b);
  /// this = a^-1 * b for symmetric positive-definite a, of which the lower triangle is read. On
  /// return a holds the *transpose* of its Cholesky factor. Throws as a.setCholesky(true) does.
  void setSolveCholesky(const ZtVector& b, korin::Matrix& a);

  // Queries, as for Matrix

  ZtReal sumVal() const;
  ZtReal sumSquaredVal() const;
  ZtReal avgVal() const;
  ZtReal minVal() const;
  ZtReal maxVal() const;
  ZtReal maxAbsVal() const;
  bool isEqual(const ZtVector& other, ZtReal tolerance = 0.0) const;
  bool isValid() const;

  // Text and binary forms, as for Matrix

  /// "size: " and every element as "%.16g ", NUL-terminated; returns the length without the NUL. A
  /// null out only measures.
  ZtSize writeToString(char* out) const;
  /// Reads what writeToString writes; returns the characters consumed, 0 on failure.
  ZtSize readFromString(const char* text);
  ZtSize readFromString(const std::string& text);
  /// Binary form: size as a 32-bit unsigned integer, then the elements as doubles (so not aligned
  /// to 8). Returns its length in bytes; a null out only measures.
  unsigned int serialize(char* out) const;
  unsigned int deserialize(const char* in);
  /// "Vector size: [ x x ]\n" with "%.7g", NUL-terminated.
  void display(char* out) const;
  /// Writes a MATLAB level-5 MAT-file with this as a 1 x size row; see Matrix::saveAsMatlab.
  void saveAsMatlab(const char* path, const char* name) const;
};

}  // namespace korin

// In the records' own namespace, as for ZtMatrix.

/// Same size and equal elements; NaN equals nothing.
bool operator==(const ZtVector& a, const ZtVector& b);
bool operator!=(const ZtVector& a, const ZtVector& b);

/// "[size]( x x )" with the stream's formatting.
std::ostream& operator<<(std::ostream& out, const ZtVector& v);

namespace korin {
using ::operator==;
using ::operator!=;
using ::operator<<;
}  // namespace korin

#endif
