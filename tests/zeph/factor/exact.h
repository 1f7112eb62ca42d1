// Numbers without rounding, to know the inverse of a matrix of doubles by.
#ifndef ZEPH_TESTS_ZEPH_FACTOR_EXACT_H
#define ZEPH_TESTS_ZEPH_FACTOR_EXACT_H

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

/// ±m 2^e with a whole m of any length, odd or zero: every double, and sums, products and exact
/// quotients of such numbers.
class Exact {
 public:
  Exact() = default;
  explicit Exact(double value) : negative_(std::signbit(value)) {
    if (value == 0.0) return;
    int exponent = 0;
    const auto whole =
        static_cast<std::uint64_t>(std::ldexp(std::frexp(std::fabs(value), &exponent), 53));
    exponent_ = exponent - 53;
    limbs_ = {static_cast<std::uint32_t>(whole), static_cast<std::uint32_t>(whole >> 32)};
    normalise();
  }

  bool isZero() const { return limbs_.empty(); }

  Exact operator-() const {
    Exact r = *this;
    r.negative_ = !negative_;
    return r;
  }

  friend Exact operator-(const Exact& a, const Exact& b) {
    if (a.isZero()) return -b;
    if (b.isZero()) return a;
    Exact x = a, y = b;
    const long least = x.exponent_ < y.exponent_ ? x.exponent_ : y.exponent_;
    x.lower(least);
    y.lower(least);
    if (x.negative_ != y.negative_) {
      x.addMagnitude(y.limbs_);
    } else {
      if (x.smallerThan(y)) {
        std::swap(x, y);
        x.negative_ = !x.negative_;
      }
      x.subtractMagnitude(y.limbs_, 0, 1);
    }
    x.normalise();
    return x;
  }

  friend Exact operator*(const Exact& a, const Exact& b) {
    Exact r;
    r.limbs_.assign(a.limbs_.size() + b.limbs_.size(), 0);
    for (std::size_t i = 0; i < a.limbs_.size(); ++i) {
      std::uint64_t carry = 0;
      for (std::size_t j = 0; j < b.limbs_.size() || carry != 0; ++j) {
        carry += r.limbs_[i + j];
        if (j < b.limbs_.size()) carry += std::uint64_t{a.limbs_[i]} * b.limbs_[j];
        r.limbs_[i + j] = static_cast<std::uint32_t>(carry);
        carry >>= 32;
      }
    }
    r.exponent_ = a.exponent_ + b.exponent_;
    r.negative_ = a.negative_ != b.negative_;
    r.normalise();
    return r;
  }

  /// Where the quotient is such a number as well: from the lowest limb upwards (Jebelean 1993).
  friend Exact operator/(const Exact& a, const Exact& b) {
    Exact r, rest = a;
    std::uint32_t inverse = 1;  // of b's lowest limb modulo 2^32, by Newton's method
    for (int step = 0; step < 5; ++step) inverse *= 2 - b.limbs_[0] * inverse;
    for (std::size_t i = 0; i + b.limbs_.size() <= a.limbs_.size(); ++i) {
      r.limbs_.push_back(rest.limbs_[i] * inverse);
      rest.subtractMagnitude(b.limbs_, i, r.limbs_[i]);
    }
    r.exponent_ = a.exponent_ - b.exponent_;
    r.negative_ = a.negative_ != b.negative_;
    r.normalise();
    return r;
  }

  /// a / b to the digits of a long double.
  static long double ratio(const Exact& a, const Exact& b) {
    if (a.isZero()) return 0.0L;
    const long double q = a.leading() / b.leading();
    const long exponent = a.exponent_ + 32 * static_cast<long>(a.limbs_.size()) - b.exponent_ -
                          32 * static_cast<long>(b.limbs_.size());
    return std::ldexp(a.negative_ == b.negative_ ? q : -q, static_cast<int>(exponent));
  }

 private:
  using Limbs = std::vector<std::uint32_t>;

  // The number without sign and exponent, as a fraction of 2^(32 limbs).
  long double leading() const {
    long double sum = 0.0L, unit = 0x1p-32L;
    for (std::size_t k = limbs_.size(); k-- > 0 && k + 4 > limbs_.size(); unit *= 0x1p-32L) {
      sum += limbs_[k] * unit;
    }
    return sum;
  }

  bool smallerThan(const Exact& other) const {
    if (limbs_.size() != other.limbs_.size()) return limbs_.size() < other.limbs_.size();
    for (std::size_t k = limbs_.size(); k-- > 0;) {
      if (limbs_[k] != other.limbs_[k]) return limbs_[k] < other.limbs_[k];
    }
    return false;
  }

