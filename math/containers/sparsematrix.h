#ifndef ZEPH_MATH_CONTAINERS_SPARSEMATRIX_H
#define ZEPH_MATH_CONTAINERS_SPARSEMATRIX_H

#include <memory>

#include "math/containers/allocator.h"
#include "math/containers/sparsevector.h"
#include "math/dense/korin_matrix.h"
#include "math/dense/korin_vector.h"

namespace korin {

class SparseMatrixLines;

/// Sparse matrix as one sparse vector a row ("row data"), one a column ("column data"), or both.
///
/// Row data serves access and products by rows, column data those by columns. With both, every
/// write goes to both, so that they hold the same entries; only alloc..., free..., zeroRows and
/// zeroCols work on one alone. Without either, writes are ignored and reading throws.
///
/// As in SparseVector, a stored entry stays whatever its value, entries not stored read as 0.0,
/// and storing a dense operand leaves out its zeros. Indices are zero-based; indices and shapes are
/// not checked. A target must have the shape of the result, except for assignment. A source may
/// hold either kind of data: where the other is needed it is built on the side, in time linear in
/// the entries; a source without data throws as getValue does. this may be an operand.
///
/// Sub-matrix arguments are: the other operand, this matrix's first row and column, the counts of
/// rows and columns, the other operand's first row and column.
///
///   korin::SparseMatrix a(1000, 1000, true, false, nullptr);
///   a.setValue(3, 4, 1.5);
///   a.addColData();
///   double x = a.getValue(3, 4);
class SparseMatrix {
 public:
  using Callback = void (*)(void* context, unsigned long row, unsigned long col, double value);

  Allocator* allocator;
  bool freeMemory;  ///< allocator->canFree(), asked once
  bool hasRowData;
  bool hasColData;
  unsigned long rows;
  unsigned long cols;
  unsigned long unused0;
  unsigned long unused1;
  SparseVector** rowData;  ///< rows pointers to vectors of length cols
  SparseVector** colData;  ///< cols pointers to vectors of length rows

  /// No entries. A null allocator means defaultAllocator; any other must outlive the matrix.
  SparseMatrix(unsigned long rows, unsigned long cols, bool rowData, bool colData, Allocator* a);
  /// Same shape, data kinds, entries and allocator.
  SparseMatrix(const SparseMatrix& other);
  /// Takes shape and entries; keeps its allocator and the kinds of data it has (one without data
  /// takes the source's kinds). Strong exception guarantee.
  SparseMatrix& operator=(const SparseMatrix& other);
  SparseMatrix& operator=(const ZtMatrix& dense);
  ~SparseMatrix();

  // Kinds of data

  /// Creates empty rows (columns), whatever the other view holds; existing ones are released first.
  void allocRowData();
  void allocColData();
  void freeRowData();
  void freeColData();
  /// Refills the rows (columns) from the other view. Does nothing unless both exist.
  void rebuildRowData();
  void rebuildColData();
  /// Creates and fills rows (columns) unless they exist.
  void addRowData();
  void addColData();

  // Size and clearing

  /// Changes the shape. Entries outside are removed, but by SparseVector::resize a row keeps an
  /// entry at column index cols (a column one at row index rows): not part of the matrix, it is
  /// back, in both views, when the matrix grows over it. Lines that get longer keep logarithmic
  /// access. Strong exception guarantee, as setValue and appendValue have it.
  void resize(unsigned long rows, unsigned long cols);
  void setZero();
  void zeroRows();
  void zeroCols();
  void setSub_zero(unsigned long rowFirst, unsigned long colFirst, unsigned long rowCount,
                   unsigned long colCount);
  /// value on the main diagonal, no other entries.
  void setIdentity(double value);

  // Entries

  void setValue(ZtSize r, ZtSize c, ZtReal v);
  /// Reading an absent entry stores an explicit 0.0 there. Throws "no data!" when there are neither
  /// rows nor columns.
  ZtReal getValue(ZtSize r, ZtSize c) const;
  /// Adds an entry behind all others of its row and of its column in expected constant time.
  void appendValue(ZtSize r, ZtSize c, ZtReal v);
  /// Calls callback(context, row, col, value) for the stored entries, row by row if there is row
  /// data, otherwise column by column.
  void forEach(void* context, Callback callback) const;

  // Exchange with dense records. Without data the getters throw "index out of range"; indices
  // themselves are not checked.

