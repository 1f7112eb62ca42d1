#include "kernels/tiles/combine_rows.h"
#include "kernels/tiles/lane_avx2.h"
#include "kernels/tiles/register_tile.h"

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

template <int kRows, int kVectors, bool kFused, TileTail kTail>
constexpr TileFunction kTile = &RegisterTile<Lane, kRows, kVectors, kFused, kTail>::run;

template <int kVectors, bool kFused, TileTail kTail>
constexpr PackingTileFunction kPacking = &RegisterTile<Lane, 6, kVectors, kFused, kTail>::pack;

template <int kRows, int kCols>
constexpr DotFunction kDot = &DotTile<Lane, kRows, kCols>::run;

}  // namespace

#define ZEPH_TILE_ROW(rows, ...) \
  { kTile<rows, 1, __VA_ARGS__>, kTile<rows, 2, __VA_ARGS__> }
#define ZEPH_WIDE_ROW(rows, ...)                                                           \
  {                                                                                        \
    kTile<rows, 1, __VA_ARGS__>, kTile<rows, 2, __VA_ARGS__>, kTile<rows, 3, __VA_ARGS__>, \
        kTile<rows, 4, __VA_ARGS__>                                                        \
  }
#define ZEPH_TILE_ROWS(...)                                                                      \
  {                                                                                              \
    ZEPH_WIDE_ROW(1, __VA_ARGS__), ZEPH_WIDE_ROW(2, __VA_ARGS__), ZEPH_TILE_ROW(3, __VA_ARGS__), \
        ZEPH_TILE_ROW(4, __VA_ARGS__), ZEPH_TILE_ROW(5, __VA_ARGS__),                            \
        ZEPH_TILE_ROW(6, __VA_ARGS__)                                                            \
  }
#define ZEPH_TILES(fused) \
  { ZEPH_TILE_ROWS(fused, TileTail::Whole), {}, ZEPH_TILE_ROWS(fused, TileTail::Masked) }
#define ZEPH_PACKING_ROW(...) \
  { kPacking<1, __VA_ARGS__>, kPacking<2, __VA_ARGS__> }
#define ZEPH_PACKING(fused) \
  { ZEPH_PACKING_ROW(fused, TileTail::Whole), {}, ZEPH_PACKING_ROW(fused, TileTail::Masked) }
#define ZEPH_DOT_ROW(rows) \
  { kDot<rows, 1>, kDot<rows, 2>, kDot<rows, 3> }

// 12 of the 16 registers hold sums; the others two vectors of B, one element of A and a product.
const TileTable kAvx2Tiles = {4,
                              6,
                              {4, 4, 2, 2, 2, 2},
                              0,
                              ZEPH_TILES(false),
                              ZEPH_TILES(true),
                              ZEPH_PACKING(false),
                              ZEPH_PACKING(true),
                              3,
                              {ZEPH_DOT_ROW(1), ZEPH_DOT_ROW(2), ZEPH_DOT_ROW(3), ZEPH_DOT_ROW(4)},
                              &transposeBlock,
                              &CombineRows<Lane>::run};

}  // namespace korin::kernels
