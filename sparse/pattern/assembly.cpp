#include "sparse/pattern/assembly.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <numeric>
#include <type_traits>
#include <utility>

namespace korin::sparse {
namespace {

/// An entry between the pass by rows and the pass by columns.
struct PlainEntry {
  static constexpr std::size_t source = 0;
  Index col;
  double value;
};
struct TracedEntry {
  Index col;
  double value;
  std::size_t source;
};

/// Where an entry goes.
struct Place {
  Index row;
  Index col;
};

/// Sums neighbouring entries of one row in columns whose rows ascend, and closes the gaps that this
/// leaves. `source` (number in the input of each entry) and `slot` may be null.
void sumDuplicates(Columns& a, const Offset* source, Offset* slot) {
  Offset kept = 0, first = 0;
  for (Index c = 0; c < a.cols; ++c) {
    const Offset end = a.start[c + 1];
    const Offset columnStart = kept;
    for (Offset p = first; p < end; ++p) {
      if (kept > columnStart && a.row[kept - 1] == a.row[p]) {
        a.value[kept - 1] += a.value[p];
      } else {
        a.row[kept] = a.row[p];
        a.value[kept] = a.value[p];
        ++kept;
      }
      if (slot != nullptr) slot[source[p]] = kept - 1;
    }
    a.start[c] = columnStart;
    first = end;
  }
  a.start[a.cols] = kept;
  a.row.resize(static_cast<std::size_t>(kept));
  a.value.resize(static_cast<std::size_t>(kept));
}

/// The input, and the columns that are made of it. Count: wide enough for the number of entries.
template <Part part, bool traced, class Count, class RowAt, class ColAt>
class Assembler {
 public:
  Assembler(Index rows, Index cols, RowAt rowAt, ColAt colAt, const double* value,
            std::size_t count)
      : rowAt_(rowAt), colAt_(colAt), value_(value), count_(count), rows_(rows), cols_(cols) {
    a_.rows = rows;
    a_.cols = cols;
    a_.row.resize(count);
    a_.value.resize(count);
    if (traced) source_.resize(count);
  }

  Columns run(std::vector<Offset>* slot) {
    duplicates_ = false;
    if (columnsAscend()) {
      startColumns();
      for (std::size_t k = 0; k < count_; ++k) {
        const Place to = placeOf(k);
        if (!skips(to)) append(to, value_[k], k);
      }
    } else {
      duplicates_ = true;  // as far as is known
      throughRows();
    }
    if (traced) slot->assign(count_, kSkipped);
    if (traced || duplicates_) {
      sumDuplicates(a_, source_.data(), traced ? slot->data() : nullptr);
    } else {
      a_.row.resize(static_cast<std::size_t>(a_.start[cols_]));
      a_.value.resize(static_cast<std::size_t>(a_.start[cols_]));
    }
    return std::move(a_);
  }

 private:
  using Entry = std::conditional_t<traced, TracedEntry, PlainEntry>;

  Place placeOf(std::size_t k) const {
    const Index row = rowAt_(k), col = colAt_(k);
    if constexpr (part == Part::OneTriangle) return {std::max(row, col), std::min(row, col)};
    return {row, col};
  }
  static bool skips(Place at) { return part == Part::LowerOfBoth && at.row < at.col; }

  /// The same without a branch, which random triangles would make costly: what is skipped goes to a
  /// row and a column after the last ones.
  Place placeOfAll(std::size_t k) const {
    const Place at = placeOf(k);
    const Index skipped = -static_cast<Index>(skips(at));  // all bits or none
    return {at.row ^ ((at.row ^ rows_) & skipped), at.col ^ ((at.col ^ cols_) & skipped)};
  }

  /// Counts the columns' entries in next_[column + 1] unless it meets a row smaller than the one
  /// before it in its column.
  bool columnsAscend() {
    next_.assign(static_cast<std::size_t>(cols_) + 2, 0);
    std::vector<Index> last(static_cast<std::size_t>(cols_), -1);
    for (std::size_t k = 0; k < count_; ++k) {
      const Place to = placeOf(k);
      if (skips(to)) continue;
      if (to.row < last[to.col]) return false;
      duplicates_ |= to.row == last[to.col];
      last[to.col] = to.row;
      ++next_[to.col + 1];
    }
    return true;
  }

  /// Counts in next_[column + 1] become starts.
  void startColumns() {
    std::partial_sum(next_.begin(), next_.end(), next_.begin());
    a_.start.assign(next_.begin(), next_.end() - 1);
  }

  void append(Place to, double value, std::size_t from) {
    const Count at = next_[to.col]++;
    a_.row[at] = to.row;
    a_.value[at] = value;
    if constexpr (traced) source_[at] = static_cast<Offset>(from);
  }

  void throughRows() {
    std::vector<Count> end(static_cast<std::size_t>(rows_) + 2, 0);
    for (std::size_t k = 0; k < count_; ++k) ++end[placeOfAll(k).row + 1];
    std::partial_sum(end.begin(), end.end(), end.begin());
    next_.assign(static_cast<std::size_t>(cols_) + 2, 0);
    const std::unique_ptr<Entry[]> byRow(new Entry[count_]);
    for (std::size_t k = 0; k < count_; ++k) {
      const Place to = placeOfAll(k);
      ++next_[to.col + 1];
      Entry& entry = byRow[end[to.row]++];
      entry.col = to.col;
      entry.value = value_[k];
      if constexpr (traced) entry.source = k;
    }
    startColumns();
    Count p = 0;
    for (Index r = 0; r < rows_; ++r) {
      for (; p < end[r]; ++p) append({r, byRow[p].col}, byRow[p].value, byRow[p].source);
    }
  }

  RowAt rowAt_;
  ColAt colAt_;
  const double* value_;
  std::size_t count_;
  Index rows_, cols_;
  Columns a_;
  std::vector<Count> next_;
  std::vector<Offset> source_;
  bool duplicates_ = false;
};

template <Part part, bool traced, class RowAt, class ColAt>
Columns counted(Index rows, Index cols, RowAt rowAt, ColAt colAt, const double* value,
                std::size_t count, std::vector<Offset>* slot) {
  if (count <= std::numeric_limits<std::uint32_t>::max()) {
    return Assembler<part, traced, std::uint32_t, RowAt, ColAt>(rows, cols, rowAt, colAt, value,
                                                                count)
        .run(slot);
  }
  return Assembler<part, traced, Offset, RowAt, ColAt>(rows, cols, rowAt, colAt, value, count)
      .run(slot);
}

template <Part part, class RowAt, class ColAt>
Columns traced(Index rows, Index cols, RowAt rowAt, ColAt colAt, const double* value,
               std::size_t count, std::vector<Offset>* slot) {
  if (slot == nullptr) return counted<part, false>(rows, cols, rowAt, colAt, value, count, slot);
  return counted<part, true>(rows, cols, rowAt, colAt, value, count, slot);
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
