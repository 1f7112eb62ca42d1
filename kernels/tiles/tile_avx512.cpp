#include "kernels/tiles/lane_avx512.h"
#include "kernels/tiles/tile_table.h"

namespace korin::kernels {
namespace {

#define ZEPH_LANES(x, y, i, j)                                                           \
  __builtin_shufflevector(x, y, 2 * (i), 2 * (i) + 1, 2 * (i) + 4, 2 * (i) + 5, 2 * (j), \
                          2 * (j) + 1, 2 * (j) + 4, 2 * (j) + 5)

// Neighbouring rows exchange every second element, then pairs and quadruples of elements change
// places: three rounds of eight shuffles.
void transposeBlock(const double* src, ptrdiff_t srcStride, double* dst, ptrdiff_t dstStride) {
  __m512d x[8];
  __m512d y[8];
#pragma GCC unroll 4
  for (int i = 0; i < 8; i += 2) {
    const __m512d u = _mm512_loadu_pd(src + i * srcStride);
    const __m512d v = _mm512_loadu_pd(src + (i + 1) * srcStride);
    y[i] = __builtin_shufflevector(u, v, 0, 8, 2, 10, 4, 12, 6, 14);
    y[i + 1] = __builtin_shufflevector(u, v, 1, 9, 3, 11, 5, 13, 7, 15);
  }
#pragma GCC unroll 2
  for (int i = 0; i < 8; i += 4) {
#pragma GCC unroll 2
    for (int j = i; j < i + 2; ++j) {
      x[j] = ZEPH_LANES(y[j], y[j + 2], 0, 4);
      x[j + 2] = ZEPH_LANES(y[j], y[j + 2], 1, 5);
    }
  }
  // x[j] holds the source columns j and j + 4 of rows 0-3, x[j + 4] those of rows 4-7.
#pragma GCC unroll 4
  for (int j = 0; j < 4; ++j) {
    _mm512_storeu_pd(dst + j * dstStride, ZEPH_LANES(x[j], x[j + 4], 0, 4));
    _mm512_storeu_pd(dst + (j + 4) * dstStride, ZEPH_LANES(x[j], x[j + 4], 1, 5));
  }
}

// 24 of the 32 registers hold sums: enough to hide the latency of additions twice over, and eight
// rows use each loaded vector of B eight times.
struct Shape {
  static constexpr int kRows = 8;
  static constexpr int kVectors[kRows] = {6, 6, 6, 6, 3, 3, 3, 3};
  static constexpr bool kHalves = true;
  static constexpr int kDotCols = 4;
};

}  // namespace

constinit const TileTable kAvx512Tiles = TileTableBuilder<Lane, Shape>::build(&transposeBlock);

}  // namespace korin::kernels
