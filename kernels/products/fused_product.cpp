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

void fusedProduct(std::size_t m, std::size_t n, std::size_t k, double alpha, const double* a,
                  std::ptrdiff_t ars, std::ptrdiff_t acs, const double* b, std::ptrdiff_t brs,
                  std::ptrdiff_t bcs, double beta, double* c, std::ptrdiff_t crs,
                  std::ptrdiff_t ccs) {
  const unsigned flags =
      (beta == 0.0 ? kTileFresh : kTileUpdate) | (alpha < 0.0 ? kTileNegate : kTileFresh);
  const Operand left{a, ars, acs};
  const Operand right{b, brs, bcs};
  const Target target{c, crs, ccs};
  const std::size_t direct = tileOverhead(m, n, k, bcs, ccs);
  const std::size_t swapped = tileOverhead(n, m, k, ars, crs);
  if (acs == 1 && brs == 1 && dotOverhead(m, n, k) < std::min(direct, swapped)) {
    dotProduct(m, n, k, left, right, target, flags);
  } else if (direct <= swapped) {
    tiledProduct(TileFamily::Fused, m, n, k, left, right, target, flags);
  } else {  // C^T = B^T A^T
    tiledProduct(TileFamily::Fused, n, m, k, right.transposed(), left.transposed(),
                 target.transposed(), flags);
  }
}

}  // namespace korin::kernels
