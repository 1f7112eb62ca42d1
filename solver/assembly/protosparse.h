// Assembly form of a sparse matrix: a triplet (coordinate) list, or a dense block when it is
// vector-shaped.
#ifndef ZEPH_SOLVER_ASSEMBLY_PROTOSPARSE_H
#define ZEPH_SOLVER_ASSEMBLY_PROTOSPARSE_H

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include "math/dense/korin_matrix.h"
#include "solver/zeph_export.h"
#include "types/zttypes.h"

namespace zeph_solver {

/// Significance threshold of the assembly code, 2^-52: dense entries of at most this magnitude are
/// not turned into triplets, diagonal entries of at most this magnitude are unusable as pivots.
inline constexpr double kDoubleEpsilon = std::numeric_limits<double>::epsilon();

/// What the index-returning checks give when there is nothing to report.
inline constexpr unsigned int kNoIndex = 0xFFFFFFFFu;

/// One triplet: `value` is added at (`row`, `col`), both zero-based. The first eight bytes, read as
/// one little-endian number, are the column-major sort key, so order and widths of the fields are
/// fixed.
struct MatrixElement {
  std::uint32_t row;  ///< zero-based
  std::uint32_t col;  ///< zero-based
  double value;       ///< added to what else is at the place
};
static_assert(sizeof(MatrixElement) == 16, "triplets are sorted as 16-byte records");

/// Sparse matrix under assembly. Entries are added in any order, and entries at one position add
/// up; the list is sorted and merged only when a consumer asks for it (`compress`, `sortElements`).
///
/// An object is in one of two modes:
///  - sparse: `denseBlock` is null, the matrix is the sum of all `elements`;
///  - dense: `denseBlock` is the matrix and `elements` is not consulted (it may hold stale ones).
///
/// Vector shapes (one row or one column) start dense; see `setSize`, `makeDense` and `makeSparse`
/// for how an object changes mode. Copies keep the mode of their source.
///
///     zeph_solver::ProtoSparse A(n, n);
///     A.addElement(0, 0, 2.0);
///     A.addDenseMatrix(block, 3, 3, false);  // block's (0, 0) lands on (3, 3)
///     A.compress();                          // column-major, one element a position
///
/// Indices are never checked against the counts. In sparse mode they are stored cut to 32 bits; in
/// dense mode an index outside the block is undefined behaviour. One object belongs to one thread.
/// Except for std::bad_alloc and std::length_error from the list, nothing throws.
class ZEPH_EXPORT ProtoSparse {
 public:
  /// How a vector is laid out by `addDenseVector`. Every non-zero value acts as `Horizontal`.
  enum Direction : int { Vertical = 0, Horizontal = 1 };

  /// Empty sparse 0 x 0 matrix with room for 1024 elements.
  ProtoSparse();

  /// rows x cols zero matrix: dense if rows == 1 or cols == 1, otherwise sparse with the capacity
  /// of `reserve(0)`.
  ProtoSparse(std::size_t rows, std::size_t cols);

  /// Copy of m, or of its transpose; exact zeros of m are not stored in sparse mode.
  ProtoSparse(const ZtMatrix& m, bool transpose);

  /// Copies counts, mode and content.
  ProtoSparse(const ProtoSparse& other);

  /// Takes over counts, mode and content. A sparse target gets at least the source's list capacity,
  /// a dense one gives its list storage back.
  /// Strong exception guarantee.
  ProtoSparse& operator=(const ProtoSparse& other);

  /// Takes everything and leaves a sparse 0 x 0 matrix without storage.
  ProtoSparse(ProtoSparse&& other) noexcept { swap(other); }
  /// The same; what this matrix held is released.
  ProtoSparse& operator=(ProtoSparse&& other) noexcept {
    ProtoSparse taken(std::move(other));
    swap(taken);
    return *this;
  }
  ~ProtoSparse();

  /// Makes all entries zero: empties the list (capacity kept), or zeroes the block (list
  /// untouched).
  void clear();

  /// Number of stored elements, duplicates and stored zeros included; in dense mode the number of
  /// block entries that are not 0.0.
  std::size_t nz() const;

