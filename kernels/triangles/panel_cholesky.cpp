#include "kernels/triangles/panel_cholesky.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "kernels/products/tiled_product.h"
#include "kernels/team.h"
#include "kernels/triangles/triangle_inverse.h"

namespace korin::kernels {
namespace {

using std::ptrdiff_t;
using std::size_t;

/// Columns factorised by plain loops; their triangle is inverted in registers.
constexpr size_t kLeaf = kSmallTriangle;
/// Rows below a leaf that are multiplied by its inverse at a time: they stay in the first-level
/// cache between being copied and being read.
constexpr size_t kLeafRows = 128;
/// Columns of C whose diagonal block is computed whole: whole tiles on every level.
constexpr size_t kStep = 24;
/// Columns of C that meet a packed block of A while it stays in the second-level cache.
constexpr size_t kStrip = 192;
/// Rows of C that are one piece of work for a team.
constexpr size_t kPiece = 384;
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
  tiledProduct(TileFamily::Fused, columns, rows, inner, {y, 1, step}, {x, step, 1},
               {c, static_cast<ptrdiff_t>(cStride), 1},
               kTileNegate | (write == Write::AddTo ? kTileUpdate : kTileFresh));
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

/// L11 of a leaf's top square, left-looking. Returns the columns done.
size_t choleskyLeaf(size_t columns, double* l, size_t stride) {
  for (size_t j = 0; j < columns; ++j) {
    double* column = l + j * stride;
    for (size_t k = 0; k < j; ++k) {
      const double* const other = l + k * stride;
      const double factor = other[j];
      for (size_t i = j; i < columns; ++i) column[i] -= factor * other[i];
    }
    const double pivot = column[j];
    if (!(pivot > 0.0) || std::isinf(pivot)) return j;
    const double root = std::sqrt(pivot);
    column[j] = root;
    const double reciprocal = 1.0 / root;
    for (size_t i = j + 1; i < columns; ++i) column[i] *= reciprocal;
  }
  return columns;
}

/// L21 = A21 L11^-T for the rows below a leaf, by the inverse of its triangle.
void solveBelow(size_t rows, size_t columns, double* panel, size_t stride) {
  alignas(64) double inverse[kLeaf * kLeaf + kLeaf];
  alignas(64) double copy[kLeaf * kLeafRows];
  smallTriangleInverse()(columns, panel, static_cast<ptrdiff_t>(stride), inverse, kLeaf);
  for (size_t i = columns; i < rows; i += kLeafRows) {
    const size_t count = std::min(kLeafRows, rows - i);
    for (size_t j = 0; j < columns; ++j) {
      std::copy_n(at(panel, stride, i, j), count, copy + j * kLeafRows);
    }
    tiledProduct(TileFamily::Fused, columns, count, columns, {inverse, kLeaf, 1},
                 {copy, kLeafRows, 1}, {panel + i, static_cast<ptrdiff_t>(stride), 1}, kTileFresh);
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
  if (columns <= kLeaf) {
    const size_t done = choleskyLeaf(columns, panel, stride);
    if (done == columns && rows > columns) solveBelow(rows, columns, panel, stride);
    return done;
  }
  const size_t left = (columns / 2 + kLeaf - 1) / kLeaf * kLeaf;
  const size_t done = panelCholesky(rows, left, panel, stride, team);
  if (done < left) return done;
  double* const rest = at(panel, stride, left, left);
  subtractOuterProduct(rows - left, columns - left, left, panel + left, stride, rest, stride,
                       Write::AddTo, team);
  return left + panelCholesky(rows - left, columns - left, rest, stride, team);
}

}  // namespace korin::kernels
