#include "sparse/numeric/solve.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <vector>

#include "kernels/products/tiled_product.h"

namespace korin::sparse {
namespace {

using std::ptrdiff_t;
using std::size_t;

/// Right-hand sides that go through the panels together: a panel's entry is read once for all.
constexpr Index kTogether = 16;
/// Columns of a panel's triangle that are solved by plain loops.
constexpr Index kTriangle = 32;
/// Largest dense table of columns of L^-1, in doubles; beyond it A^-1 is solved for in blocks.
constexpr double kLargestTable = 3.2e7;

/// Rows of values, one a right-hand side, `stride` apart.
struct Sides {
  Index count;
  double* data;
  size_t stride;
  double* row(Index s) const { return data + static_cast<size_t>(s) * stride; }
  Sides from(size_t first) const { return {count, data + first, stride}; }
  kernels::Block block() const { return {data, static_cast<ptrdiff_t>(stride), 1}; }
};

/// y = y - x M^T for the rows of x and y, with M column-major, rows x columns. The sums are those
/// of the fused tiles, whose bits do not depend on how many rows there are.
void subtractForward(Sides x, size_t rows, size_t columns, const double* m, size_t stride,
                     Sides y) {
  kernels::tiledProduct(kernels::TileFamily::Fused, static_cast<size_t>(y.count), rows, columns,
                        x.block(), {m, static_cast<ptrdiff_t>(stride), 1}, y.block(),
                        kernels::kTileUpdate | kernels::kTileNegate);
}

/// y = y - x M, likewise.
void subtractBackward(Sides x, size_t rows, size_t columns, const double* m, size_t stride,
                      Sides y) {
  kernels::dotProduct(static_cast<size_t>(y.count), columns, rows, x.block(),
                      {m, 1, static_cast<ptrdiff_t>(stride)}, y.block(),
                      kernels::kTileUpdate | kernels::kTileNegate);
}

/// x = L11^-1 x for each right-hand side, with L11 the top square of a panel.
void solveSquare(const double* l, size_t stride, Index width, Sides x) {
  for (Index first = 0; first < width; first += kTriangle) {
    const Index end = std::min(first + kTriangle, width);
    for (Index s = 0; s < x.count; ++s) {
      double* const v = x.row(s);
      for (Index j = first; j < end; ++j) {
        const double* const column = l + static_cast<size_t>(j) * stride;
        const double value = v[j] / column[j];
        v[j] = value;
        for (Index i = j + 1; i < end; ++i) v[i] -= column[i] * value;
      }
    }
    subtractForward(x.from(static_cast<size_t>(first)), static_cast<size_t>(width - end),
                    static_cast<size_t>(end - first), l + static_cast<size_t>(first) * stride + end,
                    stride, x.from(static_cast<size_t>(end)));
  }
}

/// x = L11^-T x.
void solveSquareTransposed(const double* l, size_t stride, Index width, Sides x) {
  for (Index end = width; end > 0;) {
    const Index first = (end - 1) / kTriangle * kTriangle;
    subtractBackward(x.from(static_cast<size_t>(end)), static_cast<size_t>(width - end),
                     static_cast<size_t>(end - first),
                     l + static_cast<size_t>(first) * stride + end, stride,
                     x.from(static_cast<size_t>(first)));
    for (Index s = 0; s < x.count; ++s) {
      double* const v = x.row(s);
      for (Index j = end; j-- > first;) {
        const double* const column = l + static_cast<size_t>(j) * stride;
        double sum = v[j];
        for (Index i = j + 1; i < end; ++i) sum -= column[i] * v[i];
        v[j] = sum / column[j];
      }
    }
    end = first;
  }
}

/// The panels and what a block of right-hand sides needs beside itself.
class BlockSolver {
 public:
  BlockSolver(const Symbolic& symbolic, const double* panels)
      : s_(symbolic), panels_(panels), below_(0) {
    for (Index g = 0; g < s_.groups(); ++g) below_ = std::max(below_, s_.below(g));
  }

  /// The rows below a group, gathered for each right-hand side.
  size_t room(Index count) const {
    return static_cast<size_t>(count) * static_cast<size_t>(below_);
  }

  /// x = L^-1 x in the factor's numbers.
  void forward(Sides x, std::vector<double>& room) const {
    for (Index g = 0; g < s_.groups(); ++g) {
      const auto h = static_cast<size_t>(s_.height(g));
      const Index width = s_.width(g);
      const Index below = s_.below(g);
      const double* const panel = panels_ + s_.panelStart[g];
      const Sides own = x.from(static_cast<size_t>(s_.firstColumn[g]));
      solveSquare(panel, h, width, own);
      if (below == 0) continue;
      const Index* const rows = s_.rowsOf(g) + width;
      const Sides part{x.count, room.data(), static_cast<size_t>(below)};
      std::fill_n(room.begin(), static_cast<size_t>(x.count) * part.stride, 0.0);
      subtractForward(own, part.stride, static_cast<size_t>(width), panel + width, h, part);
      for (Index s = 0; s < x.count; ++s) {
        double* const v = x.row(s);
        const double* const sum = part.row(s);
        for (Index i = 0; i < below; ++i) v[rows[i]] += sum[i];
      }
    }
  }

