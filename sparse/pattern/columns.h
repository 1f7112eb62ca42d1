// Sparse matrices as compressed columns on plain arrays, and the integers of the sparse floor.
#ifndef ZEPH_SPARSE_PATTERN_COLUMNS_H
#define ZEPH_SPARSE_PATTERN_COLUMNS_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace korin::sparse {

/// A row or column; at most 2^31 - 1 of them.
using Index = std::int32_t;
/// A count of entries or a place among them: a factor may have more than 2^31.
using Offset = std::int64_t;
/// Stands for no row, column, node or group.
inline constexpr Index kNone = -1;

/// View of a matrix in compressed columns: column j has the rows row[p] and the values value[p] for
/// start[j] <= p < start[j+1]. Nothing is owned. `value` may be null where only the pattern counts.
struct ColumnsView {
  Index rows = 0;
  Index cols = 0;
  const Offset* start = nullptr;
  const Index* row = nullptr;
  const double* value = nullptr;

  Offset entries() const { return start[cols]; }
};

/// The same, owned; `value` is empty where only the pattern counts.
struct Columns {
  Index rows = 0;
  Index cols = 0;
  std::vector<Offset> start{0};
  std::vector<Index> row;
  std::vector<double> value;

  Offset entries() const { return start.back(); }
  std::span<const Index> rowsOf(Index j) const {
    return {row.data() + start[static_cast<std::size_t>(j)],
            row.data() + start[static_cast<std::size_t>(j) + 1]};
  }
  ColumnsView view() const {
    return {rows, cols, start.data(), row.data(), value.empty() ? nullptr : value.data()};
  }
};

}  // namespace korin::sparse

#endif
