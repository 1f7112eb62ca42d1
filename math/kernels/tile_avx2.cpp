#include <immintrin.h>

#include "math/kernels/register_tile.h"

namespace korin::kernels {
namespace {

struct Lane {
  using Vector = __m256d;
  struct Mask {
    __m256i lanes;
    size_t count;
  };
  static constexpr int kWidth = 4;
  static Vector zero() { return _mm256_setzero_pd(); }
  static Vector load(const double* p) { return _mm256_loadu_pd(p); }
  static void store(double* p, Vector x) { _mm256_storeu_pd(p, x); }
  static Mask mask(size_t count) {
    const __m256i limit = _mm256_set1_epi64x(static_cast<long long>(count));
    return {_mm256_cmpgt_epi64(limit, _mm256_setr_epi64x(0, 1, 2, 3)), count};
  }
  static Vector loadPart(const double* p, const Mask& m) { return _mm256_maskload_pd(p, m.lanes); }
  // In pieces, because masked stores of this level take tens of cycles on some processors.
  static void storePart(double* p, Vector x, const Mask& m) {
    if (m.count == 4) return _mm256_storeu_pd(p, x);
    __m128d half = _mm256_castpd256_pd128(x);
    if (m.count >= 2) {
      _mm_storeu_pd(p, half);
      half = _mm256_extractf128_pd(x, 1);
      p += 2;
    }
    if (m.count % 2 != 0) _mm_store_sd(p, half);
  }
  static Vector broadcast(const double* p) { return _mm256_broadcast_sd(p); }
  static Vector add(Vector x, Vector y) { return _mm256_add_pd(x, y); }
  static Vector subtract(Vector x, Vector y) { return _mm256_sub_pd(x, y); }
  static Vector multiplyScalar(const double* p, Vector y) { return _mm256_mul_pd(broadcast(p), y); }
  static Vector multiplyAdd(Vector x, Vector y, Vector z) { return _mm256_fmadd_pd(x, y, z); }
  static double total(Vector x) {
    const __m128d pair = _mm_add_pd(_mm256_castpd256_pd128(x), _mm256_extractf128_pd(x, 1));
    return pair[0] + pair[1];
  }
};

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
