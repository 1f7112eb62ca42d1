#include "kernels/triangles/panel_cholesky.h"

#include <algorithm>
#include <vector>

#include "kernels/products/tiled_product.h"
#include "kernels/team.h"
#include "kernels/triangles/panel_leaf.h"

namespace korin::kernels {
namespace {

using std::ptrdiff_t;
using std::size_t;

/// Columns of C whose diagonal block is computed whole: whole tiles on every level.
constexpr size_t kStep = 24;
/// Columns of C that meet a packed block of A while it stays in the second-level cache.
constexpr size_t kStrip = 192;
/// Rows and columns from which on a block's operand is packed, and most of its columns at a time.
constexpr size_t kWorthPacking = 48;
constexpr size_t kInner = 128;
/// Rows that are one piece of work for a team.
constexpr size_t kPiece = 384;
/// Most columns of a panel whose square is factorised before the rows below.
constexpr size_t kBlock = 128;
/// Operations of a product that are worth sharing.
constexpr double kWorthSharing = 4e6;

double* at(double* data, size_t stride, size_t i, size_t j) {
  return data + i + j * stride;
}

/// C(i, j) = (C(i, j)) - sum over k of X(i, k) Y(j, k) for a block of C, rows x columns. Computed
/// as its transpose, whose rows are contiguous.
void subtractProduct(size_t rows, size_t columns, size_t inner, const double* x, const double* y,
                     size_t stride, double* c, size_t cStride, Write write) {
  const auto step = static_cast<ptrdiff_t>(stride);
  const Block target{c, static_cast<ptrdiff_t>(cStride), 1};
  const unsigned flags = kTileNegate | (write == Write::AddTo ? kTileUpdate : kTileFresh);
  if (columns < kWorthPacking || rows < kWorthPacking || columns > kStrip) {
    return tiledProduct(TileFamily::Fused, columns, rows, inner, {y, 1, step}, {x, step, 1}, target,
                        flags);
  }
  // The columns of Y are far apart, each in another page, and every tile reads all of them.
  alignas(64) double packed[kStrip * kInner];
  const size_t parts = (inner + kInner - 1) / kInner;
  for (size_t part = 0, k = 0; part < parts; ++part) {
    const size_t depth = inner / parts + (part < inner % parts ? 1 : 0);
    for (size_t p = 0; p < depth; ++p) {
      std::copy_n(y + (k + p) * stride, columns, packed + p * columns);
    }
    tiledProduct(TileFamily::Fused, columns, rows, depth,
                 {packed, 1, static_cast<ptrdiff_t>(columns)}, {x + k * stride, step, 1}, target,
                 part == 0 ? flags : flags | kTileUpdate);
    k += depth;
  }
}

/// Columns first .. end-1 of C, from the diagonal down to row `last`.
void subtractTrapezoid(size_t first, size_t end, size_t last, size_t inner, const double* a,
                       size_t aStride, double* c, size_t cStride, Write write) {
  for (size_t j = first; j < end; j += kStep) {
    const size_t columns = std::min(kStep, end - j);
    subtractProduct(end - j, columns, inner, a + j, a + j, aStride, at(c, cStride, j, j), cStride,
                    write);
  }
  if (last > end) {
    subtractProduct(last - end, end - first, inner, a + end, a + first, aStride,
                    at(c, cStride, end, first), cStride, write);
  }
}

/// Where a panel of more columns than a leaf is cut.
size_t firstHalf(size_t columns) {
  return (columns / 2 + kLeafColumns - 1) / kLeafColumns * kLeafColumns;
}

/// X = X L^-T by halves: X1 = X1 L11^-T, X2 = (X2 - X1 L21^T) L22^-T.
void solveRows(size_t rows, size_t columns, const double* l, double* x, size_t stride) {
  if (columns <= kLeafColumns) return leafSolve()(rows, columns, l, stride, x, stride);
  const size_t left = firstHalf(columns);
  solveRows(rows, left, l, x, stride);
  subtractProduct(rows, columns - left, left, x, l + left, stride, x + left * stride, stride,
                  Write::AddTo);
  solveRows(rows, columns - left, l + left + left * stride, x + left * stride, stride);
}

/// L21 = A21 L11^-T for the rows below a panel's square, some rows at a time: they stay in the
/// second-level cache through all steps.
void solveBelow(size_t rows, size_t columns, double* panel, size_t stride, Team* team) {
  const auto piece = [&](size_t number) {
    const size_t first = number * kPiece;
    solveRows(std::min(kPiece, rows - first), columns, panel, panel + columns + first, stride);
  };
  const size_t pieces = (rows + kPiece - 1) / kPiece;
  if (team != nullptr && static_cast<double>(rows * columns * columns) > kWorthSharing) {
    team->forEach(static_cast<int>(pieces), [&](int i) { piece(static_cast<size_t>(i)); });
  } else {
    for (size_t i = 0; i < pieces; ++i) piece(i);
  }
}

}  // namespace

void subtractOuterProduct(size_t rows, size_t columns, size_t inner, const double* a,
                          size_t aStride, double* c, size_t cStride, Write write, Team* team) {
  if (columns == 0 || rows == 0) return;
  const double operations =
      2.0 * static_cast<double>(rows) * static_cast<double>(columns) * static_cast<double>(inner);
  if (team == nullptr || operations < kWorthSharing) {
    for (size_t first = 0; first < columns; first += kStrip) {
      subtractTrapezoid(first, std::min(first + kStrip, columns), rows, inner, a, aStride, c,
                        cStride, write);
    }
    return;
  }
  // Pieces of a strip each: the first with the diagonal block, the others of kPiece rows.
  struct Piece {
    size_t first, end, begin, last;
  };
  std::vector<Piece> pieces;
  for (size_t first = 0; first < columns; first += kStrip) {
    const size_t end = std::min(first + kStrip, columns);
    pieces.push_back({first, end, first, std::min(end + kPiece, rows)});
    for (size_t i = end + kPiece; i < rows; i += kPiece) {
      pieces.push_back({first, end, i, std::min(i + kPiece, rows)});
    }
  }
  team->forEach(static_cast<int>(pieces.size()), [&](int number) {
    const Piece& p = pieces[static_cast<size_t>(number)];
    if (p.begin == p.first) {
      return subtractTrapezoid(p.first, p.end, p.last, inner, a, aStride, c, cStride, write);
    }
    subtractProduct(p.last - p.begin, p.end - p.first, inner, a + p.begin, a + p.first, aStride,
                    at(c, cStride, p.begin, p.first), cStride, write);
  });
}

void subtractBlock(size_t rows, size_t columns, size_t inner, const double* x, const double* y,
                   size_t stride, double* c, size_t cStride) {
  subtractProduct(rows, columns, inner, x, y, stride, c, cStride, Write::Over);
}

size_t panelCholesky(size_t rows, size_t columns, double* panel, size_t stride, Team* team) {
  if (columns <= kLeafColumns) return panelLeaf()(rows, columns, panel, stride);
  if (columns <= kBlock && rows > columns + kPiece) {
    const size_t done = panelCholesky(columns, columns, panel, stride, team);
    if (done == columns) solveBelow(rows - columns, columns, panel, stride, team);
    return done;
  }
  const size_t left = firstHalf(columns);
  const size_t done = panelCholesky(rows, left, panel, stride, team);
  if (done < left) return done;
  double* const rest = at(panel, stride, left, left);
  subtractOuterProduct(rows - left, columns - left, left, panel + left, stride, rest, stride,
                       Write::AddTo, team);
  return left + panelCholesky(rows - left, columns - left, rest, stride, team);
}

}  // namespace korin::kernels
