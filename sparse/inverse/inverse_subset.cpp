#include "sparse/inverse/inverse_subset.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "sparse/inverse/simplicial_inverse.h"
#include "sparse/inverse/supernodal_inverse.h"

namespace korin::sparse {

namespace {

/// Panels must promise a gain beyond the error of the estimates.
constexpr double kWorthPanels = 0.8;

/// A row of a group: where it stands among the group's rows, and its index after the permutation.
struct Tracker {
  unsigned int position;
  unsigned int key;
  friend bool operator<(const Tracker& a, const Tracker& b) { return a.key < b.key; }
};

/// places[i] = where rows[i] is among the panel's rows, which hold them all.
void findPlaces(const unsigned int* rows, unsigned int count, const unsigned int* panelRows,
                std::vector<unsigned int>& places) {
  places.resize(count);
  unsigned int at = 0;
  for (unsigned int i = 0; i < count; ++i) {
    while (panelRows[at] != rows[i]) ++at;
    places[i] = at;
  }
}

void dropPosition(std::vector<Tracker>& order, unsigned int position) {
  const auto match = [position](const Tracker& t) { return t.position == position; };
  order.erase(std::find_if(order.begin(), order.end(), match));
}

}  // namespace

InverseSubset::InverseSubset(const SimplicialFactor& factor, FactorPattern pattern)
    : factor_(factor) {
  if (preparePanels(pattern)) {
    storage_ = kernels::zeroPanels(merged_.panelStart.back());
    panels_ = merged_.over(factor_.n, storage_.get());
    gatherPanels(factor_, panels_);
    supernodalInverse(panels_);
  } else {
    merged_ = {};
    storage_ = kernels::zeroPanels(factor_.colStarts[factor_.n]);
    simplicialInverse(factor_, storage_.get());
  }
}

/// Finds the groups where panels pay, which a sketch tells before any row is read.
bool InverseSubset::preparePanels(FactorPattern pattern) {
  const std::vector<GroupSketch> sketch = sketchGroups(factor_);
  const std::vector<GroupSketch> merged = mergeGroups(sketch);
  if (estimatedTime(merged) >= kWorthPanels * estimatedTime(factor_)) return false;
  if (pattern == FactorPattern::Any) {
    found_ = findColumnGroups(factor_);
    if (found_.count() != sketch.size() || !isEliminationPattern(factor_, found_)) return false;
  }
  merged_ = columnGroups(factor_, merged);
  return true;
}

void InverseSubset::diagonal(const unsigned int* perm, double* diagonal) const {
  if (onPanels()) return panelDiagonal(panels_, perm, diagonal);
  for (unsigned int k = 0; k < factor_.n; ++k) {
    const unsigned int p = factor_.colStarts[k];
    const bool present = p < factor_.colStarts[k + 1] && factor_.rowIndices[p] == k;
    diagonal[perm[k]] = present ? storage_[p] : 0.0;
  }
}

void InverseSubset::mapTo(const unsigned int* perm, unsigned int* colStarts,
                          unsigned int* rowIndices, double* values) const {
  const unsigned int* starts = factor_.colStarts;
  colStarts[0] = 0;
  for (unsigned int k = 0; k < factor_.n; ++k) colStarts[perm[k] + 1] = starts[k + 1] - starts[k];
  for (unsigned int c = 0; c < factor_.n; ++c) colStarts[c + 1] += colStarts[c];

  // The columns of a group hold the same rows but those above their diagonals: one sort serves all.
  ColumnGroups lateFound;
  if (found_.count() == 0) lateFound = findColumnGroups(factor_);
  const ColumnGroups& groups = found_.count() == 0 ? lateFound : found_;
  std::vector<Tracker> order;
  std::vector<unsigned int> places;
  unsigned int panel = 0;
  for (unsigned int g = 0; g < groups.count(); ++g) {
    const unsigned int* rows = groups.rows.data() + groups.rowStart[g];
    order.resize(groups.height(g));
    for (unsigned int i = 0; i < order.size(); ++i) order[i] = {i, perm[rows[i]]};
    std::sort(order.begin(), order.end());
    unsigned int firstPlace = 0;
    const unsigned int firstColumn = groups.firstColumn[g];
    if (onPanels()) {
      while (merged_.firstColumn[panel + 1] <= firstColumn) ++panel;
      firstPlace = firstColumn - merged_.firstColumn[panel];
      findPlaces(rows, groups.height(g), merged_.rows.data() + merged_.rowStart[panel], places);
      for (Tracker& t : order) t.position = places[t.position];
    }
    for (unsigned int c = firstColumn; c < groups.firstColumn[g + 1]; ++c) {
      const unsigned int diagonalPlace = firstPlace + (c - firstColumn);
      // In the factor's own layout a column starts with its diagonal entry.
      const std::size_t source =
          onPanels() ? merged_.panelStart[panel] +
                           std::size_t{merged_.height(panel)} * (c - merged_.firstColumn[panel])
                     : std::size_t{starts[c]} - diagonalPlace;
      unsigned int target = colStarts[perm[c]];
      for (const Tracker& t : order) {
        rowIndices[target] = t.key;
        values[target++] = storage_[source + t.position];
      }
      if (c + 1 < groups.firstColumn[g + 1]) dropPosition(order, diagonalPlace);
    }
  }
}

}  // namespace korin::sparse
