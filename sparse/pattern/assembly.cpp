#include "sparse/pattern/assembly.h"

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <type_traits>

namespace korin::sparse {
namespace {

/// An entry on its way from the pass by row to the pass by column.
struct Entry {
  Index col;
  double value;
};
struct TracedEntry {
  Index col;
  double value;
  Offset source;
};

/// Place of an entry in the chosen part; col < 0 if it is no part of it.
struct Place {
  Index row;
  Index col;
};

template <Part part>
Place placeOf(Index row, Index col) {
  if constexpr (part == Part::OneTriangle) return {std::max(row, col), std::min(row, col)};
  if constexpr (part == Part::LowerOfBoth) return {row, row < col ? Index{-1} : col};
  return {row, col};
}

/// counts[k + 1] for all k become the sums of counts[0 .. k].
void toStarts(std::vector<Offset>& counts) {
  std::partial_sum(counts.begin(), counts.end(), counts.begin());
}

/// Closes the gaps that merged duplicates left at the ends of the columns: column c holds
/// start[c] .. end[c]-1.
void closeGaps(Columns& a, const std::vector<Offset>& end, std::vector<Offset>* slot) {
  std::vector<Offset> shift(slot != nullptr ? static_cast<std::size_t>(a.cols) : 0);
  std::vector<Offset> oldStart;
  if (slot != nullptr) oldStart = a.start;
  Offset kept = 0;
  for (Index c = 0; c < a.cols; ++c) {
    const Offset first = a.start[c], length = end[c] - first;
    if (first != kept) {
      std::copy_n(a.row.begin() + first, length, a.row.begin() + kept);
      std::copy_n(a.value.begin() + first, length, a.value.begin() + kept);
    }
    a.start[c] = kept;
    if (slot != nullptr) shift[c] = first - kept;
    kept += length;
  }
  a.start[a.cols] = kept;
  a.row.resize(static_cast<std::size_t>(kept));
  a.value.resize(static_cast<std::size_t>(kept));
  if (slot == nullptr) return;
  // The places were given before the columns moved; the column of a place is found by its start.
  for (Offset& place : *slot) {
    if (place == kSkipped) continue;
    const auto after = std::upper_bound(oldStart.begin(), oldStart.end(), place);
    place -= shift[static_cast<std::size_t>(after - oldStart.begin() - 1)];
  }
}

template <Part part, class E, class RowAt, class ColAt>
Columns twoPasses(Index rows, Index cols, RowAt rowAt, ColAt colAt, const double* value,
                  std::size_t count, std::vector<Offset>* slot) {
  constexpr bool kTraced = std::is_same_v<E, TracedEntry>;
  Columns a;
  a.rows = rows;
  a.cols = cols;
  a.start.assign(static_cast<std::size_t>(cols) + 1, 0);
  std::vector<Offset> rowStart(static_cast<std::size_t>(rows) + 1, 0);
  for (std::size_t k = 0; k < count; ++k) {
    const Place at = placeOf<part>(rowAt(k), colAt(k));
    if (at.col < 0) continue;
    ++rowStart[at.row + 1];
    ++a.start[at.col + 1];
  }
  toStarts(rowStart);
  toStarts(a.start);

  const auto kept = static_cast<std::size_t>(rowStart[rows]);
  std::vector<E> byRow(kept);
  std::vector<Offset> next(rowStart.begin(), rowStart.end() - 1);
  for (std::size_t k = 0; k < count; ++k) {
    const Place at = placeOf<part>(rowAt(k), colAt(k));
    if (at.col < 0) continue;
    E& entry = byRow[next[at.row]++];
    entry.col = at.col;
    entry.value = value[k];
    if constexpr (kTraced) entry.source = static_cast<Offset>(k);
  }

  a.row.resize(kept);
  a.value.resize(kept);
  if constexpr (kTraced) slot->assign(count, kSkipped);
  next.assign(a.start.begin(), a.start.end() - 1);
  Offset merged = 0;
  for (Index r = 0; r < rows; ++r) {
    for (Offset p = rowStart[r]; p < rowStart[r + 1]; ++p) {
      const E& entry = byRow[p];
      Offset at = next[entry.col];
      if (at > a.start[entry.col] && a.row[at - 1] == r) {
        a.value[--at] += entry.value;
        ++merged;
      } else {
        a.row[at] = r;
        a.value[at] = entry.value;
        next[entry.col] = at + 1;
      }
      if constexpr (kTraced) (*slot)[entry.source] = at;
    }
  }
  if (merged > 0) closeGaps(a, next, slot);
  return a;
}

template <Part part, class RowAt, class ColAt>
Columns traced(Index rows, Index cols, RowAt rowAt, ColAt colAt, const double* value,
               std::size_t count, std::vector<Offset>* slot) {
  if (slot == nullptr) return twoPasses<part, Entry>(rows, cols, rowAt, colAt, value, count, slot);
  return twoPasses<part, TracedEntry>(rows, cols, rowAt, colAt, value, count, slot);
}

template <class RowAt, class ColAt>
Columns assemble(Index rows, Index cols, RowAt rowAt, ColAt colAt, const double* value,
                 std::size_t count, Part part, std::vector<Offset>* slot) {
  switch (part) {
    case Part::OneTriangle:
      return traced<Part::OneTriangle>(rows, cols, rowAt, colAt, value, count, slot);
    case Part::LowerOfBoth:
      return traced<Part::LowerOfBoth>(rows, cols, rowAt, colAt, value, count, slot);
    default:
      return traced<Part::Whole>(rows, cols, rowAt, colAt, value, count, slot);
  }
}

/// Whether rows ascend strictly in every column and, for a triangle, none is above the diagonal.
template <class I>
bool standsAsItShould(Index cols, const I* start, const I* row, Part part) {
  for (Index c = 0; c < cols; ++c) {
    I least = part == Part::Whole ? I{0} : static_cast<I>(c);
    for (I p = start[c]; p < start[c + 1]; ++p) {
      if (row[p] < least) return false;
      least = row[p] + 1;
    }
  }
  return true;
}

}  // namespace

template <class I>
Columns assembleTriplets(Index rows, Index cols, const I* row, const I* col, const double* value,
                         std::size_t count, Part part, std::vector<Offset>* slot) {
  return assemble(
      rows, cols, [row](std::size_t k) { return static_cast<Index>(row[k]); },
      [col](std::size_t k) { return static_cast<Index>(col[k]); }, value, count, part, slot);
}

template <class I>
Columns assembleColumns(Index rows, Index cols, const I* start, const I* row, const double* value,
                        Part part, std::vector<Offset>* slot) {
  const I first = start[0];
  const auto count = static_cast<std::size_t>(start[cols] - first);
  if (standsAsItShould(cols, start, row, part)) {
    Columns a;
    a.rows = rows;
    a.cols = cols;
    a.start.resize(static_cast<std::size_t>(cols) + 1);
    for (Index c = 0; c <= cols; ++c) a.start[c] = static_cast<Offset>(start[c] - first);
    a.row.resize(count);
    for (std::size_t p = 0; p < count; ++p) a.row[p] = static_cast<Index>(row[first + p]);
    a.value.assign(value + first, value + first + count);
    if (slot != nullptr) {
      slot->resize(count);
      std::iota(slot->begin(), slot->end(), Offset{0});
    }
    return a;
  }
  std::vector<Index> col(count);
  for (Index c = 0; c < cols; ++c) {
    std::fill(col.begin() + (start[c] - first), col.begin() + (start[c + 1] - first), c);
  }
  return assemble(
      rows, cols, [row, first](std::size_t k) { return static_cast<Index>(row[first + k]); },
      [&col](std::size_t k) { return col[k]; }, value + first, count, part, slot);
}

template Columns assembleTriplets(Index, Index, const std::int32_t*, const std::int32_t*,
                                  const double*, std::size_t, Part, std::vector<Offset>*);
template Columns assembleTriplets(Index, Index, const std::int64_t*, const std::int64_t*,
                                  const double*, std::size_t, Part, std::vector<Offset>*);
template Columns assembleColumns(Index, Index, const std::int32_t*, const std::int32_t*,
                                 const double*, Part, std::vector<Offset>*);
template Columns assembleColumns(Index, Index, const std::int64_t*, const std::int64_t*,
                                 const double*, Part, std::vector<Offset>*);

}  // namespace korin::sparse
