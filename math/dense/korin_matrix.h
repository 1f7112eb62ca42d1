#ifndef ZEPH_MATH_DENSE_KORIN_MATRIX_H
#define ZEPH_MATH_DENSE_KORIN_MATRIX_H

#include <iosfwd>
#include <string>

#include "math/dense/korin_export.h"
#include "types/zttypes.h"

namespace korin {

class MatMulMatTemplate;
class SparseInfo;
class Vector;

/// Dense row-major matrix: a ZtMatrix record with operations, and no fields of its own.
///
/// Element (r, c) is data[r * stride + c]; indices are zero-based. A matrix either owns its buffer
/// (flags 1, "managed") or is a view on memory that belongs to someone else (flags 0): a caller's
/// array, or a block of a larger matrix. Copying always copies the elements into a new managed
/// matrix, also when the source is a view. Only a managed matrix, or one without data, may change
/// its size.
///
/// Naming: an operation names what it computes into the object it is called on, operands in order,
/// read left to right; setMatAddTransMatMulSca(a, b, s) makes this = (a + b^T) * s. Trans is a
/// transposed operand, Diag an operand of which only the diagonal counts, E an element-wise
/// operation, Self an update of the object from itself; setSub_ operations write a block.
///
/// Unless a member says otherwise, the target must have the shape of the result before the call
/// (loops take their extent from it), and neither shapes nor indices are checked. Element-wise
/// operations may have an operand as their target; a target that overlaps an operand in any other
/// way gives unspecified values. Every error is a ZtException with value 256, whose message is the
/// signature of the failing member, one blank and a text.
///
///   korin::Matrix a(2, 2), b(2, 2, values), c(2, 2);
///   a.setIdentity(1.0);
///   c.setMatAddScaMulMat(a, 0.5, b);             // c = I + b / 2
///   korin::Matrix corner(1, 1, c, 1, 1);         // view: writes go to c
///   corner(0, 0) = 7.0;
class Matrix : public ZtMatrix {
 public:
  /// Empty: no data, 0 x 0.
  Matrix() = default;
  /// Managed rows x cols with stride cols; the contents are not set. Without rows or without
  /// columns it is an empty 0 x 0 matrix.
  KORIN_EXPORT Matrix(ZtSize rows, ZtSize cols);
  /// Managed rows x cols, filled row by row from rows * cols contiguous values.
  KORIN_EXPORT Matrix(ZtSize rows, ZtSize cols, const ZtReal* values);
  /// Wraps the caller's buffer without copying; all five fields are stored as given.
  KORIN_EXPORT Matrix(ZtSize rows, ZtSize cols, ZtSize stride, ZtReal* buffer, ZtDataFlags flags);
  /// View on the rows x cols block of parent whose top-left element is (firstRow, firstCol).
  KORIN_EXPORT Matrix(ZtSize rows, ZtSize cols, ZtMatrix& parent, ZtSize firstRow, ZtSize firstCol);
  /// Managed deep copies.
  KORIN_EXPORT Matrix(const ZtMatrix& other);
  KORIN_EXPORT Matrix(const Matrix& other);
  Matrix(Matrix&& other) : ZtMatrix(static_cast<ZtMatrix&&>(other)) {}
  /// Makes this a managed deep copy of other; the old buffer is freed if it was managed. A view
  /// that is assigned to stops being a view: the memory it looked at is not written.
  KORIN_EXPORT Matrix& operator=(const ZtMatrix& other);
  KORIN_EXPORT Matrix& operator=(const Matrix& other);
  Matrix& operator=(Matrix&& other) {
    ZtMatrix::operator=(static_cast<ZtMatrix&&>(other));
    return *this;
  }

  ZtReal& operator()(ZtSize r, ZtSize c) { return data[r * stride + c]; }
  const ZtReal& operator()(ZtSize r, ZtSize c) const { return data[r * stride + c]; }
  /// Address of the element with row-major index i over the logical rows x cols.
  ZtReal* flatRow(ZtSize i) { return data + i / cols * stride + i % cols; }
  const ZtReal* flatRow(ZtSize i) const { return data + i / cols * stride + i % cols; }
  /// Address of the element with column-major index i.
  ZtReal* flatCol(ZtSize i) { return data + i % rows * stride + i / rows; }
  const ZtReal* flatCol(ZtSize i) const { return data + i % rows * stride + i / rows; }

