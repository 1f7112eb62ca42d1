// What the tests of the dense classes share.
#ifndef ZEPH_TESTS_MATH_DENSE_TESTING_H
#define ZEPH_TESTS_MATH_DENSE_TESTING_H

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "math/korin.h"

namespace dense_testing {

// Missing values are zero.
inline korin::Matrix matrixOf(ZtSize rows, ZtSize cols, std::vector<ZtReal> values) {
  values.resize(rows * cols);
  return korin::Matrix(rows, cols, values.data());
}

inline korin::Vector vectorOf(const std::vector<ZtReal>& values) {
  return korin::Vector(values.size(), values.data());
}

inline korin::Matrix randomMatrix(ZtSize rows, ZtSize cols) {
  static std::mt19937 generator(11);
  std::uniform_real_distribution<ZtReal> uniform(-2.0, 2.0);
  korin::Matrix m(rows, cols);
  for (ZtSize i = 0; i < m.rows * m.cols; ++i) m.data[i] = uniform(generator);
  return m;
}

inline korin::Vector randomVector(ZtSize size) {
  return size == 0 ? korin::Vector() : randomMatrix(1, size).row(0);
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
