#include "math/kernels/ordered_product.h"

#include "math/kernels/tiled_product.h"

namespace korin::kernels {

void orderedProduct(std::size_t m, std::size_t n, std::size_t k, const double* a,
                    std::ptrdiff_t lda, const double* b, std::ptrdiff_t ldb, double* c,
                    std::ptrdiff_t ldc) {
  tiledProduct(TileFamily::Ordered, m, n, k, a, lda, 1, b, ldb, 1, c, ldc, kTileFresh);
}

void orderedProductTransposed(std::size_t m, std::size_t n, std::size_t k, const double* a,
                              std::ptrdiff_t lda, const double* b, std::ptrdiff_t ldb, double* c,
                              std::ptrdiff_t ldc) {
  if (m == 1) {  // one row of C: as a column, its elements are rows of a tile and need no packing
    return tiledProduct(TileFamily::Ordered, n, 1, k, b, ldb, 1, a, 1, lda, c, 1, kTileFresh);
  }
  tiledProduct(TileFamily::Ordered, m, n, k, a, lda, 1, b, 1, ldb, c, ldc, kTileFresh);
}

}  // namespace korin::kernels
