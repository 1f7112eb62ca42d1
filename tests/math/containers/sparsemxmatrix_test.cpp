#include "math/containers/sparsemxmatrix.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "kernels/panel_storage.h"
#include "kernels/processor.h"
#include "sparse/inverse/supernodal_inverse.h"
#include "sparse/pattern/supernodes.h"
#include "tests/math/dense/coupled_shapes.h"

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

/// A random lower-triangular factor of order n, on the shape alone or with all that it fills in.
Columns randomFactor(unsigned int n, const CoupledShape& shape, bool filled, std::mt19937& random) {
  Pattern kept(n, std::vector<bool>(n));
  for (size_t i = 0; i < n; ++i) {
    for (size_t j = 0; j < i; ++j) kept[i][j] = shape.coupled(i, j, random);
  }
  for (size_t k = 0; filled && k < n; ++k) {
    for (size_t j = k + 1; j < n; ++j) {
      for (size_t i = j + 1; kept[j][k] && i < n; ++i) kept[i][j] = kept[i][j] || kept[i][k];
    }
  }
  Columns l;
  std::uniform_real_distribution<double> value(-1.0, 1.0);
  for (unsigned int c = 0; c < n; ++c) {
    for (unsigned int r = c; r < n; ++r) {
      if (r != c && !kept[r][c]) continue;
      l.rows.push_back(r);
      l.values.push_back(r == c ? 1.5 + value(random) : value(random) / std::sqrt(n));
    }
    l.starts.push_back(static_cast<unsigned int>(l.rows.size()));
  }
  return l;
}

/// The recurrence on dense storage: what holds for every pattern, complete or not.
Dense recurrence(const Columns& l) {
  const size_t n = l.starts.size() - 1;
  Dense z(n, std::vector<double>(n, 0.0));
  for (size_t k = n; k-- > 0;) {
    const unsigned int first = l.starts[k], end = l.starts[k + 1];
    const double d = l.values[first];
    for (unsigned int q = end; q-- > first;) {  // the diagonal, which needs the others, last
      const size_t j = l.rows[q];
      double s = 0;
      for (unsigned int p = first + 1; p < end; ++p) s += l.values[p] * z[j][l.rows[p]];
      z[j][k] = z[k][j] = k == j ? (1 / d - s) / d : -s / d;
    }
  }
  return z;
}

void expectEntry(double value, const Dense& expected, size_t i, size_t k) {
  if (std::isfinite(expected[i][k])) {
    const double scale = 1 + std::sqrt(std::abs(expected[i][i] * expected[k][k]));
    ASSERT_NEAR(value, expected[i][k], 1e-11 * scale) << i << ' ' << k;
  } else {
    ASSERT_FALSE(std::isfinite(value)) << i << ' ' << k;
  }
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
      ASSERT_NO_FATAL_FAILURE(expectEntry(result.values[p], expected, i, k));
    }
  }
}

/// Runs the recurrence on panels, which the library leaves to factors where they pay, at every
/// processor level.
void expectPanelInverse(Columns l, const Dense& expected) {
  const korin::sparse::SimplicialFactor factor{static_cast<unsigned int>(expected.size()),
                                               l.starts.data(), l.rows.data(), l.values.data()};
  const korin::sparse::ColumnGroups found = korin::sparse::findColumnGroups(factor);
  ASSERT_TRUE(korin::sparse::isEliminationPattern(factor, found));
  const auto sketch = korin::sparse::sketchGroups(factor);
  ASSERT_EQ(sketch.size(), found.count());
  for (const korin::sparse::ColumnGroups& groups :
       {found, korin::sparse::columnGroups(factor, korin::sparse::mergeGroups(sketch))}) {
    for (const auto level :
         {ProcessorLevel::Baseline, ProcessorLevel::Avx2, ProcessorLevel::Avx512}) {
      korin::kernels::forceProcessorLevel(level);
      const korin::kernels::PanelStorage storage =
          korin::kernels::zeroPanels(groups.panelStart.back());
      const korin::sparse::SupernodalFactor panels = groups.over(factor.n, storage.get());
      korin::sparse::gatherPanels(factor, panels);
      korin::sparse::supernodalInverse(panels);
      for (unsigned int g = 0; g < groups.count(); ++g) {
        const unsigned int* rows = panels.rows + panels.rowStart[g];
        const double* value = panels.values + panels.panelStart[g];
        for (unsigned int c = groups.firstColumn[g]; c < groups.firstColumn[g + 1]; ++c) {
          for (unsigned int i = 0; i < groups.height(g); ++i, ++value) {
            if (expected[rows[i]][c] == 0.0) continue;  // an explicit zero of a merged group
            ASSERT_NO_FATAL_FAILURE(expectEntry(*value, expected, rows[i], c));
          }
        }
      }
    }
  }
}

TEST(PartialInverse, FollowsTheRecurrenceOnEveryPatternAndPivot) {
  std::mt19937 random(7);
  for (const CoupledShape& shape : kCoupledShapes) {
    for (const unsigned int n : {1, 2, 5, 17, 40, 90, 260, 640}) {
      if (n == 640 && shape.name != std::string("dense tail")) continue;
      for (const char variant : {'f', 'i', 'z'}) {  // filled in, incomplete, with zero pivots
        Columns l = randomFactor(n, shape, variant != 'i', random);
        if (variant == 'z') std::fill(l.values.begin() + l.starts[n * 2 / 3], l.values.end(), 0.0);
        const Dense expected = recurrence(l);
        expectInverse(l, expected, random);
        if (variant != 'i') expectPanelInverse(l, expected);
        if (HasFatalFailure()) FAIL() << shape.name << " of order " << n << ", " << variant;
      }
    }
  }
}

TEST(SparseMxMatrix, SetColReplacesOneColumnAndKeepsTheOthers) {
  Columns source{{0, 2, 3, 4}, {0, 1, 1, 2}, {2, 1, 1, 3}};
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
