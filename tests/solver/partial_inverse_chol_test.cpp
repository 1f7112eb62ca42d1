#include "solver/partial_inverse_chol.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "solver/protosparse.h"

namespace {

using zeph_solver::ProtoSparse;
using Dense = std::vector<std::vector<double>>;

/// A symmetric, diagonally dominant test matrix; the sizes and shapes make CHOLMOD choose a
/// simplicial factor for some and a supernodal one for others.
struct Case {
  std::string name;
  unsigned int n;
  std::function<bool(unsigned int, unsigned int)> coupled;  // for rows i > columns j
};

const std::vector<Case> kCases{
    {"scalar", 1, [](auto, auto) { return false; }},
    {"diagonal", 9, [](auto, auto) { return false; }},
    {"tridiagonal", 200, [](auto i, auto j) { return i == j + 1; }},
    {"arrow", 150, [](auto, auto j) { return j == 0; }},
    {"blocks", 96, [](auto i, auto j) { return i / 6 == j / 6 || i == j + 30; }},
    {"grid", 400, [](auto i, auto j) { return i == j + 20 || (i == j + 1 && i % 20); }},
    {"two components", 120, [](auto i, auto j) { return i % 2 == j % 2 && i < j + 9; }},
    {"grid in space", 343,
     [](auto i, auto j) { return i == j + 49 || i == j + 7 || (i == j + 1 && i % 7); }},
    {"full", 180, [](auto, auto) { return true; }},
};

Dense makeMatrix(const Case& c, std::mt19937& random) {
  std::uniform_real_distribution<double> value(-1, 1);
  Dense a(c.n, std::vector<double>(c.n, 0.0));
  for (unsigned int i = 0; i < c.n; ++i) {
    a[i][i] += 0.5;
    for (unsigned int j = 0; j < i; ++j) {
      if (!c.coupled(i, j)) continue;
      a[i][j] = a[j][i] = value(random);
      a[i][i] += std::abs(a[i][j]);
      a[j][j] += std::abs(a[i][j]);
    }
  }
  return a;
}

/// The triplets of a in random order, some of them in two parts.
ProtoSparse assemble(const Dense& a, std::mt19937& random) {
  ProtoSparse m(a.size(), a.size());
  std::vector<std::array<size_t, 2>> places;
  for (size_t i = 0; i < a.size(); ++i) {
    for (size_t j = 0; j < a.size(); ++j) {
      if (a[i][j] != 0) places.push_back({i, j});
    }
  }
  std::shuffle(places.begin(), places.end(), random);
  for (const auto& [i, j] : places) {
    const double part = random() % 4 == 0 ? 0.25 * a[i][j] : 0.0;
    m.addElement(i, j, a[i][j] - part);
    m.addElement(i, j, part);
  }
  return m;
}

std::vector<double> inverseDiagonal(Dense a) {
  std::vector<double> diagonal;
  for (size_t k = 0; k < a.size(); ++k) {  // Gauss-Jordan in place
    const double pivot = a[k][k];
    a[k][k] = 1;
    for (double& v : a[k]) v /= pivot;
    for (size_t i = 0; i < a.size(); ++i) {
      const double factor = a[i][k];
      if (i == k || factor == 0) continue;
      a[i][k] = 0;
      for (size_t j = 0; j < a.size(); ++j) a[i][j] -= factor * a[k][j];
    }
  }
  for (size_t k = 0; k < a.size(); ++k) diagonal.push_back(a[k][k]);
  return diagonal;
}

TEST(PartialInverseChol, GivesTheDiagonalOfTheInverseAndLeavesASurplusAlone) {
  std::mt19937 random(3);
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.name);
    const Dense a = makeMatrix(c, random);
    const std::vector<double> expected = inverseDiagonal(a);
    ZtVector d(c.n + 2);
    std::fill_n(d.data, d.size, -8.0);
    zeph_solver::partialInverseChol(assemble(a, random), d);
    for (size_t k = 0; k < c.n; ++k) ASSERT_NEAR(d.data[k], expected[k], 1e-11 * expected[k]);
    EXPECT_EQ(d.data[c.n], -8.0);
    EXPECT_EQ(d.data[c.n + 1], -8.0);
  }
}

