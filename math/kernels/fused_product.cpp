#include "math/kernels/fused_product.h"

#include <algorithm>

#include "math/kernels/tiled_product.h"

namespace korin::kernels {
namespace {

// C of neither unit stride: the product goes through a small row-major block on the stack.
constexpr std::size_t kScatterRows = 32;
constexpr std::size_t kScatterCols = 64;

void scatterProduct(std::size_t m, std::size_t n, std::size_t k, double alpha, const double* a,
                    std::ptrdiff_t ars, std::ptrdiff_t acs, const double* b, std::ptrdiff_t brs,
                    std::ptrdiff_t bcs, double beta, double* c, std::ptrdiff_t crs,
                    std::ptrdiff_t ccs) {
  double block[kScatterRows * kScatterCols];
  for (std::size_t i0 = 0; i0 < m; i0 += kScatterRows) {
    const std::size_t rows = std::min(kScatterRows, m - i0);
    for (std::size_t j0 = 0; j0 < n; j0 += kScatterCols) {
      const std::size_t cols = std::min(kScatterCols, n - j0);
      const auto firstRow = static_cast<std::ptrdiff_t>(i0);
      const auto firstCol = static_cast<std::ptrdiff_t>(j0);
      tiledProduct(TileFamily::Fused, rows, cols, k, a + firstRow * ars, ars, acs,
                   b + firstCol * bcs, brs, bcs, block, kScatterCols, kTileFresh);
      for (std::size_t i = 0; i < rows; ++i) {
        double* out = c + static_cast<std::ptrdiff_t>(i0 + i) * crs + firstCol * ccs;
        const double* in = block + i * kScatterCols;
        for (std::size_t j = 0; j < cols; ++j, out += ccs) {
          *out = (beta == 0.0 ? 0.0 : *out) + alpha * in[j];
        }
      }
    }
  }
}

}  // namespace

void fusedProduct(std::size_t m, std::size_t n, std::size_t k, double alpha, const double* a,
                  std::ptrdiff_t ars, std::ptrdiff_t acs, const double* b, std::ptrdiff_t brs,
                  std::ptrdiff_t bcs, double beta, double* c, std::ptrdiff_t crs,
                  std::ptrdiff_t ccs) {
  const unsigned flags =
      (beta == 0.0 ? kTileFresh : kTileUpdate) | (alpha < 0.0 ? kTileNegate : kTileFresh);
  if (ccs == 1) {
    tiledProduct(TileFamily::Fused, m, n, k, a, ars, acs, b, brs, bcs, c, crs, flags);
  } else if (crs == 1) {  // column-major C: its transpose is B' A'
    tiledProduct(TileFamily::Fused, n, m, k, b, bcs, brs, a, acs, ars, c, ccs, flags);
  } else {
    scatterProduct(m, n, k, alpha, a, ars, acs, b, brs, bcs, beta, c, crs, ccs);
  }
}

}  // namespace korin::kernels
