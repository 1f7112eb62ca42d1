#ifndef ZEPH_MATH_CONTAINERS_SPARSEMXMATRIX_H
#define ZEPH_MATH_CONTAINERS_SPARSEMXMATRIX_H

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>

namespace korin {

/// Where an element stood before sorting, and the key it is sorted by.
///
/// The order compares keys only, so elements of equal keys may come out in any order of positions.
template <typename Index>
struct IndexTracker {
  Index position;
  Index key;

  friend bool operator<(const IndexTracker& a, const IndexTracker& b) { return a.key < b.key; }
};

/// Sparse matrix in compressed columns over `malloc`ed or borrowed arrays.
///
/// Column c holds entries colStarts[c] .. colStarts[c+1]-1, rows ascending. Indices are zero-based.
/// With `ownsStorage` the three arrays are released with `free` on destruction; otherwise the
/// object is a view and the arrays must outlive it. Shapes and indices are never checked.
///
///   korin::SparseMxMatrix<unsigned int, double> l(n, n, nnz, values, rows, starts, false);
///   korin::SparseMxMatrix<unsigned int, double> z(n, n, nnz);
///   z.copy(l);
///   l.partialInverseCholesky(z, perm);  // z = entries of the inverse on l's pattern
///
/// @tparam Index  unsigned index type; @tparam Real  value type.
template <typename Index, typename Real>
class SparseMxMatrix {
 public:
  Index rows;
  Index cols;
  /// Entries that `values` and `rowIndices` can hold; at least 1 where this class allocated them.
  Index capacity;
  Real* values;
  Index* rowIndices;
  /// cols + 1 offsets.
  Index* colStarts;
  bool ownsStorage;

  /// Owning matrix without entries. Throws std::bad_alloc.
  SparseMxMatrix(Index rowCount, Index colCount, Index entryCapacity);

  /// Matrix over given arrays, which must come from `malloc` if `owns` is set.
  SparseMxMatrix(Index rowCount, Index colCount, Index entryCapacity, Real* entryValues,
                 Index* entryRows, Index* columnStarts, bool owns)
      : rows(rowCount),
        cols(colCount),
        capacity(entryCapacity),
        values(entryValues),
        rowIndices(entryRows),
        colStarts(columnStarts),
        ownsStorage(owns) {}

  SparseMxMatrix(const SparseMxMatrix&) = delete;
  SparseMxMatrix& operator=(const SparseMxMatrix&) = delete;

  /// Copies other's column starts (this->cols + 1 of them) and entries into the existing arrays,
  /// which must be large enough; rows, cols and capacity stay.
  virtual void copy(const SparseMxMatrix& other);

  /// Adopts other's arrays and capacity, after freeing its own if it owns them. rows and cols stay
  /// as they are, and so does other's own flag: one of the two must give up ownership. Adopting
  /// from itself while owning is an error that is not checked.
  virtual void clone(SparseMxMatrix& other, bool takeOwnership);

  /// Rebuilds the matrix with the given capacity, column `col` replaced by the entries of the dense
  /// column (`rows` values) that are not exactly 0. The new arrays belong to this object, whose
  /// `ownsStorage` stays: a view keeps viewing, and its owner frees the new arrays with `free`.
  /// The capacity must suffice. Throws std::bad_alloc.
  virtual void setCol(Index col, const Real* dense, Index entryCapacity);

  virtual ~SparseMxMatrix() { release(); }

  /// Entries of (L L^T)^-1 on the pattern of L, this matrix (Takahashi's selected inverse).
  ///
  /// @param result  must arrive as a copy of this matrix; leaves holding the inverse at the indices
  ///                before the permutation: entry (perm[i], perm[k]) for every (i, k) in L's
  ///                pattern, rows ascending in every column.
  /// @param perm    n entries; perm[k] is the index, before the permutation, of row k of L.
  ///
  /// L must be n x n and lower triangular, rows ascending, every diagonal entry present. A zero on
  /// the diagonal is not refused: infinities and NaN follow. Throws std::bad_alloc.
  /// Cost: at most the sum of the squared column lengths of L, at the rate of dense products where
  /// neighbouring columns share their pattern. Beyond L and the result it needs dense panels of the
  /// size of L.
  void partialInverseCholesky(SparseMxMatrix& result, const Index* perm) const;

 private:
  template <typename T>
  static T* allocate(std::size_t count);
  void release();
};

template <typename Index, typename Real>
template <typename T>
T* SparseMxMatrix<Index, Real>::allocate(std::size_t count) {
  void* memory = std::malloc(std::max<std::size_t>(count, 1) * sizeof(T));
  if (memory == nullptr) throw std::bad_alloc();
  return static_cast<T*>(memory);
}

template <typename Index, typename Real>
void SparseMxMatrix<Index, Real>::release() {
  if (!ownsStorage) return;
  std::free(values);
  std::free(rowIndices);
  std::free(colStarts);
}

template <typename Index, typename Real>
SparseMxMatrix<Index, Real>::SparseMxMatrix(Index rowCount, Index colCount, Index entryCapacity)
    : rows(rowCount), cols(colCount), capacity(std::max<Index>(entryCapacity, 1)) {
  struct Free {
    void operator()(void* memory) const { std::free(memory); }
  };
  std::unique_ptr<Real, Free> newValues(allocate<Real>(capacity));
  std::unique_ptr<Index, Free> newRows(allocate<Index>(capacity));
  colStarts = allocate<Index>(static_cast<std::size_t>(cols) + 1);
  std::fill_n(colStarts, static_cast<std::size_t>(cols) + 1, Index{0});
  values = newValues.release();
  rowIndices = newRows.release();
  ownsStorage = true;
}

template <typename Index, typename Real>
void SparseMxMatrix<Index, Real>::copy(const SparseMxMatrix& other) {
  std::copy_n(other.colStarts, static_cast<std::size_t>(cols) + 1, colStarts);
  std::copy_n(other.values, colStarts[cols], values);
  std::copy_n(other.rowIndices, colStarts[cols], rowIndices);
}

template <typename Index, typename Real>
void SparseMxMatrix<Index, Real>::clone(SparseMxMatrix& other, bool takeOwnership) {
  release();
  values = other.values;
  rowIndices = other.rowIndices;
  colStarts = other.colStarts;
  capacity = other.capacity;
  ownsStorage = takeOwnership;
}

template <typename Index, typename Real>
void SparseMxMatrix<Index, Real>::setCol(Index col, const Real* dense, Index entryCapacity) {
  SparseMxMatrix rebuilt(rows, cols, entryCapacity);
  Index count = 0;
  for (Index c = 0; c < cols; ++c) {
    rebuilt.colStarts[c] = count;
    if (c == col) {
      for (Index r = 0; r < rows; ++r) {
        if (dense[r] == Real{0}) continue;
        rebuilt.values[count] = dense[r];
        rebuilt.rowIndices[count++] = r;
      }
    } else {
      const Index length = colStarts[c + 1] - colStarts[c];
      std::copy_n(values + colStarts[c], length, rebuilt.values + count);
      std::copy_n(rowIndices + colStarts[c], length, rebuilt.rowIndices + count);
      count += length;
    }
  }
  rebuilt.colStarts[cols] = count;
  clone(rebuilt, ownsStorage);
  rebuilt.ownsStorage = false;
}

/// The recurrence is written for these types alone.
template <>
void SparseMxMatrix<unsigned int, double>::partialInverseCholesky(SparseMxMatrix& result,
                                                                  const unsigned int* perm) const;

}  // namespace korin

#endif