TEST(CholeskyFactor, ReproducesTheMatrixInItsOwnAndInThePermutedOrder) {
  std::mt19937 random(5);
  for (const Case& c : kCases) {
    const Dense a = makeMatrix(c, random);
    for (const bool permuted : {false, true}) {
      SCOPED_TRACE(c.name + (permuted ? " permuted" : ""));
      std::vector<unsigned int> perm(c.n);
      std::iota(perm.begin(), perm.end(), 0U);
      ProtoSparse factor;
      zeph_solver::choleskyFactor(assemble(a, random), factor, permuted ? perm.data() : nullptr);
      ASSERT_TRUE(factor.isCompressed());
      ASSERT_EQ(factor.rowCount, c.n);
      Dense product(c.n, std::vector<double>(c.n, 0.0));
      ZtMatrix l;
      factor.toDenseMatrix(l, false);
      for (size_t i = 0; i < c.n; ++i) {
        for (size_t j = 0; j < c.n; ++j) {
          for (size_t k = 0; k <= std::min(i, j); ++k) {
            product[perm[i]][perm[j]] += l.data[i * l.stride + k] * l.data[j * l.stride + k];
          }
          ASSERT_TRUE(j <= i || l.data[i * l.stride + j] == 0.0);
        }
      }
      for (size_t i = 0; i < c.n; ++i) {
        for (size_t j = 0; j < c.n; ++j) ASSERT_NEAR(product[i][j], a[i][j], 1e-12 * c.n);
      }
    }
  }
}

TEST(PartialInverseChol, ReadsTheUpperTriangleOnly) {
  ProtoSparse upper(2, 2), lower(2, 2);
  for (ProtoSparse* m : {&upper, &lower}) {
    m->addElement(0, 0, 4);
    m->addElement(1, 1, 3);
  }
  upper.addElement(0, 1, 2);
  lower.addElement(1, 0, 2);
  ZtVector d(2);
  zeph_solver::partialInverseChol(upper, d);
  EXPECT_DOUBLE_EQ(d.data[0], 0.375);
  EXPECT_DOUBLE_EQ(d.data[1], 0.5);
  zeph_solver::partialInverseChol(lower, d);
  EXPECT_DOUBLE_EQ(d.data[0], 0.25);
  EXPECT_DOUBLE_EQ(d.data[1], 1.0 / 3.0);
}

TEST(PartialInverseChol, IndefiniteMatricesGiveNonFiniteEntriesAndDoNotThrow) {
  std::mt19937 random(9);
  for (const Case& c : kCases) {
    if (c.name == "two components") continue;  // the other component stays finite
    SCOPED_TRACE(c.name);
    Dense a = makeMatrix(c, random);
    for (size_t k = 0; k < c.n; ++k) a[k][k] = -a[k][k];
    ZtVector d(c.n);
    zeph_solver::partialInverseChol(assemble(a, random), d);
    for (size_t k = 0; k < c.n; ++k) ASSERT_FALSE(std::isfinite(d.data[k])) << k;
    a = makeMatrix(c, random);
    a[c.n / 2][c.n / 2] = -1;
    zeph_solver::partialInverseChol(assemble(a, random), d);
    EXPECT_FALSE(std::isfinite(d.data[c.n / 2]));
  }
}

TEST(PartialInverseChol, ThrowsUnderItsOwnSignatureWhenThereIsNoFactor) {
  const ProtoSparse rectangular(3, 5);
  ZtVector d(5);
  std::fill_n(d.data, 5, 7.0);
  ProtoSparse l;
  const std::vector<std::pair<std::string, std::function<void()>>> calls{
      {"void zeph_solver::partialInverseChol(const ProtoSparse&, ZtVector&) ",
       [&] { zeph_solver::partialInverseChol(rectangular, d); }},
      {"void zeph_solver::choleskyFactor(const ProtoSparse&, ProtoSparse&, unsigned int*) ",
       [&] { zeph_solver::choleskyFactor(rectangular, l, nullptr); }}};
  for (const auto& [signature, call] : calls) {
    try {
      call();
      ADD_FAILURE() << signature;
    } catch (const ZtException& e) {
      EXPECT_EQ(e.value, 256U);
      EXPECT_EQ(e.what(), signature + "Failed to do cholmod_solve, cmX = nullptr");
    }
  }
  EXPECT_EQ(d.data[0], 7.0);
}

}  // namespace
