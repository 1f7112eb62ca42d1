#include "kernels/triangles/cholesky.h"

#include <algorithm>
#include <cmath>

#include "kernels/products/tiled_product.h"
#include "kernels/tiles/tile.h"
#include "kernels/tiles/transpose.h"

namespace korin::kernels {
namespace {

using std::ptrdiff_t;
using std::size_t;

constexpr size_t kLeaf = 8;           // columns factorised by plain loops
constexpr size_t kUpdateCols = 24;    // the widest tile: three vectors of eight
constexpr size_t kUpdateInner = 128;  // 24 KiB of packed columns: stays in the first-level cache

struct Lower {
  size_t n;
  double* data;
  ptrdiff_t stride;
  double* row(size_t i) const { return data + static_cast<ptrdiff_t>(i) * stride; }
};

// A leaf's columns of one row: those before `done` become columns of L, and the columns up to
// `count` lose their products with them. l[k][j] is L(j, k) of the leaf's diagonal block, of which
// row `own` is being made here where own < kLeaf. Constant counts let the loops be unrolled.
inline __attribute__((always_inline)) void finishRow(double* x, double (&l)[kLeaf][kLeaf],
                                                     const double* inverse, size_t done,
                                                     size_t count, size_t own) {
#pragma GCC unroll 8
  for (size_t k = 0; k < done; ++k) {
    x[k] *= inverse[k];
    if (own < kLeaf) l[k][own] = x[k];
#pragma GCC unroll 8
    for (size_t j = k + 1; j < count; ++j) x[j] -= x[k] * l[k][j];
  }
}

// Factorises columns k0 .. k0 + width - 1, which have lost their products with all columns before
// them. Returns how many have positive pivots up to their own.
size_t factoriseLeaf(const Lower& a, size_t k0, size_t width) {
  double l[kLeaf][kLeaf] = {};
  double inverse[kLeaf] = {};
  size_t done = 0;
  for (size_t r = 0; r < width; ++r) {
    double* x = a.row(k0 + r) + k0;
    finishRow(x, l, inverse, std::min(r, done), r + 1, r);
    // Written this way round on purpose: a NaN pivot passes and is carried on.
    if (done < r || 0.0 >= x[r]) continue;
    x[r] = std::sqrt(x[r]);
    // The reciprocal is on purpose too: dividing each element would round differently.
    inverse[r] = 1.0 / x[r];
    ++done;
  }
  if (done == kLeaf) {
    for (size_t i = k0 + kLeaf; i < a.n; ++i) {
      finishRow(a.row(i) + k0, l, inverse, kLeaf, kLeaf, kLeaf);
    }
  } else {
    for (size_t i = k0 + width; i < a.n; ++i) {
      finishRow(a.row(i) + k0, l, inverse, done, width, kLeaf);
    }
  }
  return done;
}

// packed(k, j) = -L(j0 + j, k0 + k): with the negated factor, the ordered tiles' additions are the
// subtractions wanted, to the bit.
void packNegated(const Lower& a, size_t j0, size_t cols, size_t k0, size_t inner, double* packed) {
  transposeBlocks(tiles(), cols, inner, a.row(j0) + k0, a.stride, packed, kUpdateCols);
  for (size_t k = 0; k < inner; ++k, packed += kUpdateCols) {
    for (size_t j = 0; j < cols; ++j) packed[j] = -packed[j];
  }
}

// Columns j0 .. j0 + cols - 1 from the diagonal down lose their products with `inner` columns of L
// from k0 on.
void updateColumns(const Lower& a, size_t j0, size_t cols, size_t k0, size_t inner) {
  alignas(64) double packed[kUpdateInner * kUpdateCols];
  packNegated(a, j0, cols, k0, inner, packed);
  const auto product = [&](size_t i, size_t rows, double* c, ptrdiff_t crs) {
    tiledProduct(TileFamily::Ordered, rows, cols, inner, {a.row(i) + k0, a.stride, 1},
                 {packed, kUpdateCols, 1}, {c, crs, 1}, kTileUpdate);
  };
  // The diagonal block goes through a copy, because nothing above the diagonal may be written.
  alignas(64) double diagonal[kUpdateCols * kUpdateCols];
  for (size_t i = 0; i < cols; ++i) {
    double* x = diagonal + i * kUpdateCols;
    std::fill(std::copy_n(a.row(j0 + i) + j0, i + 1, x), x + cols, 0.0);
  }
  product(j0, cols, diagonal, kUpdateCols);
  for (size_t i = 0; i < cols; ++i) {
    std::copy_n(diagonal + i * kUpdateCols, i + 1, a.row(j0 + i) + j0);
  }
  product(j0 + cols, a.n - j0 - cols, a.row(j0 + cols) + j0, a.stride);
}

// Columns first .. last - 1 lose their products with columns k0 .. k1 - 1 of L, in this order.
void update(const Lower& a, size_t k0, size_t k1, size_t first, size_t last) {
  for (size_t k = k0; k < k1; k += kUpdateInner) {
    const size_t inner = std::min(kUpdateInner, k1 - k);
    for (size_t j = first; j < last; j += kUpdateCols) {
      updateColumns(a, j, std::min(kUpdateCols, last - j), k, inner);
    }
  }
}

// Factorises columns k0 .. k1 - 1 by halves; returns the first without a positive pivot, or k1.
size_t factorise(const Lower& a, size_t k0, size_t k1) {
  if (k1 - k0 <= kLeaf) return k0 + factoriseLeaf(a, k0, k1 - k0);
  const size_t middle = k0 + (k1 - k0 + 2 * kLeaf - 1) / (2 * kLeaf) * kLeaf;
  const size_t done = factorise(a, k0, middle);
  update(a, k0, done, middle, k1);
  return done < middle ? done : factorise(a, middle, k1);
}

}  // namespace

size_t cholesky(size_t n, double* a, ptrdiff_t stride) {
  return factorise({n, a, stride}, 0, n);
}

}  // namespace korin::kernels
