#ifndef ZEPH_KERNELS_TILES_LANE_AVX2_H
#define ZEPH_KERNELS_TILES_LANE_AVX2_H

// One vector of four doubles (AVX2 with FMA), as the register kernels are written
// for: Vector, Mask, kWidth, zero(), load(p), store(p, x), mask(count), loadPart(p, mask),
// storePart(p, x, mask), broadcast(p), add(x, y), subtract(x, y), multiply(x, y),
// multiplyScalar(p, y) = *p * y, multiplyAdd(x, y, z) = x*y + z, fused where the level can, and
// total(x), the sum of x's elements. In an unnamed namespace, so that no code of one level can be
// merged with that of another by the linker; included only by files of this level.

#include <immintrin.h>
#include <stddef.h>

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
  static Vector multiply(Vector x, Vector y) { return _mm256_mul_pd(x, y); }
  static Vector multiplyScalar(const double* p, Vector y) { return _mm256_mul_pd(broadcast(p), y); }
  static Vector multiplyAdd(Vector x, Vector y, Vector z) { return _mm256_fmadd_pd(x, y, z); }
  static double total(Vector x) {
    const __m128d pair = _mm_add_pd(_mm256_castpd256_pd128(x), _mm256_extractf128_pd(x, 1));
    return pair[0] + pair[1];
  }
};

}  // namespace
}  // namespace korin::kernels

#endif
