#include "sparse/inverse/inverse_subset.h"

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
#include "tests/sparse/coupled_shapes.h"

namespace korin::sparse {
namespace {

using kernels::ProcessorLevel;
using Dense = std::vector<std::vector<double>>;
using Pattern = std::vector<std::vector<bool>>;

/// A random lower-triangular factor of order n, on the shape alone or with all that it fills in.
Columns randomFactor(int n, const CoupledShape& shape, bool filled, std::mt19937& random) {
  Pattern kept(n, std::vector<bool>(n));
  for (int i = 0; i < n; ++i) {
    for (int j = 0; j < i; ++j) kept[i][j] = shape.coupled(i, j, random);
  }
  for (int k = 0; filled && k < n; ++k) {
    for (int j = k + 1; j < n; ++j) {
      for (int i = j + 1; kept[j][k] && i < n; ++i) kept[i][j] = kept[i][j] || kept[i][k];
    }
  }
  Columns l;
  l.rows = l.cols = n;
  std::uniform_real_distribution<double> value(-1.0, 1.0);
  for (int c = 0; c < n; ++c) {
    for (int r = c; r < n; ++r) {
      if (r != c && !kept[r][c]) continue;
      l.row.push_back(r);
      l.value.push_back(r == c ? 1.5 + value(random) : value(random) / std::sqrt(n));
    }
    l.start.push_back(static_cast<Offset>(l.row.size()));
  }
  return l;
}

/// The recurrence on dense storage: what holds for every pattern, complete or not.
Dense recurrence(const Columns& l) {
  const auto n = static_cast<size_t>(l.cols);
  Dense z(n, std::vector<double>(n, 0.0));
  for (size_t k = n; k-- > 0;) {
    const Offset first = l.start[k], end = l.start[k + 1];
    const double d = l.value[first];
    for (Offset q = end; q-- > first;) {  // the diagonal, which needs the others, last
      const auto j = static_cast<size_t>(l.row[q]);
      double s = 0;
      for (Offset p = first + 1; p < end; ++p) s += l.value[p] * z[j][l.row[p]];
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

/// Compares every entry of l's inverse with `expected`, mapped by a random permutation.
void expectInverse(const Columns& l, const Dense& expected, std::mt19937& random) {
  const size_t n = expected.size();
  std::vector<unsigned int> perm(n), back(n), starts(n + 1), rows(l.row.size());
  std::vector<double> values(l.row.size());
  std::iota(perm.begin(), perm.end(), 0U);
  std::shuffle(perm.begin(), perm.end(), random);
  for (unsigned int k = 0; k < n; ++k) back[perm[k]] = k;

  InverseSubset(l.view()).mapTo(perm.data(), starts.data(), rows.data(), values.data());
  for (unsigned int c = 0; c < n; ++c) {
    const unsigned int k = back[c];
    const auto* begin = l.row.data() + l.start[k];
    const auto* end = l.row.data() + l.start[k + 1];
    ASSERT_EQ(starts[c + 1] - starts[c], end - begin);
    for (unsigned int p = starts[c]; p < starts[c + 1]; ++p) {
      const unsigned int i = back[rows[p]];
      ASSERT_TRUE(p == starts[c] || rows[p - 1] < rows[p]);
      ASSERT_TRUE(std::binary_search(begin, end, static_cast<Index>(i))) << i << ' ' << k;
      ASSERT_NO_FATAL_FAILURE(expectEntry(values[p], expected, i, k));
    }
  }
}

/// Runs the recurrence on panels, which the library leaves to factors where they pay, at every
/// processor level.
void expectPanelInverse(const Columns& l, const Dense& expected) {
  const ColumnsView factor = l.view();
  const ColumnGroups found = findColumnGroups(factor);
  ASSERT_TRUE(isEliminationPattern(factor, found));
  const auto sketch = sketchGroups(factor);
  ASSERT_EQ(sketch.size(), found.count());
  for (const ColumnGroups& groups : {found, columnGroups(factor, mergeGroups(sketch))}) {
    for (const auto level :
         {ProcessorLevel::Baseline, ProcessorLevel::Avx2, ProcessorLevel::Avx512}) {
      kernels::forceProcessorLevel(level);
      const kernels::PanelStorage storage = kernels::zeroPanels(groups.panelStart.back());
      const SupernodalFactor panels = groups.over(factor.cols, storage.get());
      gatherPanels(factor, panels);
      supernodalInverse(panels);
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

TEST(InverseSubset, FollowsTheRecurrenceOnEveryPatternAndPivot) {
  std::mt19937 random(7);
  for (const CoupledShape& shape : kCoupledShapes) {
    for (const int n : {1, 2, 5, 17, 40, 90, 260, 640}) {
      if (n == 640 && shape.name != std::string("dense tail")) continue;
      for (const char variant : {'f', 'i', 'z'}) {  // filled in, incomplete, with zero pivots
        Columns l = randomFactor(n, shape, variant != 'i', random);
        if (variant == 'z') std::fill(l.value.begin() + l.start[n * 2 / 3], l.value.end(), 0.0);
        const Dense expected = recurrence(l);
        expectInverse(l, expected, random);
        if (variant != 'i') expectPanelInverse(l, expected);
        if (HasFatalFailure()) FAIL() << shape.name << " of order " << n << ", " << variant;
      }
    }
  }
}

}  // namespace
}  // namespace korin::sparse