  /// Changes the shape; elements keep their indices, new ones are zero. A matrix that had no data,
  /// no rows or no columns comes out with unset contents. Does nothing when the shape is the
  /// current one. Throws "resizing of this object is not allowed" for a view with data.
  KORIN_EXPORT void changeSize(ZtSize rows, ZtSize cols);
  /// Inserts count rows (columns) of the given value before row (column) `before` <= rows (cols).
  /// Throws as changeSize does, for a view with data even when count is 0.
  void insertRows(ZtSize before, ZtSize count, ZtReal value);
  void insertCols(ZtSize before, ZtSize count, ZtReal value);

  /// Copies the rows x cols elements row by row to or from a contiguous array.
  void toArray(ZtReal* out) const;
  void setArray(const ZtReal* in);

  /// Column c = the first rows elements of a vector or array, one value, or (rows 0 to 3 only)
  /// the components of a quaternion.
  void setCol(const ZtVector& v, ZtSize c);
  void setCol(const ZtReal* values, ZtSize c);
  void setCol(ZtReal value, ZtSize c);
  void setCol(const ZtQuaternion& q, ZtSize c);
  /// Row r, likewise from the first cols elements.
  void setRow(const ZtVector& v, ZtSize r);
  void setRow(const ZtReal* values, ZtSize r);
  void setRow(ZtReal value, ZtSize r);
  void setRow(const ZtQuaternion& q, ZtSize r);
  /// Copies column c into the first rows elements of v, which must be that long.
  void getCol(ZtVector& v, ZtSize c) const;
  /// New managed vector holding column c (row r).
  Vector col(ZtSize c) const;
  Vector row(ZtSize r) const;
  /// Row target += factor * row source.
  void setRow_rowAddScaMulRow(ZtSize target, ZtReal factor, ZtSize source);
  /// For k = 0..count-1 exchanges rows r1+k and r2+k in columns firstCol and up.
  void swapRows(ZtSize r1, ZtSize r2, ZtSize count, ZtSize firstCol);
  /// For k = 0..count-1 exchanges columns c1+k and c2+k in rows firstRow and down.
  void swapCols(ZtSize c1, ZtSize c2, ZtSize count, ZtSize firstRow);

  // Element-wise

  /// this = a + b.
  void setMatAddMat(const ZtMatrix& a, const ZtMatrix& b);
  /// this = a - b.
  void setMatSubMat(const ZtMatrix& a, const ZtMatrix& b);
  /// this = (a + b^T) * s, the sum rounded before the product; s = 0.5 and b = a make the symmetric
  /// part of a. this must not overlap b.
  void setMatAddTransMatMulSca(const ZtMatrix& a, const ZtMatrix& b, ZtReal s);
  /// this = s * a.
  void setScaMulMat(ZtReal s, const ZtMatrix& a);
  /// this = a + s * b.
  void setMatAddScaMulMat(const ZtMatrix& a, ZtReal s, const ZtMatrix& b);
  /// this += s * a.
  void setSelfAddScaMulMat(ZtReal s, const ZtMatrix& a);
  /// this = s * a + t * b.
  void setScaMulMatAddScaMulMat(ZtReal s, const ZtMatrix& a, ZtReal t, const ZtMatrix& b);
  /// this(i, j) = |a(i, j)|.
  void setAbs(const ZtMatrix& a);
  /// this(i, j) = sqrt(a(i, j)); a negative element gives NaN.
  void setSqrt(const ZtMatrix& a);
  /// this(i, j) = a(i, j) * b(i, j).
  void setMatEMulMat(const ZtMatrix& a, const ZtMatrix& b);
  /// this(i, j) = a(i, j) / b(i, j).
  void setMatEDivMat(const ZtMatrix& a, const ZtMatrix& b);

  // Identity and diagonals; a matrix operand d stands for its main diagonal

  /// value on the main diagonal, 0 elsewhere; any shape.
  void setIdentity(ZtReal value = 1.0);
  /// this = a + I.
  void setMatAddIdentity(const ZtMatrix& a);
  /// this(i, i) += d(i, i), d[i] or value, for i < min(rows, cols).
  void setSelfAddDiag(const ZtMatrix& d);
  void setSelfAddDiag(const ZtVector& d);
  void setSelfAddDiag(ZtReal value);
  /// this = a * diag(d): column j of a times d(j, j). this must not overlap d.
  void setMatMulDiag(const ZtMatrix& a, const ZtMatrix& d);
  void setMatMulDiag(const ZtMatrix& a, const ZtVector& d);
  /// this = diag(d) * a: row i of a times d(i, i).
  void setDiagMulMat(const ZtMatrix& d, const ZtMatrix& a);
  void setDiagMulMat(const ZtVector& d, const ZtMatrix& a);

