#ifndef ZEPH_TESTS_ZEPH_FILES_ANY_MATRIX_H
#define ZEPH_TESTS_ZEPH_FILES_ANY_MATRIX_H

#include <bit>

#include "tests/zeph/front_test.h"

class AnyMatrixTest : public FrontTest {
 protected:
  // Any finite double, denormals and extremes included.
  double anyDouble() {
    double value;
    do value = std::bit_cast<double>(std::uint64_t{random_()} << 32 | random_());
    while (!std::isfinite(value));
    return value;
  }

  zeph::SparseMatrix randomMatrix(zeph::Symmetry symmetry) {
    zeph::SparseMatrix m;
    m.symmetry = symmetry;
    m.rows = 2 + below(12);
    m.cols = symmetry == zeph::Symmetry::General ? 2 + below(12) : m.rows;
    for (unsigned k = below(30); k > 0; --k) {
      unsigned row = below(m.rows);
      unsigned col = below(m.cols);
      if (symmetry != zeph::Symmetry::General && row < col) std::swap(row, col);
      if (symmetry == zeph::Symmetry::SkewSymmetric && row == col) continue;
      m.entries.push_back({row, col, anyDouble()});
    }
    return m;
  }
};

#endif
