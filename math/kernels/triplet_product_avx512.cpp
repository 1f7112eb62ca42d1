#include <immintrin.h>

#include "math/kernels/triplet_strip.h"

namespace korin::kernels {
namespace {

struct Lane {
  using Vector = __m512d;
  using Mask = __mmask8;
  static constexpr int kWidth = 8;
  static Vector load(const double* p) { return _mm512_loadu_pd(p); }
  static void store(double* p, Vector x) { _mm512_storeu_pd(p, x); }
  static Mask mask(size_t count) { return static_cast<Mask>((1u << count) - 1); }
  static Vector loadPart(const double* p, Mask m) { return _mm512_maskz_loadu_pd(m, p); }
  static void storePart(double* p, Vector x, Mask m) { _mm512_mask_storeu_pd(p, m, x); }
  static Vector broadcast(double value) { return _mm512_set1_pd(value); }
  static Vector addProduct(Vector x, Vector y, Vector z) {
    return _mm512_add_pd(x, _mm512_mul_pd(y, z));
  }
};

template <int kVectors, bool kPartial>
constexpr TripletStripFunction kStrip = &TripletStrip<Lane, kVectors, kPartial>::run;

}  // namespace

const TripletStrips kAvx512TripletStrips = {
    8,
    4,
    {kStrip<1, false>, kStrip<2, false>, kStrip<3, false>, kStrip<4, false>},
    {kStrip<1, true>, kStrip<2, true>, kStrip<3, true>, kStrip<4, true>},
};

}  // namespace korin::kernels
