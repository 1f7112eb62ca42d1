// Numbers without rounding, to know the inverse of a matrix of doubles by.
#ifndef ZEPH_TESTS_ZEPH_FACTOR_EXACT_H
#define ZEPH_TESTS_ZEPH_FACTOR_EXACT_H

#include <gmpxx.h>

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "zeph/sparse_matrix.h"

/// m 2^e with a whole m, odd or zero: every double, and sums, products and exact quotients of such
/// numbers.
class Exact {
 public:
  Exact() = default;
  explicit Exact(double value) {
    int exponent = 0;
    const double leading = std::frexp(value, &exponent);
    *this = Exact(std::ldexp(leading, 53), exponent - 53);
  }

  bool isZero() const { return whole_ == 0; }

  Exact operator-() const { return Exact(-whole_, exponent_); }

  friend Exact operator-(const Exact& a, const Exact& b) {
    const long least = std::min(a.exponent_, b.exponent_);
    return Exact(a.timesTwoTo(a.exponent_ - least) - b.timesTwoTo(b.exponent_ - least), least);
  }

  friend Exact operator*(const Exact& a, const Exact& b) {
    return Exact(a.whole_ * b.whole_, a.exponent_ + b.exponent_);
  }

  /// Where the quotient is such a number as well.
  friend Exact operator/(const Exact& a, const Exact& b) {
    return Exact(a.whole_ / b.whole_, a.exponent_ - b.exponent_);
  }

  /// a / b, cut to the 64 digits of a long double.
  static long double ratio(const Exact& a, const Exact& b) {
    if (a.isZero()) return 0.0L;
    const long shift = std::max(0L, 65 + b.digits() - a.digits());
    const Exact q(a.timesTwoTo(shift) / b.whole_, a.exponent_ - b.exponent_ - shift);
    const long cut = std::max(0L, q.digits() - 64);
    const mpz_class leading = abs(q.whole_) >> static_cast<unsigned long>(cut);
    const auto size = static_cast<long double>(leading.get_ui());
    return std::ldexp(q.whole_ < 0 ? -size : size, static_cast<int>(q.exponent_ + cut));
  }

 private:
  Exact(const mpz_class& whole, long exponent) : whole_(whole), exponent_(exponent) {
    if (isZero()) return;
    const mp_bitcnt_t zeros = mpz_scan1(whole_.get_mpz_t(), 0);
    whole_ >>= zeros;
    exponent_ += static_cast<long>(zeros);
  }

  long digits() const { return static_cast<long>(mpz_sizeinbase(whole_.get_mpz_t(), 2)); }

  mpz_class timesTwoTo(long power) const { return whole_ << static_cast<unsigned long>(power); }

  mpz_class whole_;
  long exponent_ = 0;
};

/// The inverse by rows, or nothing where A is singular: Gauss-Jordan elimination of [A I] without
/// fractions (Bareiss 1968). `determinant` becomes its absolute value.
inline std::vector<std::vector<long double>> exactInverse(const zeph::SparseMatrix& A,
                                                          long double* determinant = nullptr) {
  const std::size_t n = A.rows;
  std::vector<std::vector<Exact>> a(n, std::vector<Exact>(2 * n));
  for (const zeph::Entry& e : A.entries) {
    const Exact value(e.value);
    a[e.row][e.col] = a[e.row][e.col] - -value;
    if (A.symmetry == zeph::Symmetry::General || e.row == e.col) continue;
    const bool same = A.symmetry == zeph::Symmetry::Symmetric;
    a[e.col][e.row] = a[e.col][e.row] - (same ? -value : value);
  }
  for (std::size_t i = 0; i < n; ++i) a[i][n + i] = Exact(1.0);
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

#endif