  // Structure

  /// this = a^T; this must be a.cols x a.rows and must not overlap a.
  void setTransposeOf(const ZtMatrix& a);
  /// Transposes this; a square matrix in place (views too), any other into a new managed buffer
  /// with stride = the new cols. Throws "Resizing of this object is not allowed" for a view with
  /// data that is not square. An empty matrix only exchanges rows and cols.
  void setTransposeSelf();
  /// this = the upper (lower) triangle of a with its diagonal, 0 elsewhere. this may be a.
  void setTriU(const ZtMatrix& a);
  void setTriL(const ZtMatrix& a);
  /// this = transpose of a's upper triangle (so lower triangular), 0 elsewhere. this must not
  /// overlap a.
  void setTransposeOfTriU(const ZtMatrix& a);
  /// this = the symmetric matrix with a's lower triangle; a's upper triangle is not read. this
  /// may be a: then the lower triangle is mirrored in place.
  void setSymmetricTriL(const ZtMatrix& a);

  /// Writes the rowCount x colCount block of this with its top-left element at
  /// (rowFirst, colFirst): zeros, one value, or an identity (1 on the block's own diagonal).
  void setSub_zero(ZtSize rowFirst, ZtSize colFirst, ZtSize rowCount, ZtSize colCount);
  void setSub_scalar(ZtReal value, ZtSize rowFirst, ZtSize colFirst, ZtSize rowCount,
                     ZtSize colCount);
  void setSub_identity(ZtSize rowFirst, ZtSize colFirst, ZtSize rowCount, ZtSize colCount);
  /// Copies all of a to the block at (rowFirst, colFirst), or the rowCount x colCount block of a
  /// at (aRowFirst, aColFirst). Source and target blocks must not overlap unless identical.
  void setSub_mat(const ZtMatrix& a, ZtSize rowFirst, ZtSize colFirst);
  void setSub_mat(const ZtMatrix& a, ZtSize rowFirst, ZtSize colFirst, ZtSize rowCount,
                  ZtSize colCount, ZtSize aRowFirst, ZtSize aColFirst);

  // Products. Every element is the sum over the inner index in increasing order, started at 0.0 and
  // without fused multiply-add, except where a blocked kernel runs (large setMatMulMat and
  // setMatMulTransMat). this must not overlap an operand, except in setMatMulMat and
  // setMatMulTransMat, whose loop kernels then read what they have just written, and get slow.

  /// this = a * b, by the blocked kernel when this.rows, this.cols and a.cols all exceed 258, by
  /// the loop kernel otherwise.
  void setMatMulMat(const ZtMatrix& a, const ZtMatrix& b);
  /// Loop kernel; the last argument is ignored.
  void setMatMulMatTrivial(const ZtMatrix& a, const ZtMatrix& b, unsigned char);
  /// Block-recursive kernel: seven products of halves (Strassen, 1969) when both operands are
  /// square of the same even order, otherwise a 2 x 2 block product.
  void setMatMulMatBlocked(const ZtMatrix& a, const ZtMatrix& b);
  /// this = a * b^T, with the same choice of kernel.
  void setMatMulTransMat(const ZtMatrix& a, const ZtMatrix& b);
  void setMatMulTransMatTrivial(const ZtMatrix& a, const ZtMatrix& b);
  void setMatMulTransMatBlocked(const ZtMatrix& a, const ZtMatrix& b);
  /// this = a * b through lists of the non-zeros in a's rows and b's columns; pays when both are
  /// mostly zero.
  void setMatMulMatSparse(const ZtMatrix& a, const ZtMatrix& b);
  /// a * b, a * b^T and a * b * a^T through non-zero lists made before. setMatMulMat reads the row
  /// lists of a and the column lists of b; setMatMulTransMat the row lists of both; setABAt, which
  /// forms (a * b) * a^T, the row lists of a and the column lists of b. Lists that are missing are
  /// made on the way.
  void setMatMulMat(const ZtMatrix& a, const SparseInfo& aInfo, const ZtMatrix& b,
                    const SparseInfo& bInfo);
  void setMatMulTransMat(const ZtMatrix& a, const SparseInfo& aInfo, const ZtMatrix& b,
                         const SparseInfo& bInfo);
  void setABAt(const ZtMatrix& a, const SparseInfo& aInfo, const ZtMatrix& b,
               const SparseInfo& bInfo);
  /// this = a * b over a product pattern built before from operands of the same shape and stride.
  void setMatMulMat(const MatMulMatTemplate& pattern, const ZtMatrix& a, const ZtMatrix& b);
  /// this = a^T * b.
  void setTransMatMulMat(const ZtMatrix& a, const ZtMatrix& b);
  /// this = a * b * a^T, evaluated as (a * b) * a^T.
  void setABAt(const ZtMatrix& a, const ZtMatrix& b);
  /// this = a^T * b * a, evaluated as (a^T * b) * a.
  void setAtBA(const ZtMatrix& a, const ZtMatrix& b);
  /// this = a * b^T for vectors: the outer product, a.size x b.size.
  void setVecMulVec(const ZtVector& a, const ZtVector& b);
  /// this = m * v as a column; this is m.rows x 1.
  void setMatMulVec(const ZtMatrix& m, const ZtVector& v);
  /// this = v^T * m as a row; this is 1 x m.cols.
  void setVecMulMat(const ZtVector& v, const ZtMatrix& m);

