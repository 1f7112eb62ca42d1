#include "kernels/tiles/lane_avx2.h"
#include "kernels/tiles/tile_table.h"

namespace korin::kernels {
namespace {

void transposeBlock(const double* src, ptrdiff_t srcStride, double* dst, ptrdiff_t dstStride) {
  __m256d y[4];
#pragma GCC unroll 2
  for (int i = 0; i < 4; i += 2) {
    const __m256d u = _mm256_loadu_pd(src + i * srcStride);
    const __m256d v = _mm256_loadu_pd(src + (i + 1) * srcStride);
    y[i] = _mm256_unpacklo_pd(u, v);
    y[i + 1] = _mm256_unpackhi_pd(u, v);
  }
#pragma GCC unroll 2
  for (int j = 0; j < 2; ++j) {
    _mm256_storeu_pd(dst + j * dstStride, _mm256_permute2f128_pd(y[j], y[j + 2], 0x20));
    _mm256_storeu_pd(dst + (j + 2) * dstStride, _mm256_permute2f128_pd(y[j], y[j + 2], 0x31));
  }
}

// 12 of the 16 registers hold sums; the others two vectors of B, one element of A and a product.
struct Shape {
  static constexpr int kRows = 6;
  static constexpr int kVectors[kRows] = {4, 4, 2, 2, 2, 2};
  static constexpr bool kHalves = false;
  static constexpr int kDotCols = 3;
};

}  // namespace

constinit const TileTable kAvx2Tiles = TileTableBuilder<Lane, Shape>::build(&transposeBlock);

}  // namespace korin::kernels
