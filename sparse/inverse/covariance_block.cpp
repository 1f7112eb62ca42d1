#include "sparse/inverse/covariance_block.h"

#include <algorithm>
#include <numeric>
#include <utility>
#include <vector>

#include "kernels/products/tiled_product.h"
#include "sparse/numeric/panel_solve.h"
#include "sparse/numeric/solve.h"

namespace korin::sparse {
namespace {

using std::ptrdiff_t;
using std::size_t;

/// Largest dense table of columns of L^-1, in doubles; beyond it A^-1 is solved for in blocks.
constexpr double kLargestTable = 3.2e7;

/// Columns of L^-1 that belong to some unknowns, on the paths from these to their roots.
class PathColumns {
 public:
  /// `positions` are rows of L, ascending.
  PathColumns(const Symbolic& symbolic, const FactorPanels& panels, std::vector<Index> positions)
      : s_(symbolic),
        panels_(panels),
        positions_(std::move(positions)),
        start_(static_cast<size_t>(symbolic.groups()), -1) {
    for (const Index p : positions_) {
      for (Index g = s_.groupOf[p]; g >= 0 && start_[g] < 0; g = s_.parent[g]) {
        start_[g] = 0;
        groups_.push_back(g);
      }
    }
    std::sort(groups_.begin(), groups_.end());
    for (const Index g : groups_) {
      start_[g] = length_;
      length_ += s_.width(g);
    }
  }

  /// Rows of L on the paths.
  Index length() const { return length_; }
  Index count() const { return static_cast<Index>(positions_.size()); }
  Index placeOf(Index position) const {
    const Index g = s_.groupOf[position];
    return start_[g] + position - s_.firstColumn[g];
  }

  /// Row i of the table, `length` values, becomes the column that belongs to position i.
  void fill(std::vector<double>& table, kernels::Team& team) const {
    table.assign(static_cast<size_t>(count()) * static_cast<size_t>(length_), 0.0);
    const Sides all{count(), table.data(), static_cast<size_t>(length_)};
    for (Index i = 0; i < count(); ++i) all.row(i)[placeOf(positions_[i])] = 1.0;
    forBlocks(count(), team, [&](Index first, Index together) {
      forward(first, {together, all.row(first), all.stride});
    });
  }

 private:
  void forward(Index first, Sides block) const {
    std::vector<double> sums;
    std::vector<Index> place;
    const auto begin = positions_.begin() + first;
    for (const Index g : groups_) {
      // Those whose path goes through g stand together.
      const Index lowest = s_.firstColumn[s_.firstDescendant[g]];
      const Index from =
          static_cast<Index>(std::lower_bound(begin, begin + block.count, lowest) - begin);
      const Index to = static_cast<Index>(
          std::lower_bound(begin, begin + block.count, s_.firstColumn[g + 1]) - begin);
      if (from == to) continue;
      const Sides active{to - from, block.row(from), block.stride};
      const auto h = static_cast<size_t>(s_.height(g));
      const Index width = s_.width(g);
      const auto below = static_cast<size_t>(s_.below(g));
      const double* const panel = panels_.of(s_, g);
      const Sides own = active.from(static_cast<size_t>(start_[g]));
      solveSquare(panel, h, width, own);
      if (below == 0) continue;
      sums.assign(static_cast<size_t>(active.count) * below, 0.0);
      subtractForward(own, below, static_cast<size_t>(width), panel + width, h,
                      {active.count, sums.data(), below});
      place.resize(below);
      for (size_t i = 0; i < below; ++i)
        place[i] = placeOf(s_.rowsOf(g)[width + static_cast<Index>(i)]);
      for (Index s = 0; s < active.count; ++s) {
        double* const v = active.row(s);
        const double* const sum = sums.data() + static_cast<size_t>(s) * below;
        for (size_t i = 0; i < below; ++i) v[place[i]] += sum[i];
      }
    }
  }

