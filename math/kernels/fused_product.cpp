#include "math/kernels/fused_product.h"

#include "math/kernels/tiled_product.h"

namespace korin::kernels {
namespace {

// What a tiled product costs beside the arithmetic that every way needs, in vector operations:
// lanes that stay empty because C is narrow, the pass that packs B, and C taken apart by elements.
std::size_t overhead(std::size_t m, std::size_t n, std::size_t k, std::ptrdiff_t bcs,
                     std::ptrdiff_t ccs) {
  constexpr std::size_t kWidth = 8;
  const std::size_t emptyLanes = (kWidth - n % kWidth) % kWidth;
  const std::size_t packing = bcs == 1 ? 0 : k * n;
  const std::size_t scattering = ccs == 1 ? 0 : 2 * m * n;
  return m * k * emptyLanes / kWidth + packing + scattering;
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
  if (overhead(m, n, k, bcs, ccs) <= overhead(n, m, k, ars, crs)) {
    tiledProduct(TileFamily::Fused, m, n, k, left, right, target, flags);
  } else {  // C^T = B^T A^T
    tiledProduct(TileFamily::Fused, n, m, k, right.transposed(), left.transposed(),
                 target.transposed(), flags);
  }
}

}  // namespace korin::kernels
