// What the tests of the dense classes share, with the standard headers that nearly all use.
#ifndef ZEPH_TESTS_MATH_DENSE_DENSE_TESTING_H
#define ZEPH_TESTS_MATH_DENSE_DENSE_TESTING_H

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "math/korin.h"

namespace dense_testing {

using korin::Matrix;
using korin::Vector;

// Missing values are zero.
inline Matrix matrixOf(ZtSize rows, ZtSize cols, std::vector<ZtReal> values) {
  values.resize(rows * cols);
  return Matrix(rows, cols, values.data());
}

inline Vector vectorOf(const std::vector<ZtReal>& values) {
  return Vector(values.size(), values.data());
}

inline Matrix randomMatrix(ZtSize rows, ZtSize cols) {
  static std::mt19937 generator(11);
  std::uniform_real_distribution<ZtReal> uniform(-2.0, 2.0);
  Matrix m(rows, cols);
  for (ZtSize i = 0; i < m.rows * m.cols; ++i) m.data[i] = uniform(generator);
  return m;
}

inline Vector randomVector(ZtSize size) {
  return size == 0 ? Vector() : randomMatrix(1, size).row(0);
}

// A random block of a larger matrix, which knows whether something outside it was written.
struct Block {
  Matrix parent, before, view;

  Block(ZtSize rows, ZtSize cols, ZtSize gap = 2)
      : parent(randomMatrix(rows + 3, cols + gap)),
        before(parent),
        view(rows, cols, parent, 2, gap / 2) {}

  template <typename F>
  void fill(F next) {
    for (ZtSize i = 0; i < view.rows * view.cols; ++i) *view.flatRow(i) = next();
  }
  bool outsideUntouched() const {
    Matrix now = parent;
    const ZtSize c = (parent.cols - view.cols) / 2;
    now.setSub_mat(before, 2, c, view.rows, view.cols, 2, c);
    return now == before;
  }
};

// Bit-equal, except that any NaN stands for any other.
inline testing::AssertionResult sameBits(const Matrix& x, const Matrix& y) {
  if (x.rows != y.rows || x.cols != y.cols) return testing::AssertionFailure() << "other shape";
  for (ZtSize i = 0; i < x.rows; ++i) {
    for (ZtSize j = 0; j < x.cols; ++j) {
      const ZtReal a = x(i, j), b = y(i, j);
      if (std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b)) continue;
      if (std::isnan(a) && std::isnan(b)) continue;
      return testing::AssertionFailure() << x.rows << " x " << x.cols << ", at (" << i << ", " << j
                                         << "): " << a << " instead of " << b;
    }
  }
  return testing::AssertionSuccess();
}

// Sums in increasing inner index from 0.0.
inline Matrix plainProduct(const Matrix& a, const Matrix& b, bool transposeB = false) {
  Matrix c(a.rows, transposeB ? b.rows : b.cols);
  ZtMatrix_setZero(&c);
  for (ZtSize i = 0; i < c.rows; ++i) {
    for (ZtSize p = 0; p < a.cols; ++p) {
      for (ZtSize j = 0; j < c.cols; ++j) c(i, j) += a(i, p) * (transposeB ? b(j, p) : b(p, j));
    }
  }
  return c;
}

inline Matrix transposed(const Matrix& a) {
  Matrix t(a.cols, a.rows);
  for (ZtSize i = 0; i < a.rows; ++i) {
    for (ZtSize j = 0; j < a.cols; ++j) t(j, i) = a(i, j);
  }
  return t;
}

template <typename Action>
void expectThrow(Action action, const std::string& message) {
  try {
    action();
    ADD_FAILURE() << "nothing thrown: " << message;
  } catch (const ZtException& e) {
    EXPECT_EQ(e.value, 256u);
    EXPECT_EQ(e.what(), message);
  }
}

}  // namespace dense_testing

#endif