  const Symbolic& s_;
  const FactorPanels panels_;
  const std::vector<Index> positions_;
  /// Where the columns of a group on a path stand in the table; -1 for the others.
  std::vector<Index> start_;
  std::vector<Index> groups_;
  Index length_ = 0;
};

/// order[k] is the place in `indices` of the k-th in the order of elimination.
std::vector<Index> eliminationOrder(const Symbolic& s, Index count, const Index* indices,
                                    std::vector<Index>& positions) {
  std::vector<Index> inverse(static_cast<size_t>(s.n));
  for (Index k = 0; k < s.n; ++k) inverse[s.permutation[k]] = k;
  std::vector<Index> order(static_cast<size_t>(count));
  std::iota(order.begin(), order.end(), 0);
  std::sort(order.begin(), order.end(), [&](Index a, Index b) {
    const Index pa = inverse[indices[a]];
    const Index pb = inverse[indices[b]];
    return pa != pb ? pa < pb : a < b;
  });
  positions.resize(static_cast<size_t>(count));
  for (Index k = 0; k < count; ++k) positions[k] = inverse[indices[order[k]]];
  return order;
}

/// Rows and columns `indices` of A^-1 by solving for the columns in blocks.
void covarianceBySolving(const Symbolic& s, const FactorPanels& panels, Index count,
                         const Index* indices, double* block, kernels::Team& team,
                         const ColumnsThatFit& fit) {
  const auto n = static_cast<size_t>(s.n);
  Index together = std::min(count, kTogether * std::max(1, team.threads()));
  if (fit) {
    together = fit(together, [&](Index columns) {
      return sizeof(double) * static_cast<double>(n) * columns +
             solveMemory(s, columns, team.threads());
    });
  }
  std::vector<double> x;
  for (Index first = 0; first < count; first += together) {
    const Index columns = std::min(together, count - first);
    x.assign(n * static_cast<size_t>(columns), 0.0);
    for (Index c = 0; c < columns; ++c) x[static_cast<size_t>(c) * n + indices[first + c]] = 1.0;
    solve(s, panels, columns, x.data(), team);
    for (Index c = 0; c < columns; ++c) {
      const Index j = first + c;
      for (Index i = j; i < count; ++i) {
        const double value = x[static_cast<size_t>(c) * n + indices[i]];
        block[static_cast<size_t>(j) * static_cast<size_t>(count) + i] = value;
        block[static_cast<size_t>(i) * static_cast<size_t>(count) + j] = value;
      }
    }
  }
}

}  // namespace

void covarianceBlock(const Symbolic& symbolic, const FactorPanels& panels, Index count,
                     const Index* indices, double* block, kernels::Team& team,
                     const ColumnsThatFit& fit) {
  std::vector<Index> positions;
  const std::vector<Index> order = eliminationOrder(symbolic, count, indices, positions);
  const PathColumns columns(symbolic, panels, positions);
  const double entries = static_cast<double>(count) * columns.length();
  if (entries > kLargestTable) {
    return covarianceBySolving(symbolic, panels, count, indices, block, team, fit);
  }
  if (fit)
    fit(1, [&](Index) {
      return sizeof(double) *
             (entries + static_cast<double>(count) * kTogether * std::max(1, team.threads()));
    });
  std::vector<double> table;
  columns.fill(table, team);
  const auto length = static_cast<size_t>(columns.length());
  const auto step = static_cast<ptrdiff_t>(length);
  // Entry (i, j) is the product of two columns of L^-1; the later one begins at its own place.
  forBlocks(count, team, [&](Index first, Index together) {
    const auto rows = static_cast<size_t>(first) + static_cast<size_t>(together);
    std::vector<double> products(rows * static_cast<size_t>(together));
    const auto begin = static_cast<size_t>(columns.placeOf(positions[first]));
    const kernels::ConstBlock all{table.data() + begin, step, 1};
    kernels::dotProduct(static_cast<size_t>(together), rows, length - begin,
                        all.at(static_cast<size_t>(first), 0), all.transposed(),
                        {products.data(), static_cast<ptrdiff_t>(rows), 1}, kernels::kTileFresh);
    for (Index j = first; j < first + together; ++j) {
      for (Index i = 0; i <= j; ++i) {
        const double value = products[static_cast<size_t>(j - first) * rows + i];
        block[static_cast<size_t>(order[i]) * static_cast<size_t>(count) + order[j]] = value;
        block[static_cast<size_t>(order[j]) * static_cast<size_t>(count) + order[i]] = value;
      }
    }
  });
}

}  // namespace korin::sparse
