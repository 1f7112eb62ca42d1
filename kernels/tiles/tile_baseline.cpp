#include "kernels/tiles/lane_sse2.h"
#include "kernels/tiles/tile_table.h"

namespace korin::kernels {
namespace {

void transposeBlock(const double* src, ptrdiff_t srcStride, double* dst, ptrdiff_t dstStride) {
  const __m128d u = _mm_loadu_pd(src);
  const __m128d v = _mm_loadu_pd(src + srcStride);
  _mm_storeu_pd(dst, _mm_unpacklo_pd(u, v));
  _mm_storeu_pd(dst + dstStride, _mm_unpackhi_pd(u, v));
}

// Eight of the 16 registers hold sums: products need copies of their operands on this level.
struct Shape {
  static constexpr int kRows = 4;
  static constexpr int kVectors[kRows] = {4, 4, 2, 2};
  static constexpr bool kHalves = false;
  static constexpr int kDotCols = 2;
};

}  // namespace

constinit const TileTable kBaselineTiles = TileTableBuilder<Lane, Shape>::build(&transposeBlock);

}  // namespace korin::kernels
