// Triplets and compressed columns brought into sorted compressed columns without sorting.
#ifndef ZEPH_SPARSE_PATTERN_ASSEMBLY_H
#define ZEPH_SPARSE_PATTERN_ASSEMBLY_H

#include <cstddef>
#include <vector>

#include "sparse/pattern/columns.h"

namespace korin::sparse {

/// Which entries of the input make the matrix.
enum class Part {
  /// All: a general matrix.
  Whole,
  /// The input declares one triangle of a symmetric matrix, whichever: entries above the diagonal
  /// are mirrored below it. An entry and its mirror image are duplicates.
  OneTriangle,
  /// The input holds both triangles of a symmetric matrix: entries above the diagonal are skipped.
  LowerOfBoth,
};

/// Place in the result of an input entry that is no part of it.
inline constexpr Offset kSkipped = -1;

/// Compressed columns of a matrix of the given entries, zero-based: rows ascend in every column,
/// and entries of one place are summed in the order of the input. With `slot`, slot[k] becomes the
/// place of entry k in the result, or kSkipped, so that new values of the same pattern can be
/// scattered.
///
/// Two counting passes (by row, then by column): O(count + rows + cols), whatever the order of the
/// input. Not checked: that indices are within `rows` and `cols`. I: std::int32_t or std::int64_t.
template <class I>
Columns assembleTriplets(Index rows, Index cols, const I* row, const I* col, const double* value,
                         std::size_t count, Part part, std::vector<Offset>* slot = nullptr);

/// The same from compressed columns. Columns that already are what the result would be are copied
/// as they stand, others go through the two passes.
template <class I>
Columns assembleColumns(Index rows, Index cols, const I* start, const I* row, const double* value,
                        Part part, std::vector<Offset>* slot = nullptr);

}  // namespace korin::sparse

#endif
