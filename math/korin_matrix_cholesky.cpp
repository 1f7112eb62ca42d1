// Dense Cholesky factorisation in place, right-looking, by panels of columns.
#include <algorithm>
#include <cmath>
#include <vector>

#include "math/korin_matrix.h"
#include "math/korin_rows.h"
#include "math/zt_error.h"

namespace korin {

namespace {

// Columns factorised before the rest of the matrix is updated with all of them at once. Every
// element still loses its products in increasing column order, one rounding each, so the width
// changes nothing in the result. 64 columns of a tile of the packed panel stay in a 32 KiB cache.
constexpr ZtSize kPanel = 64;

// Columns of the trailing matrix updated together.
constexpr ZtSize kUpdateTile = 32;

// Factorises columns k0..k1-1, updating only these columns. Returns the first column with a pivot
// that is not positive, or k1.
ZtSize factorisePanel(ZtMatrix& a, ZtSize k0, ZtSize k1) {
  const ZtSize n = a.rows;
  for (ZtSize k = k0; k < k1; ++k) {
    const ZtReal pivot = rowOf(a, k)[k];
    // Written this way round on purpose: a NaN pivot passes and is carried on.
    if (0.0 >= pivot) return k;
    rowOf(a, k)[k] = std::sqrt(pivot);
    // The reciprocal is on purpose too: dividing each element would round differently.
    const ZtReal inverse = 1.0 / rowOf(a, k)[k];
    ZtReal multipliers[kPanel];
    for (ZtSize i = k + 1; i < n; ++i) {
      ZtReal* x = rowOf(a, i);
      x[k] *= inverse;
      if (i < k1) multipliers[i - k - 1] = x[k];
      const ZtSize end = std::min(i + 1, k1);
      for (ZtSize j = k + 1; j < end; ++j) x[j] -= x[k] * multipliers[j - k - 1];
    }
  }
  return k1;
}

// a(i, j) -= sum over k0 <= k < k1, in this order, of a(i, k) * a(j, k), for first <= j <= i.
void updateTrailing(ZtMatrix& a, ZtSize k0, ZtSize k1, ZtSize first) {
  const ZtSize n = a.rows;
  std::vector<ZtReal> packed(kPanel * kUpdateTile);
  for (ZtSize j0 = first; j0 < n; j0 += kUpdateTile) {
    const ZtSize width = std::min(kUpdateTile, n - j0);
    // The tile's rows of the panel, transposed, so that the innermost loop runs along a row.
    for (ZtSize j = 0; j < width; ++j) {
      const ZtReal* x = rowOf(a, j0 + j);
      for (ZtSize k = k0; k < k1; ++k) packed[(k - k0) * kUpdateTile + j] = x[k];
    }
    for (ZtSize i = j0; i < n; ++i) {
      ZtReal* x = rowOf(a, i);
      const ZtSize count = std::min(width, i + 1 - j0);
      ZtReal tile[kUpdateTile] = {};
      std::copy_n(x + j0, count, tile);
      for (ZtSize k = k0; k < k1; ++k) {
        const ZtReal factor = x[k];
        const ZtReal* p = packed.data() + (k - k0) * kUpdateTile;
        for (ZtSize j = 0; j < kUpdateTile; ++j) tile[j] -= factor * p[j];
      }
      std::copy_n(tile, count, x + j0);
    }
  }
}

}  // namespace

bool Matrix::setCholesky(bool throwOnFailure) {
  const ZtSize n = rows;
  for (ZtSize k0 = 0; k0 < n; k0 += kPanel) {
    const ZtSize k1 = std::min(k0 + kPanel, n);
    const ZtSize done = factorisePanel(*this, k0, k1);
    updateTrailing(*this, k0, done, k1);
    if (done < k1) {
      if (!throwOnFailure) return false;
      throwError(__PRETTY_FUNCTION__, "matrix not symmetric positive-definite");
    }
  }
  for (ZtSize r = 0; r < n; ++r) std::fill(rowOf(*this, r) + r + 1, rowOf(*this, r) + n, 0.0);
  return true;
}

}  // namespace korin
