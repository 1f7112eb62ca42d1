#ifndef ZEPH_KERNELS_TILES_LANE_SSE2_H
#define ZEPH_KERNELS_TILES_LANE_SSE2_H

// One vector of two doubles (SSE2, which every x86-64 processor has), as the register kernels are
// written for: Vector, Mask, kWidth, zero(), load(p), store(p, x), mask(count), loadPart(p, mask),
// storePart(p, x, mask), broadcast(p), add(x, y), subtract(x, y), multiply(x, y),
// multiplyScalar(p, y) = *p * y, multiplyAdd(x, y, z) = x*y + z, fused where the level can, and
// total(x), the sum of x's elements. In an unnamed namespace, so that no code of one level can be
// merged with that of another by the linker; included only by files of this level.

#include <emmintrin.h>
#include <stddef.h>

namespace korin::kernels {
namespace {

struct Lane {
  using Vector = __m128d;
  using Mask = bool;  // whether the vector is whole
  static constexpr int kWidth = 2;
  static Vector zero() { return _mm_setzero_pd(); }
  static Vector load(const double* p) { return _mm_loadu_pd(p); }
  static void store(double* p, Vector x) { _mm_storeu_pd(p, x); }
  static Mask mask(size_t count) { return count == 2; }
  static Vector loadPart(const double* p, Mask m) { return m ? _mm_loadu_pd(p) : _mm_load_sd(p); }
  static void storePart(double* p, Vector x, Mask m) {
    if (m) {
      _mm_storeu_pd(p, x);
    } else {
      _mm_store_sd(p, x);
    }
  }
  static Vector broadcast(const double* p) { return _mm_set1_pd(*p); }
  static Vector add(Vector x, Vector y) { return _mm_add_pd(x, y); }
  static Vector subtract(Vector x, Vector y) { return _mm_sub_pd(x, y); }
  static Vector multiply(Vector x, Vector y) { return _mm_mul_pd(x, y); }
  static Vector multiplyScalar(const double* p, Vector y) { return _mm_mul_pd(broadcast(p), y); }
  static Vector multiplyAdd(Vector x, Vector y, Vector z) { return add(_mm_mul_pd(x, y), z); }
  static double total(Vector x) { return x[0] + x[1]; }
};

}  // namespace
}  // namespace korin::kernels

#endif