  // The same number with a smaller exponent.
  void lower(long exponent) {
    const auto bits = static_cast<std::size_t>(exponent_ - exponent);
    Limbs shifted(bits / 32, 0);
    std::uint64_t carry = 0;
    for (const std::uint32_t limb : limbs_) {
      carry |= std::uint64_t{limb} << bits % 32;
      shifted.push_back(static_cast<std::uint32_t>(carry));
      carry >>= 32;
    }
    shifted.push_back(static_cast<std::uint32_t>(carry));
    limbs_ = std::move(shifted);
    exponent_ = exponent;
    trim();
  }

  void addMagnitude(const Limbs& other) {
    if (limbs_.size() < other.size()) limbs_.resize(other.size(), 0);
    std::uint64_t carry = 0;
    for (std::size_t k = 0; k < limbs_.size(); ++k) {
      carry += std::uint64_t{limbs_[k]} + (k < other.size() ? other[k] : 0);
      limbs_[k] = static_cast<std::uint32_t>(carry);
      carry >>= 32;
    }
    limbs_.push_back(static_cast<std::uint32_t>(carry));
  }

  // Takes factor * other * 2^(32 at) off; what would fall below zero wraps around.
  void subtractMagnitude(const Limbs& other, std::size_t at, std::uint32_t factor) {
    std::uint64_t borrow = 0;
    for (std::size_t k = at; k < limbs_.size(); ++k) {
      if (k - at < other.size()) borrow += std::uint64_t{factor} * other[k - at];
      const auto low = static_cast<std::uint32_t>(borrow);
      borrow = (borrow >> 32) + (limbs_[k] < low ? 1 : 0);
      limbs_[k] -= low;
    }
  }

  void trim() {
    while (!limbs_.empty() && limbs_.back() == 0) limbs_.pop_back();
  }

  void normalise() {
    trim();
    if (limbs_.empty()) return;
    std::size_t zeros = 0;
    while (limbs_[zeros] == 0) ++zeros;
    limbs_.erase(limbs_.begin(), limbs_.begin() + static_cast<std::ptrdiff_t>(zeros));
    int bits = 0;
    while ((limbs_[0] >> bits & 1u) == 0) ++bits;
    for (std::size_t k = 0; bits > 0 && k < limbs_.size(); ++k) {
      const std::uint64_t above = k + 1 < limbs_.size() ? limbs_[k + 1] : 0;
      limbs_[k] = static_cast<std::uint32_t>((above << 32 | limbs_[k]) >> bits);
    }
    exponent_ += 32 * static_cast<long>(zeros) + bits;
    trim();
  }

  Limbs limbs_;
  long exponent_ = 0;
  bool negative_ = false;
};

/// The inverse of an n x n matrix, both by rows, or nothing where it is singular: Gauss-Jordan
/// elimination of [A I] without fractions (Bareiss 1968). `determinant` becomes its absolute value.
inline std::vector<std::vector<long double>> exactInverse(std::vector<std::vector<Exact>> a,
                                                          long double* determinant = nullptr) {
  const std::size_t n = a.size();
  for (std::size_t i = 0; i < n; ++i) {
    a[i].resize(2 * n);
    a[i][n + i] = Exact(1.0);
  }
  Exact before(1.0);
  for (std::size_t k = 0; k < n; ++k) {
    std::size_t p = k;
    while (p < n && a[p][k].isZero()) ++p;
    if (p == n) return {};
    std::swap(a[p], a[k]);
    for (std::size_t i = 0; i < n; ++i) {
      if (i == k) continue;
      const Exact factor = a[i][k];
      for (std::size_t j = 0; j < 2 * n; ++j) {
        a[i][j] = (a[k][k] * a[i][j] - factor * a[k][j]) / before;
      }
    }
    before = a[k][k];
  }
  std::vector<std::vector<long double>> inverse(n, std::vector<long double>(n));
  for (std::size_t i = 0; i < n; ++i) {
    for (std::size_t j = 0; j < n; ++j) inverse[i][j] = Exact::ratio(a[i][n + j], a[i][i]);
  }
  if (determinant != nullptr) *determinant = std::fabs(Exact::ratio(before, Exact(1.0)));
  return inverse;
}

inline std::vector<long double> exactInverseDiagonal(std::vector<std::vector<Exact>> a) {
  std::vector<long double> diagonal;
  const auto inverse = exactInverse(std::move(a));
  for (const std::vector<long double>& row : inverse) diagonal.push_back(row[diagonal.size()]);
  return diagonal;
}

#endif