  // Factorisation

  /// Replaces this symmetric positive-definite matrix by its lower Cholesky factor L, A = L L^T,
  /// and returns true. The order is rows; only the lower triangle is read; the upper one comes out
  /// as zeros. At a pivot <= 0 it throws "matrix not symmetric positive-definite", or returns
  /// false and leaves the columns before the pivot factorised, the rest updated. A NaN pivot is
  /// not reported and spreads. n^3 / 3 operations.
  bool setCholesky(bool throwOnFailure);
  /// this(i, i) = 1 / a(i, i) for i < rows; other elements stay. Throws "matrix is singular" at the
  /// first diagonal element equal to 0.0, with those before it written.
  void setInverseDiagonal(const ZtMatrix& a);

  // Queries

  /// Elements that compare unequal to 0.0 (NaN counts, -0.0 does not).
  ZtSize countNonZeros() const;
  /// Sum of the main diagonal.
  ZtReal trace() const;
  /// Sum, sum of squares and mean of all elements, row by row; the mean of none is NaN.
  ZtReal sumVal() const;
  ZtReal sumSquaredVal() const;
  ZtReal avgVal() const;
  /// Extremes, NaN elements ignored; without any element +infinity, -infinity and 0.
  ZtReal minVal() const;
  ZtReal maxVal() const;
  ZtReal maxAbsVal() const;
  /// Same shape, and each pair of elements equal or at most tolerance apart. NaN equals nothing.
  bool isEqual(const ZtMatrix& other, ZtReal tolerance = 0.0) const;
  /// Whether every element is finite.
  bool isValid() const;

  // Text and binary forms; the caller's buffers must have room, which is not checked

  /// "rows,cols: " and every element as "%.16g ", NUL-terminated; returns the length without the
  /// NUL. A null out only measures.
  ZtSize writeToString(char* out) const;
  /// Appends the same text; returns the number of characters appended.
  ZtSize writeToString(std::string& out) const;
  /// Reads what writeToString writes, into a fresh managed matrix; returns the characters consumed.
  /// Returns 0 on failure: without a complete header this is unchanged, otherwise it has the new
  /// shape and the elements read so far. Whether this is a view is not checked. Linear in the text.
  ZtSize readFromString(const char* text);
  ZtSize readFromString(const std::string& text);
  /// Binary form: rows and cols as 32-bit unsigned integers, then the elements as doubles row by
  /// row, all as in memory. Returns its length in bytes; a null out only measures.
  unsigned int serialize(char* out) const;
  /// Reads the binary form into a fresh managed matrix; returns the bytes consumed, or 0 with this
  /// unchanged when memory cannot hold the counts read. Whether this is a view is not checked.
  unsigned int deserialize(const char* in);
  /// Box-drawn table for a terminal with code page 437, NUL-terminated.
  void display(char* out) const;
  /// Writes a MATLAB level-5 MAT-file with this matrix under the given name (null: no name). Does
  /// nothing when the file cannot be opened; write errors are not reported. Strict readers only
  /// accept names whose length is a multiple of 4.
  void saveAsMatlab(const char* path, const char* name) const;
};

}  // namespace korin

// In the records' own namespace, so that they are found for a plain ZtMatrix from everywhere.

/// Same shape and equal elements; NaN equals nothing.
bool operator==(const ZtMatrix& a, const ZtMatrix& b);
bool operator!=(const ZtMatrix& a, const ZtMatrix& b);

/// "[rows,cols]{", a line "\n( x x )" a row with the stream's formatting, "}".
std::ostream& operator<<(std::ostream& out, const ZtMatrix& m);

namespace korin {
using ::operator==;
using ::operator!=;
using ::operator<<;
}  // namespace korin

#endif
