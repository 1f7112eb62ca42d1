// The steps of triangular solves with one panel, for several right-hand sides at once. The bits
// that belong to a right-hand side do not depend on the others.
#ifndef ZEPH_SPARSE_NUMERIC_PANEL_SOLVE_H
#define ZEPH_SPARSE_NUMERIC_PANEL_SOLVE_H

#include <algorithm>
#include <cstddef>

#include "kernels/block.h"
#include "kernels/team.h"
#include "sparse/pattern/columns.h"

namespace korin::sparse {

/// Rows of values, one a right-hand side, `stride` apart.
struct Sides {
  Index count;
  double* data;
  std::size_t stride;
  double* row(Index s) const { return data + static_cast<std::size_t>(s) * stride; }
  Sides from(std::size_t first) const { return {count, data + first, stride}; }
  kernels::Block block() const { return {data, static_cast<std::ptrdiff_t>(stride), 1}; }
};

/// y = y - x M^T for the rows of x and y, with M column-major, rows x columns.
void subtractForward(Sides x, std::size_t rows, std::size_t columns, const double* m,
                     std::size_t stride, Sides y);

/// y = y - x M.
void subtractBackward(Sides x, std::size_t rows, std::size_t columns, const double* m,
                      std::size_t stride, Sides y);

/// x = L11^-1 x for each right-hand side, with L11 the top square of a panel.
void solveSquare(const double* l, std::size_t stride, Index width, Sides x);

/// x = L11^-T x.
void solveSquareTransposed(const double* l, std::size_t stride, Index width, Sides x);

/// Right-hand sides that go through the panels together: a panel's entry is read once for all.
inline constexpr Index kTogether = 16;

/// Has work(first, count) done for blocks of right-hand sides by the team.
template <class Work>
void forBlocks(Index count, kernels::Team& team, const Work& work) {
  team.forEach((count + kTogether - 1) / kTogether, [&](int block) {
    const Index first = block * kTogether;
    work(first, std::min(kTogether, count - first));
  });
}

}  // namespace korin::sparse

#endif
