#include "sparse/symbolic/placement.h"

#include <algorithm>
#include <cstddef>
#include <numeric>

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

}  // namespace

PlacedEntries place(const Symbolic& s, const ColumnsView& lower, std::vector<Offset>* slot) {
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
  placed.value.resize(entries);
  std::vector<Offset> next(placed.start.begin(), placed.start.end() - 1);
  std::vector<Offset> target(slot != nullptr ? entries : 0);
  for (Index j = 0; j < s.n; ++j) {
    const Index column = columnOf[j];
    Offset own = next[column];
    for (Offset p = lower.start[j]; p < lower.start[j + 1]; ++p) {
      const Index other = columnOf[lower.row[p]];
      const bool here = other >= column;
      const Offset at = here ? own++ : next[other]++;
      placed.position[at] = here ? other : column;
      placed.value[at] = lower.value[p];
      if (slot != nullptr) target[p] = at;
    }
    next[column] = own;
  }
  std::vector<Index> placeOf(static_cast<std::size_t>(s.n));
  for (Index g = 0; g < s.groups(); ++g) toPositions(s, g, placed, placeOf);
  if (slot != nullptr) {
    for (Offset& k : *slot) {
      if (k >= 0) k = target[k];
    }
  }
  return placed;
}

}  // namespace korin::sparse
