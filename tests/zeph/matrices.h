// Matrices that tests of the public library share.
#ifndef ZEPH_TESTS_ZEPH_MATRICES_H
#define ZEPH_TESTS_ZEPH_MATRICES_H

#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include "zeph/sparse_matrix.h"

namespace zeph {

inline SparseMatrix squareMatrix(std::size_t n, Symmetry symmetry,
                                 std::vector<Entry> entries = {}) {
  SparseMatrix A;
  A.rows = A.cols = n;
  A.symmetry = symmetry;
  A.entries = std::move(entries);
  return A;
}

/// Symmetric, with the lower triangle that the formula in row and column gives; zeros are left out.
template <class Formula>
SparseMatrix symmetricMatrix(unsigned n, const Formula& formula) {
  SparseMatrix A = squareMatrix(n, Symmetry::Symmetric);
  for (unsigned i = 0; i < n; ++i) {
    for (unsigned j = 0; j <= i; ++j) {
      if (const double value = formula(i, j); value != 0.0) A.entries.push_back({i, j, value});
    }
  }
  return A;
}

/// The stencil on a grid of m x m nodes, or on a cube, with `together` unknowns each.
inline SparseMatrix stencil(std::uint32_t m, bool cube, std::uint32_t together = 1) {
  const std::uint32_t nodes = m * m * (cube ? m : 1);
  SparseMatrix A = squareMatrix(std::size_t{nodes} * together, Symmetry::Symmetric);
  for (std::uint32_t i = 0; i < nodes; ++i) {
    for (std::uint32_t a = 0; a < together; ++a) {
      for (std::uint32_t b = 0; b < together; ++b) {
        const auto add = [&](std::uint32_t j, double value) {
          if (i != j || b <= a) A.entries.push_back({i * together + a, j * together + b, value});
        };
        add(i, a == b ? 7.0 * together : 0.5);
        if (i % m != 0) add(i - 1, -1.0);
        if (i / m % m != 0) add(i - m, -1.0);
        if (i >= m * m) add(i - m * m, -1.0);
      }
    }
  }
  return A;
}

inline std::vector<double> valuesOf(const SparseMatrix& A) {
  std::vector<double> values;
  for (const Entry& e : A.entries) values.push_back(e.value);
  return values;
}

inline bool sameBits(const std::vector<double>& a, const std::vector<double>& b) {
  return a.size() == b.size() &&
         (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(double)) == 0);
}

}  // namespace zeph

#endif
