#include "kernels/tiles/combine_rows.h"
#include "kernels/tiles/lane_sse2.h"
#include "kernels/tiles/register_tile.h"

namespace korin::kernels {
namespace {

void transposeBlock(const double* src, ptrdiff_t srcStride, double* dst, ptrdiff_t dstStride) {
  const __m128d u = _mm_loadu_pd(src);
  const __m128d v = _mm_loadu_pd(src + srcStride);
  _mm_storeu_pd(dst, _mm_unpacklo_pd(u, v));
  _mm_storeu_pd(dst + dstStride, _mm_unpackhi_pd(u, v));
}

template <int kRows, int kVectors, bool kFused, TileTail kTail>
constexpr TileFunction kTile = &RegisterTile<Lane, kRows, kVectors, kFused, kTail>::run;

template <int kVectors, bool kFused, TileTail kTail>
constexpr PackingTileFunction kPacking = &RegisterTile<Lane, 4, kVectors, kFused, kTail>::pack;

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
        ZEPH_TILE_ROW(4, __VA_ARGS__)                                                            \
  }
#define ZEPH_TILES(fused) \
  { ZEPH_TILE_ROWS(fused, TileTail::Whole), {}, ZEPH_TILE_ROWS(fused, TileTail::Masked) }
#define ZEPH_PACKING_ROW(...) \
  { kPacking<1, __VA_ARGS__>, kPacking<2, __VA_ARGS__> }
#define ZEPH_PACKING(fused) \
  { ZEPH_PACKING_ROW(fused, TileTail::Whole), {}, ZEPH_PACKING_ROW(fused, TileTail::Masked) }
#define ZEPH_DOT_ROW(rows) \
  { kDot<rows, 1>, kDot<rows, 2> }

// Eight of the 16 registers hold sums: products need copies of their operands on this level.
const TileTable kBaselineTiles = {
    2,
    4,
    {4, 4, 2, 2},
    0,
    ZEPH_TILES(false),
    ZEPH_TILES(true),
    ZEPH_PACKING(false),
    ZEPH_PACKING(true),
    2,
    {ZEPH_DOT_ROW(1), ZEPH_DOT_ROW(2), ZEPH_DOT_ROW(3), ZEPH_DOT_ROW(4)},
    &transposeBlock,
    &CombineRows<Lane>::run};

}  // namespace korin::kernels
