#include "sparse/symbolic/placement.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <numeric>
#include <utility>

#include "sparse/symbolic/elimination_tree.h"

namespace korin::sparse {
namespace {

/// Row indices of the columns of group g become places in its panel. `placeOf` is scratch for the n
/// rows.
void toPositions(const Symbolic& s, Index g, PlacedEntries& placed, std::vector<Index>& placeOf) {
  const Index* rows = s.rowsOf(g);
  for (Index k = 0; k < s.height(g); ++k) placeOf[rows[k]] = k;
  const Offset end = placed.start[s.firstColumn[g + 1]];
  for (Offset p = placed.start[s.firstColumn[g]]; p < end; ++p) {
    placed.position[p] = placeOf[placed.position[p]];
  }
}

/// `target`, where given, gets for each entry of `lower` its place in the result.
template <class Count>
void placeEntries(const std::vector<Index>& columnOf, const ColumnsView& lower,
                  PlacedEntries& placed, std::vector<Count>* target) {
  std::vector<Offset> next(placed.start.begin(), placed.start.end() - 1);
  for (Index j = 0; j < lower.cols; ++j) {
    const Index column = columnOf[j];
    Offset own = next[column];
    for (Offset p = lower.start[j]; p < lower.start[j + 1]; ++p) {
      const Index other = columnOf[lower.row[p]];
      const bool here = other >= column;
      const Offset at = here ? own++ : next[other]++;
      placed.position[at] = here ? other : column;
      if (lower.value != nullptr) placed.value[at] = lower.value[p];
      if (target != nullptr) (*target)[p] = static_cast<Count>(at);
    }
    next[column] = own;
  }
}

template <class Count>
void placeEntries(const std::vector<Index>& columnOf, const ColumnsView& lower,
                  PlacedEntries& placed, Slots& slots) {
  // One place at least, for mirrored entries that name none.
  std::vector<Count> target(placed.position.size() + 1);
  placeEntries(columnOf, lower, placed, &target);
  slots = std::move(slots).moved(
      [&target](Offset at) { return static_cast<Offset>(target[static_cast<std::size_t>(at)]); });
}

}  // namespace

PlacedEntries place(const Symbolic& s, const ColumnsView& lower, Slots* slots) {
  const std::vector<Index> columnOf = inverseOrder(s.permutation);
  PlacedEntries placed;
  placed.start.assign(static_cast<std::size_t>(s.n) + 1, 0);
  for (Index j = 0; j < s.n; ++j) {
    const Index column = columnOf[j];
    Offset own = 0;
    for (Offset p = lower.start[j]; p < lower.start[j + 1]; ++p) {
      const Index other = columnOf[lower.row[p]];
      if (other >= column) {
        ++own;
      } else {
        ++placed.start[other + 1];
      }
    }
    placed.start[column + 1] += own;
  }
  std::partial_sum(placed.start.begin(), placed.start.end(), placed.start.begin());

  const auto entries = static_cast<std::size_t>(lower.entries());
  placed.position.resize(entries);
  if (lower.value != nullptr) placed.value.resize(entries);
  if (slots == nullptr) {
    placeEntries(columnOf, lower, placed, static_cast<std::vector<Offset>*>(nullptr));
  } else if (entries < std::numeric_limits<std::uint32_t>::max()) {
    placeEntries<std::uint32_t>(columnOf, lower, placed, *slots);
  } else {
    placeEntries<Offset>(columnOf, lower, placed, *slots);
  }
  std::vector<Index> placeOf(static_cast<std::size_t>(s.n));
  for (Index g = 0; g < s.groups(); ++g) toPositions(s, g, placed, placeOf);
  return placed;
}

}  // namespace korin::sparse
