#include "solver/partial_inverse_sqrt.h"

#include "math/dense/korin_vector.h"
#include "tests/solver/dense_inverse.h"

namespace zeph_solver {
namespace {

double uniform(std::mt19937& random) {
  return std::uniform_real_distribution<double>(-1, 1)(random);
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
    partialInverseSqrt(S, leading);
    const DenseInverse expected = denseInverse(A);
    const double tolerance = 1e-14 * expected.condition * expected.inverse.maxAbsVal();
    for (std::size_t i = 0; i < n; ++i) {
      ASSERT_NEAR(whole.data[i], expected.inverse(i, i), tolerance) << i << " of " << n;
      ASSERT_TRUE(i >= n / 2 || leading.data[i] == whole.data[i]);
    }
    if (n == 0) continue;
    korin::Vector inPlace(S, 0);  // the first row of S
    partialInverseSqrt(S, inPlace);
    ASSERT_TRUE(inPlace.isEqual(whole)) << n;
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