  /// x = L^-T x.
  void backward(Sides x, std::vector<double>& room) const {
    for (Index g = s_.groups(); g-- > 0;) {
      const auto h = static_cast<size_t>(s_.height(g));
      const Index width = s_.width(g);
      const Index below = s_.below(g);
      const double* const panel = panels_ + s_.panelStart[g];
      const Sides own = x.from(static_cast<size_t>(s_.firstColumn[g]));
      if (below != 0) {
        const Index* const rows = s_.rowsOf(g) + width;
        const Sides part{x.count, room.data(), static_cast<size_t>(below)};
        for (Index s = 0; s < x.count; ++s) {
          const double* const v = x.row(s);
          double* const gathered = part.row(s);
          for (Index i = 0; i < below; ++i) gathered[i] = v[rows[i]];
        }
        subtractBackward(part, part.stride, static_cast<size_t>(width), panel + width, h, own);
      }
      solveSquareTransposed(panel, h, width, own);
    }
  }

 private:
  const Symbolic& s_;
  const double* const panels_;
  Index below_;
};

/// Has work(first, count) done for blocks of right-hand sides by the team.
template <class Work>
void forBlocks(Index count, kernels::Team& team, const Work& work) {
  team.forEach((count + kTogether - 1) / kTogether, [&](int block) {
    const Index first = block * kTogether;
    work(first, std::min(kTogether, count - first));
  });
}

/// Columns of L^-1 that belong to some unknowns, on the paths from these to their roots.
class PathColumns {
 public:
  /// `positions` are rows of L, ascending.
  PathColumns(const Symbolic& symbolic, const double* panels, std::vector<Index> positions)
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
      const double* const panel = panels_ + s_.panelStart[g];
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
  const double* const panels_;
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
void covarianceBySolving(const Symbolic& s, const double* panels, Index count, const Index* indices,
                         double* block, kernels::Team& team) {
  const auto n = static_cast<size_t>(s.n);
  const Index together = kTogether * std::max(1, team.threads());
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

void solve(const Symbolic& symbolic, const double* panels, Index count, double* x,
           kernels::Team& team) {
  const auto n = static_cast<size_t>(symbolic.n);
  const BlockSolver solver(symbolic, panels);
  forBlocks(count, team, [&](Index first, Index together) {
    std::vector<double> permuted(n * static_cast<size_t>(together));
    std::vector<double> room(solver.room(together));
    const Sides sides{together, permuted.data(), n};
    for (Index s = 0; s < together; ++s) {
      const double* const from = x + static_cast<size_t>(first + s) * n;
      for (size_t k = 0; k < n; ++k) sides.row(s)[k] = from[symbolic.permutation[k]];
    }
    solver.forward(sides, room);
    solver.backward(sides, room);
    for (Index s = 0; s < together; ++s) {
      double* const to = x + static_cast<size_t>(first + s) * n;
      for (size_t k = 0; k < n; ++k) to[symbolic.permutation[k]] = sides.row(s)[k];
    }
  });
}

void solveTransposed(const Symbolic& symbolic, const double* panels, Index count, double* x,
                     kernels::Team& team) {
  const auto n = static_cast<size_t>(symbolic.n);
  const BlockSolver solver(symbolic, panels);
  forBlocks(count, team, [&](Index first, Index together) {
    std::vector<double> solved(x + static_cast<size_t>(first) * n,
                               x + static_cast<size_t>(first + together) * n);
    std::vector<double> room(solver.room(together));
    const Sides sides{together, solved.data(), n};
    solver.backward(sides, room);
    for (Index s = 0; s < together; ++s) {
      double* const to = x + static_cast<size_t>(first + s) * n;
      for (size_t k = 0; k < n; ++k) to[symbolic.permutation[k]] = sides.row(s)[k];
    }
  });
}

double logDeterminant(const Symbolic& symbolic, const double* panels) {
  double sum = 0.0;
  for (Index g = 0; g < symbolic.groups(); ++g) {
    const Offset height = symbolic.height(g);
    for (Index c = 0; c < symbolic.width(g); ++c) {
      sum += std::log(panels[symbolic.panelStart[g] + c * (height + 1)]);
    }
  }
  return 2.0 * sum;
}

void covarianceBlock(const Symbolic& symbolic, const double* panels, Index count,
                     const Index* indices, double* block, kernels::Team& team) {
  std::vector<Index> positions;
  const std::vector<Index> order = eliminationOrder(symbolic, count, indices, positions);
  const PathColumns columns(symbolic, panels, positions);
  if (static_cast<double>(count) * columns.length() > kLargestTable) {
    return covarianceBySolving(symbolic, panels, count, indices, block, team);
  }
  std::vector<double> table;
  columns.fill(table, team);
  const auto length = static_cast<size_t>(columns.length());
  const auto step = static_cast<ptrdiff_t>(length);
  // Entry (i, j) is the product of two columns of L^-1; the later one begins at its own place.
  forBlocks(count, team, [&](Index first, Index together) {
    const auto rows = static_cast<size_t>(first + together);
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
