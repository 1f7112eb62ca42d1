// What a sparse factor has to agree with: the inverse of a small matrix in long double.
#ifndef ZEPH_TESTS_ZEPH_FACTOR_DENSE_TRUTH_H
#define ZEPH_TESTS_ZEPH_FACTOR_DENSE_TRUTH_H

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>
#include <vector>

#include "zeph/sparse_matrix.h"

/// Gauss-Jordan elimination of [A I] with pivots chosen in columns, relative to their rows. A
/// matrix without zeros on the diagonal is brought to one with a diagonal near 1 by powers of two
/// before, which is exact: such pivots then suit rows of every unit.
struct DenseTruth {
  explicit DenseTruth(const zeph::SparseMatrix& A) : n(A.rows), a(n * n, 0.0L), inverse(n * n) {
    for (const zeph::Entry& e : A.entries) {
      a[e.row * n + e.col] += e.value;
      if (A.symmetry == zeph::Symmetry::General || e.row == e.col) continue;
      a[e.col * n + e.row] += A.symmetry == zeph::Symmetry::Symmetric ? e.value : -e.value;
    }
    std::vector<int> scale(n, 0);
    for (std::size_t i = 0; i < n; ++i) {
      if (a[i * (n + 1)] == 0.0L) {
        scale.assign(n, 0);
        break;
      }
      scale[i] = -std::ilogb(a[i * (n + 1)]) / 2;
    }
    for (const int k : scale) logAbs -= 2.0L * k * std::log(2.0L);
    std::vector<std::vector<long double>> w(n, std::vector<long double>(2 * n, 0.0L));
    std::vector<long double> size(n);
    for (std::size_t i = 0; i < n; ++i) {
      w[i][n + i] = 1.0L;
      for (std::size_t j = 0; j < n; ++j) {
        w[i][j] = std::ldexp(a[i * n + j], scale[i] + scale[j]);
        size[i] = std::max(size[i], std::fabs(w[i][j]));
      }
    }
    for (std::size_t k = 0; k < n; ++k) {
      std::size_t p = k;
      for (std::size_t i = k + 1; i < n; ++i) {
        if (std::fabs(w[i][k]) / size[i] > std::fabs(w[p][k]) / size[p]) p = i;
      }
      if (p != k) sign = -sign;
      std::swap(w[p], w[k]);
      std::swap(size[p], size[k]);
      const long double pivot = w[k][k];
      if (pivot < 0) sign = -sign;
      logAbs += std::log(std::fabs(pivot));
      for (long double& x : w[k]) x /= pivot;
      for (std::size_t i = 0; i < n; ++i) {
        const long double f = i == k ? 0.0L : w[i][k];
        for (std::size_t j = k; f != 0.0L && j < 2 * n; ++j) w[i][j] -= f * w[k][j];
      }
    }
    for (std::size_t i = 0; i < n; ++i) {
      for (std::size_t j = 0; j < n; ++j) {
        inverse[i * n + j] = std::ldexp(w[i][n + j], scale[i] + scale[j]);
      }
    }
  }

  long double operator()(std::size_t i, std::size_t j) const { return inverse[i * n + j]; }

  std::size_t n;
  std::vector<long double> a, inverse;
  long double logAbs = 0.0L;
  int sign = 1;
};

#endif
