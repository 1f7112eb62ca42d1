// Triplets brought into sorted compressed columns.
#ifndef ZEPH_SPARSE_PATTERN_ASSEMBLY_H
#define ZEPH_SPARSE_PATTERN_ASSEMBLY_H

#include <cstddef>

#include "sparse/pattern/columns.h"
#include "sparse/pattern/slots.h"

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

/// The places of an input's entries, zero-based: entry k is at row[k * step], col[k * step].
/// Nothing is owned. I: std::int32_t or std::int64_t.
template <class I>
struct Places {
  const I* row = nullptr;
  const I* col = nullptr;
  std::size_t count = 0;
  std::size_t step = 1;
};

/// The pattern of the matrix of the given entries: rows ascend in every column, without duplicates;
/// no values.
///
/// One counting pass by column, after which only columns whose rows did not come in order are
/// sorted: O(count + cols) for an input that keeps any order within its columns, and a logarithm of
/// a column's length more for others. Memory beside the result: four bytes for each entry that is
/// no skipped one. Not checked: that indices are within `rows` and `cols`.
template <class I>
Columns assemblePattern(Index rows, Index cols, const Places<I>& input, Part part);

/// Where the entries of the input stand in `pattern`, whose columns ascend. Entries above the
/// diagonal are marked as mirrored; with Part::LowerOfBoth nothing else is said of them. False,
/// with an unfinished list, if an entry is not there: with Part::OneTriangle on the pattern of
/// Part::LowerOfBoth, where a mirror image is missing.
///
/// O(count) where entries of a column follow one another in it or in turns with their mirror
/// images, a bisection of the column for each that does not.
template <class I>
bool findSlots(const Columns& pattern, const Places<I>& input, Part part, Slots& slots);

/// The matrix of the given entries; those of one place are summed in the order of the input.
template <class I>
Columns assembleTriplets(Index rows, Index cols, const I* row, const I* col, const double* value,
                         std::size_t count, Part part);

}  // namespace korin::sparse

#endif
