#include <immintrin.h>

#include "math/kernels/triplet_strip.h"

namespace korin::kernels {
namespace {

struct Lane {
  using Vector = __m256d;
  using Mask = __m256i;
  static constexpr int kWidth = 4;
  static Vector load(const double* p) { return _mm256_loadu_pd(p); }
  static void store(double* p, Vector x) { _mm256_storeu_pd(p, x); }
  static Mask mask(size_t count) {
    const __m256i limit = _mm256_set1_epi64x(static_cast<long long>(count));
    return _mm256_cmpgt_epi64(limit, _mm256_setr_epi64x(0, 1, 2, 3));
  }
  static Vector loadPart(const double* p, Mask m) { return _mm256_maskload_pd(p, m); }
  static void storePart(double* p, Vector x, Mask m) { _mm256_maskstore_pd(p, m, x); }
  static Vector broadcast(double value) { return _mm256_set1_pd(value); }
  static Vector addProduct(Vector x, Vector y, Vector z) {
    return _mm256_add_pd(x, _mm256_mul_pd(y, z));
  }
};

template <int kVectors, bool kPartial>
constexpr TripletStripFunction kStrip = &TripletStrip<Lane, kVectors, kPartial>::run;

}  // namespace

const TripletStrips kAvx2TripletStrips = {
    4,
    8,
    {kStrip<1, false>, kStrip<2, false>, kStrip<3, false>, kStrip<4, false>, kStrip<5, false>,
     kStrip<6, false>, kStrip<7, false>, kStrip<8, false>},
    {kStrip<1, true>, kStrip<2, true>, kStrip<3, true>, kStrip<4, true>, kStrip<5, true>,
     kStrip<6, true>, kStrip<7, true>, kStrip<8, true>},
};

}  // namespace korin::kernels
