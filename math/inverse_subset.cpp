#include "math/inverse_subset.h"

#include <algorithm>
#include <cstddef>

#include "math/simplicial_inverse.h"
#include "math/sparsemxmatrix.h"
#include "math/supernodal_inverse.h"

namespace korin {

InverseSubset::InverseSubset(const SimplicialFactor& factor)
    : factor_(factor), found_(findColumnGroups(factor)) {
  if (isEliminationPattern(factor_, found_)) {
    merged_ = mergeColumnGroups(found_);
    values_.assign(merged_.panelStart.back(), 0.0);
    gatherPanels(factor_, merged_, values_.data());
    panels_ = merged_.over(factor_.n, values_.data());
    supernodalInverse(panels_);
  } else {
    values_.resize(factor_.colStarts[factor_.n]);
    simplicialInverse(factor_, values_.data());
  }
}

void InverseSubset::diagonal(const unsigned int* perm, double* diagonal) const {
  if (merged_.count() > 0) return panelDiagonal(panels_, perm, diagonal);
  for (unsigned int k = 0; k < factor_.n; ++k) {
    const unsigned int p = factor_.colStarts[k];
    const bool present = p < factor_.colStarts[k + 1] && factor_.rowIndices[p] == k;
    diagonal[perm[k]] = present ? values_[p] : 0.0;
  }
}

void InverseSubset::mapTo(const unsigned int* perm, unsigned int* colStarts,
                          unsigned int* rowIndices, double* values) const {
  const unsigned int* starts = factor_.colStarts;
  colStarts[0] = 0;
  for (unsigned int k = 0; k < factor_.n; ++k) colStarts[perm[k] + 1] = starts[k + 1] - starts[k];
  for (unsigned int c = 0; c < factor_.n; ++c) colStarts[c + 1] += colStarts[c];

  // The columns of a group hold the same rows but those above their diagonals: one sort serves all.
  std::vector<IndexTracker<unsigned int>> order;
  std::vector<unsigned int> place;  // of each of the group's rows in a column of values_
  unsigned int panel = 0;
  for (unsigned int g = 0; g < found_.count(); ++g) {
    const unsigned int* rows = found_.rows.data() + found_.rowStart[g];
    const unsigned int height = found_.height(g);
    order.resize(height);
    place.resize(height);
    for (unsigned int i = 0; i < height; ++i) order[i] = {i, perm[rows[i]]};
    std::sort(order.begin(), order.end());

    const bool onPanels = merged_.count() > 0;
    std::size_t stride = 0;
    std::size_t base = 0;
    if (onPanels) {
      while (merged_.firstColumn[panel + 1] <= found_.firstColumn[g]) ++panel;
      const unsigned int* panelRows = merged_.rows.data() + merged_.rowStart[panel];
      stride = merged_.height(panel);
      base =
          merged_.panelStart[panel] + stride * (found_.firstColumn[g] - merged_.firstColumn[panel]);
      unsigned int at = 0;
      for (unsigned int i = 0; i < height; ++i) {
        while (panelRows[at] != rows[i]) ++at;
        place[i] = at;
      }
    } else {
      for (unsigned int i = 0; i < height; ++i) place[i] = i;
    }

    for (unsigned int c = found_.firstColumn[g]; c < found_.firstColumn[g + 1]; ++c) {
      const unsigned int local = c - found_.firstColumn[g];
      // Without panels the column starts with its diagonal, place `local`.
      const double* source = values_.data();
      const std::size_t offset = onPanels ? base + stride * local : starts[c] - std::size_t{local};
      unsigned int target = colStarts[perm[c]];
      for (const IndexTracker<unsigned int>& t : order) {
        rowIndices[target] = t.key;
        values[target++] = source[offset + place[t.position]];
      }
      order.erase(std::remove_if(order.begin(), order.end(),
                                 [local](const auto& t) { return t.position == local; }),
                  order.end());
    }
  }
}

}  // namespace korin
