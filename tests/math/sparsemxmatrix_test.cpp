#include "math/sparsemxmatrix.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "math/kernels/processor.h"
#include "math/panel_storage.h"
#include "math/supernodal_inverse.h"
#include "math/supernodes.h"

namespace {

using korin::kernels::ProcessorLevel;

using Matrix = korin::SparseMxMatrix<unsigned int, double>;
using Dense = std::vector<std::vector<double>>;
using Pattern = std::vector<std::vector<bool>>;

struct Columns {
  std::vector<unsigned int> starts{0}, rows;
  std::vector<double> values;
  Matrix view() {
    const auto n = static_cast<unsigned int>(starts.size() - 1);
    return Matrix(n, n, starts[n], values.data(), rows.data(), starts.data(), false);
  }
};

/// Lower-triangular factor of a dense matrix, stored on its elimination pattern.
Columns factorise(Dense a) {
  const size_t n = a.size();
  Pattern kept(n, std::vector<bool>(n));
  for (size_t i = 0; i < n; ++i) {
    for (size_t j = 0; j <= i; ++j) kept[i][j] = i == j || a[i][j] != 0;
  }
  Columns l;
  for (size_t k = 0; k < n; ++k) {
    const double d = std::sqrt(a[k][k]);
    for (size_t i = k; i < n; ++i) {
      if (!kept[i][k]) continue;
      a[i][k] = i == k ? d : a[i][k] / d;
      l.rows.push_back(static_cast<unsigned int>(i));
      l.values.push_back(a[i][k]);
    }
    l.starts.push_back(static_cast<unsigned int>(l.rows.size()));
    for (size_t j = k + 1; j < n; ++j) {
      for (size_t i = j; kept[j][k] && i < n; ++i) {
        if (!kept[i][k]) continue;
        a[i][j] -= a[i][k] * a[j][k];
        kept[i][j] = true;
      }
    }
  }
  return l;
}

/// The recurrence row by row on dense storage: what holds for every pattern, complete or not.
Dense recurrence(const Columns& l) {
  const size_t n = l.starts.size() - 1;
  Dense z(n, std::vector<double>(n, 0.0)), factor = z;
  Pattern kept(n, std::vector<bool>(n));
  for (size_t c = 0; c < n; ++c) {
    for (auto p = l.starts[c]; p < l.starts[c + 1]; ++p) {
      factor[l.rows[p]][c] = l.values[p];
      kept[l.rows[p]][c] = true;
    }
  }
  for (size_t j = n; j-- > 0;) {
    for (size_t k = j + 1; k-- > 0;) {
      if (!kept[j][k]) continue;
      double s = 0;
      for (size_t i = k + 1; i < n; ++i) {
        if (kept[i][k]) s += factor[i][k] * z[i][j];
      }
      const double d = factor[k][k];
      z[j][k] = z[k][j] = k == j ? (1 / d - s) / d : -s / d;
    }
  }
  return z;
}

/// Gauss-Jordan without pivoting, for diagonally dominant matrices.
Dense inverseOf(Dense a) {
  for (size_t k = 0; k < a.size(); ++k) {
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
  return a;
}

bool chance(std::mt19937& random, double p) {
  return std::bernoulli_distribution(p)(random);
}

using Link = std::function<bool(size_t, size_t, std::mt19937&)>;  // whether i > j are coupled

const std::vector<std::pair<std::string, Link>> kShapes{
    {"diagonal", [](size_t, size_t, auto&) { return false; }},
    {"tridiagonal", [](size_t i, size_t j, auto&) { return i == j + 1; }},
    {"arrow down", [](size_t i, size_t, auto&) { return i % 40 == 39; }},
    {"arrow up", [](size_t, size_t j, auto&) { return j == 0; }},
    {"chain and last", [](size_t i, size_t j, auto&) { return i == j + 1 || i % 97 == 96; }},
    {"blocks", [](size_t i, size_t j, auto&) { return i / 6 == j / 6 || i == j + 30; }},
    {"disconnected", [](size_t i, size_t j, auto&) { return i % 3 == j % 3 && i < j + 8; }},
    {"grid", [](size_t i, size_t j, auto&) { return i == j + 9 || (i == j + 1 && i % 9); }},
    {"band", [](size_t i, size_t j, auto&) { return i <= j + 21; }},
    {"dense tail",
     [](size_t i, size_t j, auto& r) { return j >= 60 || (i > 80 && chance(r, .3)); }},
    {"full", [](size_t, size_t, auto&) { return true; }},
    {"sparse random", [](size_t, size_t, auto& r) { return chance(r, 0.01); }},
    {"random", [](size_t, size_t, auto& r) { return chance(r, 0.08); }},
};

Dense coupled(size_t n, const Link& link, std::mt19937& random) {
  std::uniform_real_distribution<double> value(-1, 1);
  Dense a(n, std::vector<double>(n, 0.0));
  for (size_t i = 0; i < n; ++i) {
    a[i][i] += 0.5;
    for (size_t j = 0; j < i; ++j) {
      if (!link(i, j, random)) continue;
      a[i][j] = a[j][i] = value(random);
      a[i][i] += std::abs(a[i][j]);
      a[j][j] += std::abs(a[i][j]);
    }
  }
  return a;
}

/// Runs the library on l with a random permutation and compares every entry with `expected`.
void expectInverse(Columns l, const Dense& expected, std::mt19937& random) {
  const size_t n = expected.size();
  std::vector<unsigned int> perm(n), back(n);
  std::iota(perm.begin(), perm.end(), 0U);
  std::shuffle(perm.begin(), perm.end(), random);
  for (unsigned int k = 0; k < n; ++k) back[perm[k]] = k;

  const Matrix factor = l.view();
  Matrix result(factor.rows, factor.cols, factor.capacity);
  result.copy(factor);
  factor.partialInverseCholesky(result, perm.data());
  for (unsigned int c = 0; c < n; ++c) {
    const unsigned int k = back[c];
    const auto* begin = l.rows.data() + l.starts[k];
    const auto* end = l.rows.data() + l.starts[k + 1];
    ASSERT_EQ(result.colStarts[c + 1] - result.colStarts[c], end - begin);
    for (unsigned int p = result.colStarts[c]; p < result.colStarts[c + 1]; ++p) {
      const unsigned int i = back[result.rowIndices[p]];
      ASSERT_TRUE(p == result.colStarts[c] || result.rowIndices[p - 1] < result.rowIndices[p]);
      ASSERT_TRUE(std::binary_search(begin, end, i)) << i << ' ' << k;
      if (std::isfinite(expected[i][k])) {
        const double scale = 1 + std::sqrt(std::abs(expected[i][i] * expected[k][k]));
        ASSERT_NEAR(result.values[p], expected[i][k], 1e-11 * scale) << i << ' ' << k;
      } else {
        ASSERT_FALSE(std::isfinite(result.values[p])) << i << ' ' << k;
      }
    }
  }
}

/// Runs the recurrence on panels, which the library leaves to factors where they pay, at every
/// processor level.
void expectPanelInverse(Columns l, const Dense& expected) {
  const korin::SimplicialFactor factor{static_cast<unsigned int>(expected.size()), l.starts.data(),
                                       l.rows.data(), l.values.data()};
  const korin::ColumnGroups found = korin::findColumnGroups(factor);
  ASSERT_TRUE(korin::isEliminationPattern(factor, found));
  for (const korin::ColumnGroups& groups : {found, korin::mergeColumnGroups(found)}) {
    for (const auto level :
         {ProcessorLevel::Baseline, ProcessorLevel::Avx2, ProcessorLevel::Avx512}) {
      korin::kernels::forceProcessorLevel(level);
      const korin::PanelStorage storage = korin::zeroPanels(groups.panelStart.back());
      const korin::SupernodalFactor panels = groups.over(factor.n, storage.get());
      korin::gatherPanels(factor, panels);
      korin::supernodalInverse(panels);
      for (unsigned int g = 0; g < groups.count(); ++g) {
        const unsigned int* rows = panels.rows + panels.rowStart[g];
        const double* value = panels.values + panels.panelStart[g];
        for (unsigned int c = groups.firstColumn[g]; c < groups.firstColumn[g + 1]; ++c) {
          for (unsigned int i = 0; i < groups.height(g); ++i, ++value) {
            if (expected[rows[i]][c] == 0.0) continue;  // an explicit zero of a merged group
            if (!std::isfinite(expected[rows[i]][c])) {
              ASSERT_FALSE(std::isfinite(*value)) << rows[i] << ' ' << c;
            } else {
              ASSERT_NEAR(*value, expected[rows[i]][c], 1e-11) << rows[i] << ' ' << c;
            }
          }
        }
      }
    }
  }
}

TEST(PartialInverse, IsTheInverseOnTheFactorsPattern) {
  std::mt19937 random(7);
  for (const auto& [name, link] : kShapes) {
    for (const size_t n : {1, 2, 5, 17, 90, 260, 640}) {
      if (n == 640 && name != "dense tail") continue;
      SCOPED_TRACE(name + " of order " + std::to_string(n));
      const Dense a = coupled(n, link, random);
      const Dense inverse = inverseOf(a);
      expectInverse(factorise(a), inverse, random);
      expectPanelInverse(factorise(a), inverse);
      if (HasFatalFailure()) return;
    }
  }
}

TEST(PartialInverse, TakesEntriesOutsideAnIncompletePatternAsZero) {
  std::mt19937 random(11);
  for (unsigned int round = 0; round < 60; ++round) {
    Columns l;
    const auto n = static_cast<unsigned int>(1 + random() % 40);
    for (unsigned int c = 0; c < n; ++c) {
      for (unsigned int r = c; r < n; ++r) {
        if (r != c && !chance(random, 0.02 * (1 + round % 20))) continue;
        l.rows.push_back(r);
        l.values.push_back(r == c ? 2.0 : std::uniform_real_distribution<>(-1, 1)(random));
      }
      l.starts.push_back(static_cast<unsigned int>(l.rows.size()));
    }
    expectInverse(l, recurrence(l), random);
    if (HasFatalFailure()) FAIL() << "round " << round;
  }
}

TEST(PartialInverse, ZeroPivotsGiveNonFiniteEntriesWhereTheyReach) {
  std::mt19937 random(13);
  for (const auto& [name, link] : kShapes) {
    SCOPED_TRACE(name);
    Columns l = factorise(coupled(60, link, random));
    std::fill(l.values.begin() + l.starts[41], l.values.end(), 0.0);
    expectInverse(l, recurrence(l), random);
    expectPanelInverse(l, recurrence(l));
  }
}

TEST(SparseMxMatrix, SetColReplacesOneColumnAndKeepsTheOthers) {
  Columns source = factorise({{4, 2, 0}, {2, 2, 0}, {0, 0, 9}});
  Matrix own(3, 3, 0);
  EXPECT_EQ(own.capacity, 1U);
  Matrix view = source.view();
  own.clone(view, false);
  EXPECT_EQ(own.values, source.values.data());
  Matrix full(3, 3, view.capacity);
  full.copy(view);
  const double dense[] = {5, 0, -7};
  full.setCol(1, dense, 9);
  EXPECT_TRUE(full.ownsStorage);
  EXPECT_EQ(full.capacity, 9U);
  EXPECT_EQ(std::vector(full.colStarts, full.colStarts + 4), (std::vector{0U, 2U, 4U, 5U}));
  EXPECT_EQ(std::vector(full.rowIndices, full.rowIndices + 5), (std::vector{0U, 1U, 0U, 2U, 2U}));
  EXPECT_EQ(std::vector(full.values, full.values + 5), (std::vector{2.0, 1.0, 5.0, -7.0, 3.0}));
}

}  // namespace