  /// Sparse mode: makes room for n elements; n = 0 stands for the default capacity rule below.
  /// Dense mode: n is ignored, the block is zeroed and unused list storage given back.
  ///
  /// Default rule, with p = 2 rows cols in wrapping 64-bit arithmetic: 1024 elements for p <= 1023,
  /// p elements up to p = 10000, 2 (rows + cols) elements above. Capacity never shrinks.
  /// Throws std::length_error ("vector::reserve") beyond 2^60 - 1 elements.
  void reserve(std::size_t n);

  /// Changes the counts. When one of them shrinks, listed elements with row > rows or col > cols
  /// are erased; an element at row == rows or col == cols survives although it lies outside. A
  /// sparse object becomes a dense zero matrix if rows == 1 or cols == 1 (its elements stay in the
  /// list, unused), otherwise the default capacity rule applies. A dense object stays dense; its
  /// block keeps the overlap and grows with zeros.
  void setSize(std::size_t rows, std::size_t cols);

  /// The mode: whether there is a dense block.
  ZEPH_EXPORT bool isDense() const { return denseBlock != nullptr; }

  /// Adds value at (row, col). In sparse mode an exact zero of either sign is not stored (a NaN
  /// is). Amortised constant time, a compare and a 16-byte store into reserved storage.
  ZEPH_EXPORT void addElement(std::size_t row, std::size_t col, double value) {
    if (denseBlock) {
      addDenseElement(row, col, value);
    } else {
      addSparseElement(row, col, value);
    }
  }

  /// `addElement` for an object known to be sparse. On a dense object it feeds the unused list.
  ZEPH_EXPORT void addSparseElement(std::size_t row, std::size_t col, double value) {
    if (value == 0.0) return;
    elements.push_back({static_cast<std::uint32_t>(row), static_cast<std::uint32_t>(col), value});
  }

  /// `addElement` for an object known to be dense. There must be a block.
  ZEPH_EXPORT void addDenseElement(std::size_t row, std::size_t col, double value) {
    denseBlock->data[row * denseBlock->stride + col] += value;
  }

  /// Adds v down a column (`Vertical`) or along a row (`Horizontal`), its first entry at (row,
  /// col). Zeros are not stored in sparse mode.
  void addDenseVector(const ZtVector& v, std::size_t row, std::size_t col, Direction dir);

  /// Adds m, or its transpose, with the top-left corner at (row, col). Zeros are not stored in
  /// sparse mode, where the elements are appended column by column of this matrix.
  void addDenseMatrix(const ZtMatrix& m, std::size_t row, std::size_t col, bool transpose);

  /// Moves all elements into a rowCount x colCount block; duplicates add up in list order.
  void makeDense();

  /// Moves the block's entries of magnitude above 2^-52 into the list, in column-major order behind
  /// whatever the list holds. Returns false, changing nothing, if rowCount < 2 or colCount < 2.
  /// Strong exception guarantee.
  bool makeSparse();

  /// Multiplies every entry by s. Nothing is dropped: with s = 0 elements of value 0 remain.
  void scalarMultiplication(double s);

  /// Compressed order: sorts column-major (column, then row ascending) and merges duplicates,
  /// adding them in descending order of magnitude. Whenever a sum of two or more falls below
  /// 10^-153.5 in magnitude it is dropped and the rest of the run starts afresh; an element without
  /// duplicates stays whatever its value. Nothing happens in dense mode. Throws std::length_error
  /// for more than 2^31 - 1 elements. O(n log n), on several threads for long lists. Const because
  /// the matrix stays the same; the list is reordered in place.
  void compress() const;

  /// The order of `compress` without merging: duplicates stay, adjacent, larger magnitude first.
  void sortElements() const;

  /// Whether positions ascend strictly, column-major. True in dense mode. One pass.
  bool isCompressed() const;

  /// this += other, or its transpose, with other's (0, 0) at (rowOffset, colOffset). The counts
  /// stay. A sparse target takes a sparse other's list as it is, zeros included, when no index
  /// changes; otherwise, and from a dense other, it stores no exact zeros. `other` may be this.
  void add(const ProtoSparse& other, std::size_t rowOffset, std::size_t colOffset, bool transpose);

  /// this = this^T. In sparse mode the list order stays, so a compressed list becomes row-major.
  void transposeSelf();

  /// c = this * b for dense b (colCount x k); c must be rowCount x k and is not resized.
  /// O(nz k); duplicates need no merging, elements outside the shape take no part. For a large c of
  /// 16 columns or more, a list in no order takes up to 32 MiB of workspace.
  void multiplyDense(const ZtMatrix& b, ZtMatrix& c);

