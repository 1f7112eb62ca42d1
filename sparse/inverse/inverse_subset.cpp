#include "sparse/inverse/inverse_subset.h"

#include <algorithm>
#include <cstddef>
#include <span>
#include <vector>

#include "sparse/inverse/simplicial_inverse.h"
#include "sparse/inverse/supernodal_inverse.h"

namespace korin::sparse {

namespace {

/// Panels must promise a gain beyond the error of the estimates.
constexpr double kWorthPanels = 0.8;

/// A row of a group in the order of its index after the permutation, and its place in the columns
/// as they are stored.
struct MappedRow {
  unsigned int mapped;
  unsigned int row;
  unsigned int place;
};

/// rows = perm[row] for all rows of a group, ascending; `stored` holds them all, ascending as well.
void mapRows(std::span<const unsigned int> group, std::span<const unsigned int> stored,
             const unsigned int* perm, std::vector<MappedRow>& rows) {
  rows.clear();
  unsigned int place = 0;
  for (const unsigned int row : group) {
    while (stored[place] != row) ++place;
    rows.push_back({perm[row], row, place});
  }
  std::sort(rows.begin(), rows.end(),
            [](const MappedRow& a, const MappedRow& b) { return a.mapped < b.mapped; });
}

std::span<const unsigned int> rowsOf(const ColumnGroups& groups, unsigned int g) {
  return {groups.rows.data() + groups.rowStart[g], groups.height(g)};
}

}  // namespace

InverseSubset::InverseSubset(const ColumnsView& factor, FactorPattern pattern) : factor_(factor) {
  if (preparePanels(pattern)) {
    storage_ = kernels::zeroPanels(merged_.panelStart.back());
    panels_ = merged_.over(static_cast<unsigned int>(factor_.cols), storage_.get());
    gatherPanels(factor_, panels_);
    supernodalInverse(panels_);
  } else {
    merged_ = {};
    storage_ = kernels::zeroPanels(static_cast<std::size_t>(factor_.entries()));
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
  for (Index k = 0; k < factor_.cols; ++k) {
    const Offset p = factor_.start[k];
    const bool present = p < factor_.start[k + 1] && factor_.row[p] == k;
    diagonal[perm[k]] = present ? storage_[p] : 0.0;
  }
}

void InverseSubset::mapTo(const unsigned int* perm, unsigned int* colStarts,
                          unsigned int* rowIndices, double* values) const {
  const auto n = static_cast<unsigned int>(factor_.cols);
  colStarts[0] = 0;
  for (unsigned int k = 0; k < n; ++k) {
    colStarts[perm[k] + 1] = static_cast<unsigned int>(factor_.start[k + 1] - factor_.start[k]);
  }
  for (unsigned int c = 0; c < n; ++c) colStarts[c + 1] += colStarts[c];

  ColumnGroups lateFound;
  if (found_.count() == 0) lateFound = findColumnGroups(factor_);
  const ColumnGroups& groups = found_.count() == 0 ? lateFound : found_;
  std::vector<MappedRow> rows;
  unsigned int panel = 0;
  for (unsigned int g = 0; g < groups.count(); ++g) {
    // The columns of a group hold the same rows but those above their diagonals: one sort serves
    // all.
    const unsigned int first = groups.firstColumn[g];
    if (onPanels()) {
      while (merged_.firstColumn[panel + 1] <= first) ++panel;
    }
    const std::span<const unsigned int> own = rowsOf(groups, g);
    mapRows(own, onPanels() ? rowsOf(merged_, panel) : own, perm, rows);
    for (unsigned int k = first; k < groups.firstColumn[g + 1]; ++k) {
      const double* column = onPanels() ? panelColumn(panel, k) : factorColumn(first, k);
      unsigned int target = colStarts[perm[k]];
      for (const MappedRow& r : rows) {
        if (r.row < k) continue;
        rowIndices[target] = r.mapped;
        values[target++] = column[r.place];
      }
    }
  }
}

const double* InverseSubset::panelColumn(unsigned int panel, unsigned int k) const {
  return storage_.get() + merged_.panelStart[panel] +
         std::size_t{merged_.height(panel)} * (k - merged_.firstColumn[panel]);
}

/// In the factor's own layout, a column starts with its diagonal entry: place k - first of the rows
/// of the group that begins with column `first`.
const double* InverseSubset::factorColumn(unsigned int first, unsigned int k) const {
  return storage_.get() + factor_.start[k] - (k - first);
}

}  // namespace korin::sparse
