#include "solver/partial_inverse_lu.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "solver/partial_inverse_sqrt.h"
#include "tests/solver/dense_inverse.h"

namespace zeph_solver {
namespace {

double uniform(std::mt19937& random) {
  return std::uniform_real_distribution<double>(-1, 1)(random);
}

void expectDiagonal(const ZtVector& found, const DenseInverse& expected) {
  const double tolerance = 1e-14 * expected.condition * expected.inverse.maxAbsVal();
  for (std::size_t i = 0; i < expected.inverse.rows; ++i) {
    ASSERT_NEAR(found.data[i], expected.inverse(i, i), tolerance) << "entry " << i;
  }
}

TEST(PartialInverseLuTest, MatchesTheDenseInverseAndKeepsSurplusEntries) {
  std::mt19937 random(3);
  for (int trial = 0; trial < 30; ++trial) {
    const std::size_t n = 1 + random() % 20;
    ProtoSparse A(n, n);
    for (std::size_t k = 0; k < 3 * n; ++k)
      A.addElement(random() % n, random() % n, uniform(random));
    for (std::size_t i = 0; i < n; ++i) A.addElement(i, (i + trial) % n, 4.0);
    ZtVector diagonal(n + 1);
    diagonal.data[n] = 8.5;
    partialInverseLU(A, diagonal);
    ASSERT_NO_FATAL_FAILURE(expectDiagonal(diagonal, denseInverse(A))) << "trial " << trial;
    EXPECT_EQ(diagonal.data[n], 8.5);
  }
}

TEST(PartialInverseLuTest, EntryPointTakesTheRouteAskedFor) {
  // Only the LU route sees what lies below the diagonal.
  ProtoSparse A(2, 2);
  A.addElement(0, 0, 2.0);
  A.addElement(1, 1, 2.0);
  A.addElement(1, 0, 1.0);
  A.addElement(0, 1, -1.0);
  ZtVector byCholesky(2), byLu(2);
  partialInverse(A, true, byCholesky);
  partialInverse(A, false, byLu);
  EXPECT_NEAR(byCholesky.data[0], 2.0 / 3.0, 1e-15);
  EXPECT_NEAR(byLu.data[0], 2.0 / 5.0, 1e-15);
}

TEST(PartialInverseLuTest, ShapesWithoutAnInverse) {
  for (const auto& [rows, cols] : {std::pair(0, 0), {0, 3}, {3, 0}, {2, 3}, {3, 2}, {1, 4}}) {
    ProtoSparse A(static_cast<std::size_t>(rows), static_cast<std::size_t>(cols));
    const int n = std::min(rows, cols);
    for (int i = 0; i < n; ++i) A.addElement(i, i, 1.0);
    ZtVector diagonal(4);
    std::fill_n(diagonal.data, 4, 6.0);
    partialInverseLU(A, diagonal);
    for (int i = 0; i < 4; ++i) {
      EXPECT_EQ(diagonal.data[i] == 6.0, i >= n) << rows << " x " << cols << ", entry " << i;
    }
  }
}

TEST(PartialInverseSqrtTest, MatchesTheDenseInverseOfTheProduct) {
  std::mt19937 random(4);
  for (std::size_t n = 0; n < 12; ++n) {
    korin::Matrix S(n, n);
    ProtoSparse A(n, n);
    for (std::size_t r = 0; r < n; ++r) {
      for (std::size_t c = 0; c < n; ++c)
        S(r, c) = r == c ? 2.0 + uniform(random) : uniform(random);
      for (std::size_t i = r; i < n; ++i) {
        for (std::size_t j = r; j < n; ++j) A.addElement(i, j, S(r, i) * S(r, j));
      }
      for (std::size_t c = 0; c < r; ++c) S(r, c) = NAN;  // never read
    }
    ZtVector whole(n), leading(n / 2);
    partialInverseSqrt(S, whole);
    ASSERT_NO_FATAL_FAILURE(expectDiagonal(whole, denseInverse(A))) << "n " << n;
    partialInverseSqrt(S, leading);
    for (std::size_t i = 0; i < n / 2; ++i) EXPECT_EQ(leading.data[i], whole.data[i]);
  }
}

TEST(PartialInverseSqrtTest, UnusableFactors) {
  korin::Matrix S(2, 2);
  S.setIdentity();
  S(0, 0) = 0.0;
  ZtVector diagonal(2);
  partialInverseSqrt(S, diagonal);
  EXPECT_FALSE(std::isfinite(diagonal.data[0]));
  for (const auto& [rows, cols] : {std::pair<ZtSize, ZtSize>(3, 2), {2, 3}}) {
    korin::Matrix flat(rows, cols);
    flat.setIdentity();
    partialInverseSqrt(flat, diagonal);
    EXPECT_TRUE(std::isnan(diagonal.data[0]) && std::isnan(diagonal.data[1]));
  }
}

}  // namespace
}  // namespace zeph_solver