  /// c = W * b for the window W of rows rowFirst .. c.rows - rowFirst - 1 and columns colFirst ..
  /// b.rows - colFirst - 1 of this matrix (32-bit arithmetic: an offset trims the window at both
  /// ends). Window row i goes to row i - rowFirst of c, the other rows of c become 0; window column
  /// j meets row j - colFirst of b. c keeps its size. Rows and columns that this matrix, c or b
  /// does not have are left out. An end that wraps counts as a large one in sparse mode; in dense
  /// mode it leaves c = 0.
  void multiplyDenseSub(const ZtMatrix& b, ZtMatrix& c, unsigned int rowFirst,
                        unsigned int colFirst);

  /// The same for one vector: y = W * x.
  void multiplyDenseSub(const ZtVector& x, ZtVector& y, unsigned int rowFirst,
                        unsigned int colFirst);

  /// m = this, or its transpose; m is resized.
  void toDenseMatrix(ZtMatrix& m, bool transpose) const;

  /// Writes this, or its transpose, into m with the top-left corner at (rowOffset, colOffset). With
  /// `resize` m is first resized to just hold offsets and matrix, everything else 0. Without, m
  /// must be large enough, and the two modes differ: a dense object overwrites its window of m, a
  /// sparse one adds into it.
  void toDenseMatrix(ZtMatrix& m, bool transpose, std::size_t rowOffset, std::size_t colOffset,
                     bool resize) const;

  /// v = the rowCount * colCount values of the block as stored. Dense mode with contiguous rows
  /// only, so meant for vector shapes; not checked.
  void toDenseVector(ZtVector& v) const;

  /// v = count stored values of the block from flat position `first`; conditions as above.
  void toDenseVectorSub(ZtVector& v, unsigned int first, unsigned int count) const;

  /// v = column `index` (rowCount values), or with `transpose` row `index` (colCount values). v is
  /// resized. In sparse mode one pass over the list.
  void getDenseColumn(unsigned int index, ZtVector& v, bool transpose) const;

  /// d = the main diagonal, min(rowCount, colCount) values; d is resized, duplicates are summed.
  void getDiagonal(ZtVector& d) const;

  /// Whether all colCount diagonal entries are usable: finite and of magnitude above 2^-52. Entries
  /// beyond the last row count as 0.
  bool isValid() const;

  /// Index of the first unusable diagonal entry, or kNoIndex.
  unsigned int invalidDiagIndex() const;

  /// First value that is NaN or infinite: its place in the list, in dense mode row * colCount + col
  /// cut to 32 bits. kNoIndex if all are finite.
  unsigned int getInvalidIndex() const;

  /// Whether the diagonal is usable and every entry is finite. Otherwise false, with the position
  /// of the first unusable diagonal entry or else of the first non-finite entry; written only then.
  bool isCompletelyValid(std::size_t& row, std::size_t& col) const;

  /// Ascending indices of the rows and columns without any significant entry, one that is finite
  /// and of magnitude above 2^-52. Compresses a sparse object first, so cancelled entries do not
  /// count.
  void getEmptyRowsAndCols(std::vector<int>& emptyRows, std::vector<int>& emptyCols) const;

  /// Writes lines "row,col,value" (zero-based, 18 significant digits, no header) to a text file.
  /// A sparse object is compressed and lists its elements in that order; a dense one lists all
  /// rowCount x colCount positions row by row. A file that cannot be opened or written is not
  /// reported.
  void writeToCsv(const ZtString& fileName) const;

  /// Triplets in insertion order until compressed or sorted. Mutable because sorting and merging
  /// leave the matrix as it is, so that const members may do it.
  mutable std::vector<MatrixElement> elements;
  std::uint64_t rowCount = 0;                 ///< of the matrix
  std::uint64_t colCount = 0;                 ///< of the matrix
  std::unique_ptr<korin::Matrix> denseBlock;  ///< the matrix in dense mode, else null

 private:
  void swap(ProtoSparse& other) noexcept {
    elements.swap(other.elements);
    std::swap(rowCount, other.rowCount);
    std::swap(colCount, other.colCount);
    denseBlock.swap(other.denseBlock);
  }
};

}  // namespace zeph_solver

#endif  // ZEPH_SOLVER_ASSEMBLY_PROTOSPARSE_H
