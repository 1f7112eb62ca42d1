// What one core of this machine can do at most: arithmetic in registers, and traffic with memory.
// Compiled for the widest instructions of the machine at hand.
#include <immintrin.h>

#include <cstddef>
#include <cstring>
#include <vector>

#include "measure.h"

namespace {

#if defined(__AVX512F__)
using Vector = __m512d;
#elif defined(__AVX__)
using Vector = __m256d;
#else
using Vector = __m128d;
#endif

constexpr int kLanes = sizeof(Vector) / sizeof(double);
// Enough independent sums to hide the latency of both operations, and few enough for the registers:
// there are 32 of 512 bits, 16 of the others.
constexpr int kChains = kLanes == 8 ? 16 : 12;
constexpr int kSteps = 200000;
constexpr std::size_t kArray = std::size_t{1} << 25;  // 256 MB, far beyond the caches
constexpr double kSeconds = 0.5;

struct Fused {
  static Vector step(Vector x, Vector m, Vector a) {
#if defined(__AVX512F__)
    return _mm512_fmadd_pd(x, m, a);
#elif defined(__FMA__)
    return _mm256_fmadd_pd(x, m, a);
#else
    return x * m + a;
#endif
  }
};

struct Separate {
  static Vector step(Vector x, Vector m, Vector a) { return x * m + a; }
};

/// A sum over many independent x of what kSteps times x = x m + a gives.
template <class Kind>
double chains(Vector m, Vector a) {
  Vector x[kChains];
  for (int i = 0; i < kChains; ++i) x[i] = Vector{} + i;
  asm("" : "+v"(m), "+v"(a));  // stay in registers: loads would be the limit
  for (int k = 0; k < kSteps; ++k) {
#pragma GCC unroll 32
    for (int i = 0; i < kChains; ++i) x[i] = Kind::step(x[i], m, a);
  }
  Vector sum{};
  for (int i = 0; i < kChains; ++i) sum += x[i];
  return sum[0];
}

/// Operations a second.
template <class Kind>
double rate() {
  compare::Best best;
  volatile double used = 0.0;
  compare::repeat(kSeconds, 3, 1000, [&] {
    best.add(compare::seconds([&] { used = chains<Kind>(Vector{} + 0.999999, Vector{} + 1e-6); }));
  });
  return 2.0 * kLanes * kChains * kSteps / best.value;
}

double readRate(const std::vector<double>& array) {
  compare::Best best;
  volatile double used = 0.0;
  compare::repeat(kSeconds, 3, 20, [&] {
    best.add(compare::seconds([&] {
      Vector sums[8]{};
      for (std::size_t i = 0; i < array.size(); i += 8 * kLanes) {
        for (std::size_t k = 0; k < 8; ++k) {
          Vector x;
          std::memcpy(&x, array.data() + i + k * kLanes, sizeof x);
          sums[k] += x;
        }
      }
      for (const Vector& s : sums) used = used + s[0];
    }));
  });
  return static_cast<double>(8 * array.size()) / best.value;
}

double copyRate(std::vector<double>& array) {
  const std::size_t half = array.size() / 2;
  compare::Best best;
  compare::repeat(kSeconds, 3, 20, [&] {
    best.add(compare::seconds(
        [&] { std::memcpy(array.data(), array.data() + half, half * sizeof(double)); }));
  });
  return static_cast<double>(8 * half) / best.value;
}

}  // namespace

int main() {
  std::vector<double> array(kArray, 1.0);
  compare::Record record("limits");
  record.add("fused", rate<Fused>() * 1e-9).add("separate", rate<Separate>() * 1e-9);
  record.add("read", readRate(array) * 1e-9).add("copy", copyRate(array) * 1e-9);
  record.print();
}
