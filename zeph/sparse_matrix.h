#ifndef ZEPH_SPARSE_MATRIX_H
#define ZEPH_SPARSE_MATRIX_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "zeph/api.h"

namespace zeph {

/// What the stored entries stand for: themselves, or one triangle of A = Aᵀ or A = -Aᵀ.
enum class Symmetry {
  General,       ///< every entry stands for itself
  Symmetric,     ///< one triangle is stored, lower or upper; the other is its mirror image
  SkewSymmetric  ///< the same, with the sign reversed
};

/// An entry of a sparse matrix, zero-based.
struct Entry {
  std::uint32_t row;  ///< from 0 to SparseMatrix::rows - 1
  std::uint32_t col;  ///< from 0 to SparseMatrix::cols - 1
  double value;       ///< added to what other entries of the same place hold
};

/// Largest number of rows or columns: the solvers count in signed 32-bit integers.
inline constexpr std::size_t kLargestSize = 2147483647;

/// Sparse matrix as triplets in any order. Duplicates add up, zeros are kept.
///
///     zeph::SparseMatrix A;
///     A.rows = A.cols = 3;
///     A.symmetry = zeph::Symmetry::Symmetric;
///     A.entries = {{0, 0, 4.0}, {1, 1, 4.0}, {2, 2, 4.0}, {1, 0, -1.0}};
///
/// Whoever fills the members by hand keeps indices below rows and cols and, for the two symmetric
/// forms, the matrix square and all entries in one triangle, whichever it is. The functions below
/// and the readers see to that; zeph::Factor checks it again.
struct ZEPH_API SparseMatrix {
  /// `count` triplets, zero-based. Throws Error(Unfit) for a size or an index out of range, and for
  /// a symmetric form that is not square or has entries in both triangles; Error(Usage) for a null
  /// pointer.
  static SparseMatrix fromTriplets(std::size_t rows, std::size_t cols,
                                   const std::int32_t* rowIndices, const std::int32_t* colIndices,
                                   const double* values, std::size_t count,
                                   Symmetry symmetry = Symmetry::General);
  /// The same from 64-bit indices.
  static SparseMatrix fromTriplets(std::size_t rows, std::size_t cols,
                                   const std::int64_t* rowIndices, const std::int64_t* colIndices,
                                   const double* values, std::size_t count,
                                   Symmetry symmetry = Symmetry::General);

  /// Compressed columns: column c has the entries colStarts[c] .. colStarts[c+1]-1 of rowIndices
  /// and values, in any order. Throws as fromTriplets, and when colStarts does not begin with 0 or
  /// descends.
  static SparseMatrix fromCompressedColumns(std::size_t rows, std::size_t cols,
                                            const std::int32_t* colStarts,
                                            const std::int32_t* rowIndices, const double* values,
                                            Symmetry symmetry = Symmetry::General);
  /// The same from 64-bit indices.
  static SparseMatrix fromCompressedColumns(std::size_t rows, std::size_t cols,
                                            const std::int64_t* colStarts,
                                            const std::int64_t* rowIndices, const double* values,
                                            Symmetry symmetry = Symmetry::General);

  std::string source = "the matrix";      ///< file name, for messages
  std::size_t indexBase = 0;              ///< 1 or 0: how messages count rows and columns
  std::size_t rows = 0;                   ///< at most kLargestSize
  std::size_t cols = 0;                   ///< at most kLargestSize
  Symmetry symmetry = Symmetry::General;  ///< what the entries stand for
  bool triangular = false;  ///< a general matrix with entries in one triangle is meant as it stands
  std::vector<Entry> entries;  ///< in any order
};

}  // namespace zeph

#endif
