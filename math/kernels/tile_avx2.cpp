#include "math/kernels/lane_avx2.h"
#include "math/kernels/register_tile.h"

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

template <int kRows, int kVectors, bool kFused>
constexpr TileFunction kPart = &RegisterTile<Lane, kRows, kVectors, kFused, true>::run;

template <int kRows, int kCols>
constexpr DotFunction kDot = &DotTile<Lane, kRows, kCols>::run;

}  // namespace

#define ZEPH_TILE_ROW(rows, fused) \
  { kPart<rows, 1, fused>, kPart<rows, 2, fused> }
#define ZEPH_WIDE_ROW(rows, fused) \
  { kPart<rows, 1, fused>, kPart<rows, 2, fused>, kPart<rows, 3, fused>, kPart<rows, 4, fused> }
#define ZEPH_TILE_ROWS(fused)                                                     \
  {                                                                               \
    ZEPH_WIDE_ROW(1, fused), ZEPH_WIDE_ROW(2, fused), ZEPH_TILE_ROW(3, fused),    \
        ZEPH_TILE_ROW(4, fused), ZEPH_TILE_ROW(5, fused), ZEPH_TILE_ROW(6, fused) \
  }
#define ZEPH_DOT_ROW(rows) \
  { kDot<rows, 1>, kDot<rows, 2>, kDot<rows, 3> }

// 12 of the 16 registers hold sums; the others two vectors of B, one element of A and a product.
const TileTable kAvx2Tiles = {4,
                              6,
                              {4, 4, 2, 2, 2, 2},
                              112,
                              ZEPH_TILE_ROWS(false),
                              ZEPH_TILE_ROWS(true),
                              &RegisterTile<Lane, 6, 2, false, false>::run,
                              &RegisterTile<Lane, 6, 2, true, false>::run,
                              3,
                              {ZEPH_DOT_ROW(1), ZEPH_DOT_ROW(2), ZEPH_DOT_ROW(3), ZEPH_DOT_ROW(4)},
                              &transposeBlock};

}  // namespace korin::kernels
