#include "math/kernels/lane_sse2.h"
#include "math/kernels/register_tile.h"

namespace korin::kernels {
namespace {

void transposeBlock(const double* src, ptrdiff_t srcStride, double* dst, ptrdiff_t dstStride) {
  const __m128d u = _mm_loadu_pd(src);
  const __m128d v = _mm_loadu_pd(src + srcStride);
  _mm_storeu_pd(dst, _mm_unpacklo_pd(u, v));
  _mm_storeu_pd(dst + dstStride, _mm_unpackhi_pd(u, v));
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
#define ZEPH_TILE_ROWS(fused)                                                  \
  {                                                                            \
    ZEPH_WIDE_ROW(1, fused), ZEPH_WIDE_ROW(2, fused), ZEPH_TILE_ROW(3, fused), \
        ZEPH_TILE_ROW(4, fused)                                                \
  }
#define ZEPH_DOT_ROW(rows) \
  { kDot<rows, 1>, kDot<rows, 2> }

// Eight of the 16 registers hold sums: products need copies of their operands on this level.
const TileTable kBaselineTiles = {
    2,
    4,
    {4, 4, 2, 2},
    112,
    ZEPH_TILE_ROWS(false),
    ZEPH_TILE_ROWS(true),
    &RegisterTile<Lane, 4, 2, false, false>::run,
    &RegisterTile<Lane, 4, 2, true, false>::run,
    2,
    {ZEPH_DOT_ROW(1), ZEPH_DOT_ROW(2), ZEPH_DOT_ROW(3), ZEPH_DOT_ROW(4)},
    &transposeBlock};

}  // namespace korin::kernels
