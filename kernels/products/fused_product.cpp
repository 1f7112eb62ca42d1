#include "kernels/products/fused_product.h"

#include <algorithm>

#include "kernels/products/tiled_product.h"

namespace korin::kernels {
namespace {

// What each way costs beside the arithmetic that all need, in vector operations.
constexpr std::size_t kWidth = 8;

std::size_t emptyLanes(std::size_t count) {
  return (kWidth - count % kWidth) % kWidth;
}

// Lanes that stay empty because C is narrow, the pass that packs B, and C taken apart by elements.
std::size_t tileOverhead(std::size_t m, std::size_t n, std::size_t k, std::ptrdiff_t bcs,
                         std::ptrdiff_t ccs) {
  const std::size_t packing = bcs == 1 ? 0 : k * n;
  const std::size_t scattering = ccs == 1 ? 0 : 2 * m * n;
  return m * k * emptyLanes(n) / kWidth + packing + scattering;
}

// Adding up the vector of sums of each element of C, lanes left empty, and more loads.
std::size_t dotOverhead(std::size_t m, std::size_t n, std::size_t k) {
  return m * n * (4 + emptyLanes(k) / kWidth + k / 40);
}

}  // namespace

void fusedProduct(std::size_t m, std::size_t n, std::size_t k, double alpha, const ConstBlock& a,
                  const ConstBlock& b, double beta, const Block& c) {
  const unsigned flags =
      (beta == 0.0 ? kTileFresh : kTileUpdate) | (alpha < 0.0 ? kTileNegate : kTileFresh);
  const std::size_t direct = tileOverhead(m, n, k, b.colStride, c.colStride);
  const std::size_t swapped = tileOverhead(n, m, k, a.rowStride, c.rowStride);
  if (a.colStride == 1 && b.rowStride == 1 && dotOverhead(m, n, k) < std::min(direct, swapped)) {
    dotProduct(m, n, k, a, b, c, flags);
  } else if (direct <= swapped) {
    tiledProduct(TileFamily::Fused, m, n, k, a, b, c, flags);
  } else {  // C^T = B^T A^T
    tiledProduct(TileFamily::Fused, n, m, k, b.transposed(), a.transposed(), c.transposed(), flags);
  }
}

}  // namespace korin::kernels
