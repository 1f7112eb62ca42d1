#ifndef ZEPH_KERNELS_TILES_LANE_AVX512_H
#define ZEPH_KERNELS_TILES_LANE_AVX512_H

// One vector of eight doubles (AVX-512), as the register kernels are written
// for: Vector, Mask, kWidth, zero(), load(p), store(p, x), mask(count), loadPart(p, mask),
// storePart(p, x, mask), broadcast(p), add(x, y), subtract(x, y), multiply(x, y),
// multiplyScalar(p, y) = *p * y, multiplyAdd(x, y, z) = x*y + z, fused where the level can, and
// total(x), the sum of x's elements. In an unnamed namespace, so that no code of one level can be
// merged with that of another by the linker; included only by files of this level.

#include <immintrin.h>
#include <stddef.h>

namespace korin::kernels {
namespace {

// Half a vector, for tiles whose last vector would be half empty.
struct HalfLane {
  using Vector = __m256d;
  using Mask = __mmask8;
  static constexpr int kWidth = 4;
  static Vector zero() { return _mm256_setzero_pd(); }
  static Vector load(const double* p) { return _mm256_loadu_pd(p); }
  static void store(double* p, Vector x) { _mm256_storeu_pd(p, x); }
  static Mask mask(size_t count) { return static_cast<Mask>((1U << count) - 1U); }
  static Vector loadPart(const double* p, Mask m) { return _mm256_maskz_loadu_pd(m, p); }
  static void storePart(double* p, Vector x, Mask m) { _mm256_mask_storeu_pd(p, m, x); }
  static Vector broadcast(const double* p) { return _mm256_broadcast_sd(p); }
  static Vector add(Vector x, Vector y) { return _mm256_add_pd(x, y); }
  static Vector subtract(Vector x, Vector y) { return _mm256_sub_pd(x, y); }
  static Vector multiplyScalar(const double* p, Vector y) {
    Vector product;
    asm("vmulpd %1%{1to4%}, %2, %0" : "=v"(product) : "m"(*p), "v"(y));
    return product;
  }
  static Vector multiplyAdd(Vector x, Vector y, Vector z) { return _mm256_fmadd_pd(x, y, z); }
};

struct Lane {
  using Vector = __m512d;
  using Half = HalfLane;
  using Mask = __mmask8;
  static constexpr int kWidth = 8;
  static Vector zero() { return _mm512_setzero_pd(); }
  static Vector load(const double* p) { return _mm512_loadu_pd(p); }
  static void store(double* p, Vector x) { _mm512_storeu_pd(p, x); }
  static Mask mask(size_t count) { return static_cast<Mask>((1U << count) - 1U); }
  static Vector loadPart(const double* p, Mask m) { return _mm512_maskz_loadu_pd(m, p); }
  static void storePart(double* p, Vector x, Mask m) { _mm512_mask_storeu_pd(p, m, x); }
  static Vector broadcast(const double* p) { return _mm512_set1_pd(*p); }
  static Vector add(Vector x, Vector y) { return _mm512_add_pd(x, y); }
  static Vector subtract(Vector x, Vector y) { return _mm512_sub_pd(x, y); }
  static Vector multiply(Vector x, Vector y) { return _mm512_mul_pd(x, y); }
  // The broadcast is kept inside the multiplication, where compilers would share one register for
  // a row: with three operands from registers for every pair of multiplication and addition,
  // Zen 4 stops at three quarters of its rate.
  static Vector multiplyScalar(const double* p, Vector y) {
    Vector product;
    asm("vmulpd %1%{1to8%}, %2, %0" : "=v"(product) : "m"(*p), "v"(y));
    return product;
  }
  static Vector multiplyAdd(Vector x, Vector y, Vector z) { return _mm512_fmadd_pd(x, y, z); }
  static double total(Vector x) {
    const __m256d half = _mm256_add_pd(__builtin_shufflevector(x, x, 0, 1, 2, 3),
                                       __builtin_shufflevector(x, x, 4, 5, 6, 7));
    const __m128d pair = _mm_add_pd(_mm256_castpd256_pd128(half), _mm256_extractf128_pd(half, 1));
    return pair[0] + pair[1];
  }
};

}  // namespace
}  // namespace korin::kernels

#endif
