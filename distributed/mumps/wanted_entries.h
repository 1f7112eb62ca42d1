#ifndef ZEPH_DISTRIBUTED_MUMPS_WANTED_ENTRIES_H
#define ZEPH_DISTRIBUTED_MUMPS_WANTED_ENTRIES_H

#include <mumps_c_types.h>

#include <compare>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace zeph::distributed {

/// A place in an inverse; column after column in order.
struct WantedPlace {
  std::uint32_t col, row;
  auto operator<=>(const WantedPlace&) const = default;
};

/// Entries of an inverse that are asked for, each once, column after column, as MUMPS takes them.
class WantedEntries {
 public:
  /// None of an inverse of order n.
  explicit WantedEntries(std::size_t n = 0) : starts(n + 1, 1) {}
  /// In any order, with duplicates. O(n + count log(count)). Throws Error(Unfit) where they are
  /// more than MUMPS counts, 2³¹ - 2.
  void set(std::vector<WantedPlace> places);
  /// The value at a place that was set.
  double at(std::size_t row, std::size_t col) const;

  /// Those of column j are starts[j] - 1 .. starts[j+1] - 2; rows counted from 1.
  std::vector<MUMPS_INT> starts, rows;
  std::vector<double> values;
};

}  // namespace zeph::distributed

#endif
