#ifndef ZEPH_FACTOR_NORMAL_NUMBERS_H
#define ZEPH_FACTOR_NORMAL_NUMBERS_H

#include <cmath>
#include <cstdint>

namespace zeph {

/// Independent standard normal numbers, the same for the same seed with every standard library:
/// SplitMix64 (Steele, Lea, Flood 2014) through Marsaglia's polar method (1964).
class NormalNumbers {
 public:
  explicit NormalNumbers(std::uint64_t seed) : state_(seed) {}

  double next() {
    if (hasSpare_) {
      hasSpare_ = false;
      return spare_;
    }
    double u, v, square;
    do {
      u = 2.0 * uniform() - 1.0;
      v = 2.0 * uniform() - 1.0;
      square = u * u + v * v;
    } while (square >= 1.0 || square == 0.0);
    const double factor = std::sqrt(-2.0 * std::log(square) / square);
    spare_ = v * factor;
    hasSpare_ = true;
    return u * factor;
  }

 private:
  // In [0, 1), in steps of 2⁻⁵³.
  double uniform() {
    std::uint64_t z = state_ += 0x9E3779B97F4A7C15u;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
    return static_cast<double>((z ^ (z >> 31)) >> 11) * 0x1p-53;
  }

  std::uint64_t state_;
  double spare_ = 0.0;
  bool hasSpare_ = false;
};

}  // namespace zeph

#endif