  /// dst[dstFirst + k] = this(rowFirst + k, col) for k < count. Without column data, absent entries
  /// are stored as explicit zeros.
  void getDenseColVector(korin::Vector& dst, ZtSize rowFirst, ZtSize col, ZtSize count,
                         ZtSize dstFirst) const;
  /// dst[dstFirst + k] = this(row, colFirst + k) for k < count. Without row data, absent entries
  /// are stored as explicit zeros.
  void getDenseRowVector(korin::Vector& dst, ZtSize row, ZtSize colFirst, ZtSize count,
                         ZtSize dstFirst) const;
  void getDenseSubMatrix(korin::Matrix& dst, ZtSize rowFirst, ZtSize colFirst, ZtSize rowCount,
                         ZtSize colCount, ZtSize dstRowFirst, ZtSize dstColFirst) const;
  /// The block is cleared, then what the source stores in its block is stored. The sparse form
  /// throws "source has no data" for a source without rows and columns.
  void setSub_mat(const korin::Matrix& src, ZtSize rowFirst, ZtSize colFirst, ZtSize rowCount,
                  ZtSize colCount, ZtSize srcRowFirst, ZtSize srcColFirst);
  void setSub_mat(const korin::SparseMatrix& src, ZtSize rowFirst, ZtSize colFirst, ZtSize rowCount,
                  ZtSize colCount, ZtSize srcRowFirst, ZtSize srcColFirst);
  /// Column c (row r) = v, whole.
  void setCol(const ZtVector& v, ZtSize c);
  void setRow(const ZtVector& v, ZtSize r);

  // Arithmetic; sums are over the union of the stored positions

  /// this *= s; stored entries stay, for s = 0 with value 0.0.
  void isSelfMulSca(double s);
  /// this += m, -m, s * m.
  void isSelfAddMat(const SparseMatrix& m);
  void isSelfSubMat(const SparseMatrix& m);
  void setSelfAddScaMulMat(double s, const SparseMatrix& m);
  /// this = sa * a + sb * b.
  void setScaMulMatAddScaMulMat(double sa, const SparseMatrix& a, double sb, const SparseMatrix& b);
  /// this = a * b. Each element is the sum of the products that both operands store, in ascending
  /// inner index from 0.0; sums that are exactly 0.0 are not stored. Rows of a (columns, where
  /// transposed) and columns of b count where they exist, with the entries that a shrinking resize
  /// left at the boundary. Cost: the number of those products, and time and memory linear in b and
  /// cols (Gustavson, 1978).
  void setMatMulMat(const SparseMatrix& a, const SparseMatrix& b);
  /// this = a^T * b, likewise.
  void setTransMatMulMat(const SparseMatrix& a, const SparseMatrix& b);
  /// this = a * b for dense a, which must not be a view on this. Cost: a.rows times the entries of
  /// b and cols.
  void setMatMulMat(const ZtMatrix& a, const SparseMatrix& b);
  /// Row 0 of this += v^T * m. Throws as getValue does when this or m has no data.
  void isSelfAddVecMulMat(const ZtVector& v, const SparseMatrix& m);
  /// this = this^T, rows and cols exchanged, with the same kinds of data. Constant time with both
  /// kinds.
  void setTransposeSelf();

 private:
  struct Shape {
    unsigned long rows;
    unsigned long cols;
  };
  SparseMatrix(Shape shape, Allocator* a);

  bool inside(ZtSize r, ZtSize c) const { return r < rows && c < cols; }
  SparseVector* makeLine(unsigned long length) const;
  void destroyLine(SparseVector* line) const;
  SparseVector** makeLines(unsigned long first, unsigned long count, unsigned long length) const;
  void destroyLines(SparseVector** lines, unsigned long count) const;
  SparseVector** prepareLines(SparseVector* const* lines, unsigned long count,
                              unsigned long newCount, unsigned long newLength) const;
  void replaceLines(SparseVector**& lines, unsigned long& count, SparseVector** fresh,
                    unsigned long newCount, unsigned long newLength) const;
  void adopt(SparseMatrix& other);
  void setProduct(const SparseMatrixLines& left, const SparseMatrix& b);
};

/// The rows or the columns of a matrix, whichever it stores: those it does not have are built on
/// the side (in memory of defaultAllocator). Valid until the matrix changes. Throws as
/// SparseMatrix::getValue for a matrix without data.
class SparseMatrixLines {
 public:
  static SparseMatrixLines rowsOf(const SparseMatrix& m);
  static SparseMatrixLines colsOf(const SparseMatrix& m);

  const SparseVector& operator[](unsigned long i) const { return *lines_[i]; }

 private:
  SparseVector* const* lines_ = nullptr;
  std::unique_ptr<SparseMatrix> built_;
};

}  // namespace korin

#endif
