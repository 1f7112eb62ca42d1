#include "solver/partial_inverse_chol.h"

#include <numeric>

#include "solver/partial_inverse_lu.h"
#include "tests/math/dense/dense_testing.h"
#include "tests/solver/dense_inverse.h"
#include "tests/sparse/coupled_shapes.h"

namespace zeph_solver {
namespace {

// Symmetric and diagonally dominant; the triplets in random order, some of them in two parts.
ProtoSparse coupled(std::size_t n, const CoupledShape& shape, std::mt19937& random) {
  std::uniform_real_distribution<double> value(-1, 1);
  ProtoSparse A(n, n);
  for (std::size_t i = 0; i < n; ++i) {
    A.addElement(i, i, 0.5);
    for (std::size_t j = 0; j < i; ++j) {
      if (!shape.coupled(i, j, random)) continue;
      const double v = value(random), part = random() % 4 == 0 ? 0.25 * v : 0.0;
      for (const auto& [r, c, x] : {std::tuple(i, j, v - part), {j, i, v}, {i, j, part}}) {
        A.addElement(r, c, x);
      }
      A.addElement(i, i, std::abs(v));
      A.addElement(j, j, std::abs(v));
    }
  }
  std::shuffle(A.elements.begin(), A.elements.end(), random);
  return A;
}

// Runs check(A, n) on small and large matrices of every shape: CHOLMOD's factor is simplicial for
// some of them and supernodal for others.
void onEveryShape(const std::function<void(ProtoSparse A, std::size_t n)>& check) {
  std::mt19937 random(3);
  for (const CoupledShape& shape : kCoupledShapes) {
    for (const std::size_t n : {1, 9, 180}) {
      SCOPED_TRACE(testing::Message() << shape.name << " of order " << n);
      check(coupled(n, shape, random), n);
      if (testing::Test::HasFatalFailure()) return;
    }
  }
}

TEST(PartialInverseChol, GivesTheDiagonalOfTheInverseAndLeavesASurplusAlone) {
  onEveryShape([](const ProtoSparse& A, std::size_t n) {
    const korin::Matrix expected = denseInverse(A).inverse;
    korin::Vector d(n + 2);
    d.setSub_scalar(-8.0, 0, n + 2);
    partialInverseChol(A, d);
    for (std::size_t k = 0; k < n; ++k) ASSERT_NEAR(d[k], expected(k, k), 1e-11 * expected(k, k));
    EXPECT_TRUE(d[n] == -8.0 && d[n + 1] == -8.0);
  });
}

TEST(PartialInverseChol, ReadsTheUpperTriangleOnlyWhereTheLuRouteReadsAll) {
  ProtoSparse A(2, 2);
  for (std::size_t i : {0, 1}) A.addElement(i, i, 2.0);
  A.addElement(0, 1, -1.0);
  A.addElement(1, 0, 0.5);
  ZtVector byCholesky(2), byLu(2);
  partialInverse(A, true, byCholesky);
  partialInverse(A, false, byLu);
  EXPECT_NEAR(byCholesky.data[0], 2.0 / 3.0, 1e-15);
  EXPECT_NEAR(byLu.data[0], 4.0 / 9.0, 1e-15);
}

TEST(CholeskyFactor, ReproducesTheMatrixInItsOwnAndInThePermutedOrder) {
  onEveryShape([](const ProtoSparse& A, std::size_t n) {
    korin::Matrix a, l, permutedA(n, n), product(n, n);
    A.toDenseMatrix(a, false);
    for (const bool permuted : {false, true}) {
      std::vector<unsigned int> perm(n);
      std::iota(perm.begin(), perm.end(), 0U);
      ProtoSparse factor;
      choleskyFactor(A, factor, permuted ? perm.data() : nullptr);
      ASSERT_TRUE(factor.isCompressed());
      factor.toDenseMatrix(l, false);
      product.setTriL(l);
      ASSERT_EQ(l, product);
      product.setMatMulTransMat(l, l);
      for (std::size_t k = 0; k < n * n; ++k) *permutedA.flatRow(k) = a(perm[k / n], perm[k % n]);
      ASSERT_TRUE(product.isEqual(permutedA, 1e-12 * static_cast<double>(n)));
    }
  });
}

// Sparse enough for CHOLMOD to work in columns, large enough to be inverted on panels.
TEST(PartialInverseChol, SurvivesAGridFactorThatBreaksOffAnywhere) {
  constexpr std::size_t kSide = 60, n = kSide * kSide;
  for (std::size_t spoilt = 0; spoilt < n; spoilt += 397) {
    ProtoSparse A(n, n);
    for (std::size_t i = 0; i < n; ++i) {
      A.addElement(i, i, i == spoilt ? -9.0 : 4.1);
      if (i % kSide != 0) A.addElement(i - 1, i, -1.0);
      if (i >= kSide) A.addElement(i - kSide, i, -1.0);
    }
    korin::Vector d(n);
    partialInverseChol(A, d);
    EXPECT_FALSE(std::isfinite(d[spoilt])) << spoilt;
  }
}

TEST(PartialInverseChol, IndefiniteMatricesGiveNonFiniteEntriesAndDoNotThrow) {
  onEveryShape([](const ProtoSparse& A, std::size_t n) {
    ProtoSparse spoilt = A;
    for (const std::size_t k : {n / 2, n - 1}) spoilt.addElement(k, k, -1000.0);
    korin::Vector d(n);
    partialInverseChol(spoilt, d);
    EXPECT_FALSE(std::isfinite(d[n / 2]) || std::isfinite(d[n - 1]));
    spoilt = A;
    spoilt.scalarMultiplication(-1.0);
    partialInverseChol(spoilt, d);
    for (std::size_t k = 0; k < n; ++k) ASSERT_FALSE(std::isfinite(d[k])) << k;
  });
}

TEST(PartialInverseChol, ThrowsUnderItsOwnSignatureWhenThereIsNoFactor) {
  const ProtoSparse rectangular(3, 5);
  ZtVector d(5);
  d.data[0] = 7.0;
  ProtoSparse l;
  const std::string failed = "Failed to do cholmod_solve, cmX = nullptr";
  dense_testing::expectThrow(
      [&] { partialInverseChol(rectangular, d); },
      "void zeph_solver::partialInverseChol(const ProtoSparse&, ZtVector&) " + failed);
  dense_testing::expectThrow(
      [&] { choleskyFactor(rectangular, l, nullptr); },
      "void zeph_solver::choleskyFactor(const ProtoSparse&, ProtoSparse&, unsigned int*) " +
          failed);
  EXPECT_EQ(d.data[0], 7.0);
}

}  // namespace
}  // namespace zeph_solver
