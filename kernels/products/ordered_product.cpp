#include "kernels/products/ordered_product.h"

#include "kernels/products/tiled_product.h"

namespace korin::kernels {

// With fewer rows than this, the transposition of B would cost more than it saves.
static constexpr std::size_t kFewRows = 8;
// Up to this many multiplications, plain loops are done before a tile is set up.
static constexpr std::size_t kTiny = 512;

void orderedProduct(std::size_t m, std::size_t n, std::size_t k, const double* a,
                    std::ptrdiff_t lda, const double* b, std::ptrdiff_t ldb, double* c,
                    std::ptrdiff_t ldc) {
  tiledProduct(TileFamily::Ordered, m, n, k, {a, lda, 1}, {b, ldb, 1}, {c, ldc, 1}, kTileFresh);
}

void orderedProductTransposed(std::size_t m, std::size_t n, std::size_t k, const double* a,
                              std::ptrdiff_t lda, const double* b, std::ptrdiff_t ldb, double* c,
                              std::ptrdiff_t ldc) {
  if (m * n * k <= kTiny) {
    for (std::size_t i = 0; i < m; ++i, a += lda, c += ldc) {
      const double* row = b;
      for (std::size_t j = 0; j < n; ++j, row += ldb) {
        double sum = 0.0;
        for (std::size_t p = 0; p < k; ++p) sum += a[p] * row[p];
        c[j] = sum;
      }
    }
  } else if (m <= kFewRows) {  // rather the small operand transposed than the large one
    tiledProduct(TileFamily::Ordered, n, m, k, {b, ldb, 1}, {a, 1, lda}, {c, 1, ldc}, kTileFresh);
  } else {
    tiledProduct(TileFamily::Ordered, m, n, k, {a, lda, 1}, {b, 1, ldb}, {c, ldc, 1}, kTileFresh);
  }
}

void orderedTransposedProduct(std::size_t m, std::size_t n, std::size_t k, const double* a,
                              std::ptrdiff_t lda, const double* b, std::ptrdiff_t ldb, double* c,
                              std::ptrdiff_t ldc) {
  tiledProduct(TileFamily::Ordered, m, n, k, {a, 1, lda}, {b, ldb, 1}, {c, ldc, 1}, kTileFresh);
}

}  // namespace korin::kernels
