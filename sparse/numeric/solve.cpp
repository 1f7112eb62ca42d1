#include "sparse/numeric/solve.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "sparse/numeric/panel_solve.h"

namespace korin::sparse {
namespace {

using std::size_t;

/// Some milliseconds.
constexpr Offset kEntriesPerCheckpoint = 10'000'000;

/// The panels and what a block of right-hand sides needs beside itself.
class BlockSolver {
 public:
  BlockSolver(const Symbolic& symbolic, const FactorPanels& panels, kernels::Team& team)
      : s_(symbolic), panels_(panels), team_(team), below_(0) {
    for (Index g = 0; g < s_.groups(); ++g) below_ = std::max(below_, s_.below(g));
  }

  /// The rows below a group, gathered for each right-hand side.
  size_t room(Index count) const {
    return static_cast<size_t>(count) * static_cast<size_t>(below_);
  }

  /// x = L^-1 x in the factor's numbers.
  void forward(Sides x, std::vector<double>& room) const {
    Offset read = 0;
    for (Index g = 0; g < eliminated(); ++g) {
      checkpoint(g, x.count, read);
      const auto h = static_cast<size_t>(s_.height(g));
      const Index width = s_.width(g);
      const Index below = s_.below(g);
      const double* const panel = panels_.of(s_, g);
      const Sides own = x.from(static_cast<size_t>(s_.firstColumn[g]));
      solveSquare(panel, h, width, own);
      if (below == 0) {
        panels_.passedForward(s_, g);
        continue;
      }
      const Index* const rows = s_.rowsOf(g) + width;
      const Sides part{x.count, room.data(), static_cast<size_t>(below)};
      std::fill_n(room.begin(), static_cast<size_t>(x.count) * part.stride, 0.0);
      subtractForward(own, part.stride, static_cast<size_t>(width), panel + width, h, part);
      panels_.passedForward(s_, g);
      for (Index s = 0; s < x.count; ++s) {
        double* const v = x.row(s);
        const double* const sum = part.row(s);
        for (Index i = 0; i < below; ++i) v[rows[i]] += sum[i];
      }
    }
  }

  /// x = L^-T x.
  void backward(Sides x, std::vector<double>& room) const {
    Offset read = 0;
    for (Index g = eliminated(); g-- > 0;) {
      checkpoint(g, x.count, read);
      const auto h = static_cast<size_t>(s_.height(g));
      const Index width = s_.width(g);
      const Index below = s_.below(g);
      const double* const panel = panels_.of(s_, g);
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
      panels_.passedBackward(s_, g);
    }
  }

 private:
  Index eliminated() const { return s_.groups() - (s_.kept > 0 ? 1 : 0); }

  /// Looks whether to stop after so many entries of panels and right-hand sides.
  void checkpoint(Index g, Index count, Offset& read) const {
    read += s_.panelSize(g) * count;
    if (read < kEntriesPerCheckpoint) return;
    team_.checkpoint();
    read = 0;
  }

  const Symbolic& s_;
  const FactorPanels panels_;
  kernels::Team& team_;
  Index below_;
};

}  // namespace

double solveMemory(const Symbolic& symbolic, Index count, int threads) {
  Index below = 0;
  for (Index g = 0; g < symbolic.groups(); ++g) below = std::max(below, symbolic.below(g));
  const double blocks = std::ceil(static_cast<double>(count) / kTogether);
  return std::min<double>(blocks, threads) * std::min(count, kTogether) * sizeof(double) *
         (static_cast<double>(symbolic.n) + below);
}

void solve(const Symbolic& symbolic, const FactorPanels& panels, Index count, double* x,
           kernels::Team& team) {
  const auto n = static_cast<size_t>(symbolic.n);
  const BlockSolver solver(symbolic, panels, team);
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

void solveForward(const Symbolic& symbolic, const FactorPanels& panels, Index count, double* x,
                  kernels::Team& team) {
  const auto n = static_cast<size_t>(symbolic.n);
  const BlockSolver solver(symbolic, panels, team);
  forBlocks(count, team, [&](Index first, Index together) {
    const std::vector<double> given(x + static_cast<size_t>(first) * n,
                                    x + static_cast<size_t>(first + together) * n);
    std::vector<double> room(solver.room(together));
    const Sides sides{together, x + static_cast<size_t>(first) * n, n};
    for (Index s = 0; s < together; ++s) {
      const double* const from = given.data() + static_cast<size_t>(s) * n;
      for (size_t k = 0; k < n; ++k) sides.row(s)[k] = from[symbolic.permutation[k]];
    }
    solver.forward(sides, room);
  });
}

void solveTransposed(const Symbolic& symbolic, const FactorPanels& panels, Index count, double* x,
                     kernels::Team& team) {
  const auto n = static_cast<size_t>(symbolic.n);
  const BlockSolver solver(symbolic, panels, team);
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

double logDeterminant(const Symbolic& symbolic, const FactorPanels& panels) {
  double sum = 0.0;
  for (Index g = 0; g < symbolic.groups(); ++g) {
    if (symbolic.isKept(g)) continue;
    const Offset height = symbolic.height(g);
    for (Index c = 0; c < symbolic.width(g); ++c) {
      sum += std::log(panels.of(symbolic, g)[c * (height + 1)]);
    }
    panels.passedForward(symbolic, g);
  }
  return 2.0 * sum;
}

}  // namespace korin::sparse
