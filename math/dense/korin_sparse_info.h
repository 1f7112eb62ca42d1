#ifndef ZEPH_MATH_DENSE_KORIN_SPARSE_INFO_H
#define ZEPH_MATH_DENSE_KORIN_SPARSE_INFO_H

#include <vector>

#include "types/zttypes.h"

namespace korin {

/// Ends every list of indices: the value with all bits set.
inline constexpr ZtSize kIndexListEnd = ~ZtSize{0};

/// Where the non-zeros of a dense matrix are: for every row the increasing column indices, for
/// every column the increasing row indices, each list ended by kIndexListEnd. Non-zero means that
/// the value compares unequal to 0.0: NaN is one, -0.0 is not.
///
/// The lists describe the matrix as it was; they are not updated with it.
///
///   korin::SparseInfo aInfo(a, true, false), bInfo(b, false, true);
///   c.setMatMulMat(a, aInfo, b, bInfo);
class SparseInfo {
 public:
  ZtSize rows = 0;
  ZtSize cols = 0;

  SparseInfo() = default;
  /// Makes the lists asked for. Throws std::bad_alloc. O(rows * cols) time and memory.
  SparseInfo(const ZtMatrix& m, bool rowLists, bool colLists) { update(m, rowLists, colLists); }
  /// The same for another matrix or new values; memory is reused where it suffices, lists that
  /// are not asked for are dropped.
  void update(const ZtMatrix& m, bool rowLists, bool colLists);

  bool hasRowLists() const { return hasRowLists_; }
  bool hasColLists() const { return hasColLists_; }
  /// The list of row r < rows or column c < cols; only where these lists were asked for.
  const ZtSize* rowList(ZtSize r) const { return rowIndices_.data() + r * (cols + 1); }
  const ZtSize* colList(ZtSize c) const { return colIndices_.data() + c * (rows + 1); }

  /// Writes the k < count with values[k * step] non-zero, then kIndexListEnd, which it returns.
  /// out needs room for count + 1 indices.
  static ZtSize getSparseIndexes(const ZtReal* values, ZtSize step, ZtSize count, ZtSize* out);
  /// Sum, in increasing i and from 0.0, of x[i * xStep] * y[i * yStep] over the indices i that
  /// both lists hold.
  static ZtReal sparseMulAcc(const ZtSize* xIndices, const ZtReal* x, ZtSize xStep,
                             const ZtSize* yIndices, const ZtReal* y, ZtSize yStep);

 private:
  std::vector<ZtSize> rowIndices_;  // rows slots of cols + 1
  std::vector<ZtSize> colIndices_;  // cols slots of rows + 1
  bool hasRowLists_ = false;
  bool hasColLists_ = false;
};

/// Declared structure of an operand.
enum class MatrixShape {
  LowerTriangular = 1,  ///< zero where column > row, whatever is stored there
  UpperTriangular = 2,  ///< zero where column < row
  General = 3,          ///< zero where the stored value equals 0.0
};

/// A product pattern: for every element of a*b, which pairs of operand elements contribute. Built
/// once, evaluated by Matrix::setMatMulMat(pattern, a, b) for operands with new values but the
/// same shape, stride and zeros.
class MatMulMatTemplate {
 public:
  /// The last argument has no effect. Throws std::bad_alloc. O(a.rows * a.cols * b.cols).
  MatMulMatTemplate(const ZtMatrix& a, MatrixShape aShape, const ZtMatrix& b, MatrixShape bShape,
                    ZtReal);

  /// Whether element (r, c) of m is zero under the shape.
  static bool isZeroElement(const ZtMatrix& m, MatrixShape shape, ZtSize r, ZtSize c);

  /// The pattern: for every result element in row-major order, pairs of positions in the data of a
  /// and b in increasing inner index, then kIndexListEnd.
  const ZtSize* indices() const { return indices_.data(); }

 private:
  std::vector<ZtSize> indices_;
};

}  // namespace korin

#endif
