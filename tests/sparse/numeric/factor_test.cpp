// Factor, solutions and entries of the inverse against dense arithmetic, and the same bits from any
// number of threads.

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <numeric>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "sparse/inverse/covariance_block.h"
#include "sparse/inverse/selected_inverse.h"
#include "sparse/numeric/factorise.h"
#include "sparse/numeric/solve.h"
#include "sparse/symbolic/analyse.h"
#include "sparse/symbolic/placement.h"
#include "tests/sparse/symbolic/symbolic_model.h"

namespace korin::sparse::testing {
namespace {

using std::size_t;

/// A factor with what belongs to it.
struct Factor {
  Symbolic symbolic;
  PlacedEntries entries;
  std::vector<double> panels;
  Index failedRow;

  Factor(const Columns& lower, kernels::Team& team, Ordering ordering = Ordering::Automatic,
         Index kept = 0)
      : symbolic(analyse(lower.view(), {ordering, nullptr, kept})),
        entries(place(symbolic, lower.view())),
        panels(static_cast<size_t>(symbolic.storage()), NAN) {
    Meter meter;
    failedRow = factorise(symbolic, entries, panels.data(), team, &meter);
    double work = 0.0;
    for (Index g = 0; g < symbolic.groups(); ++g) work += frontWork(symbolic, g);
    for (Index k = symbolic.n - kept; k < symbolic.n; ++k) EXPECT_EQ(symbolic.permutation[k], k);
    EXPECT_EQ(kept, kept == 0 ? 0 : symbolic.width(symbolic.groups() - 1));
    EXPECT_TRUE(failedRow >= 0 || std::fabs(meter.done() - work) <= 1e-9 * work);
  }
};

/// Inverse of a row-major matrix by Gauss and Jordan in long double.
std::vector<double> denseInverse(const std::vector<double>& a, size_t n, double& logDeterminant) {
  std::vector<long double> x(a.begin(), a.end()), z(n * n, 0.0L);
  for (size_t i = 0; i < n; ++i) z[i * n + i] = 1.0L;
  long double logs = 0.0L;
  for (size_t k = 0; k < n; ++k) {
    const long double pivot = x[k * n + k];
    logs += std::log(pivot);
    for (size_t j = 0; j < n; ++j) {
      x[k * n + j] /= pivot;
      z[k * n + j] /= pivot;
    }
    for (size_t i = 0; i < n; ++i) {
      const long double factor = i == k ? 0.0L : x[i * n + k];
      for (size_t j = 0; factor != 0.0L && j < n; ++j) {
        x[i * n + j] -= factor * x[k * n + j];
        z[i * n + j] -= factor * z[k * n + j];
      }
    }
  }
  logDeterminant = static_cast<double>(logs);
  return {z.begin(), z.end()};
}

/// The first or the last `count` rows and columns of a row-major matrix.
std::vector<double> corner(const std::vector<double>& a, size_t n, size_t count, bool last) {
  std::vector<double> part;
  const size_t skip = last ? n - count : 0;
  for (size_t i = 0; i < count * count; ++i) {
    part.push_back(a[(skip + i / count) * n + skip + i % count]);
  }
  return part;
}

/// Calls visit(i, j, value) for the lower triangle of the kept group, made symmetric afterwards;
/// unknowns are counted from the first kept one.
template <class Visit>
void forKept(Factor& f, Visit visit) {
  const auto kept = static_cast<size_t>(f.symbolic.kept);
  double* const square = f.panels.data() + f.panels.size() - kept * kept;
  for (size_t j = 0; j < kept; ++j) {
    for (size_t i = j; i < kept; ++i) {
      visit(i, j, square[j * kept + i]);
      square[i * kept + j] = square[j * kept + i];
    }
  }
}

/// Seven-point Laplacian of a cube, or five-point one of a square, made definite.
Columns grid(Index side, int dimensions) {
  std::vector<Index> row, col;
  std::vector<double> value;
  Index n = 1;
  for (int d = 0; d < dimensions; ++d) n *= side;
  for (Index i = 0; i < n; ++i) {
    row.push_back(i), col.push_back(i), value.push_back(2.0 * dimensions);
    Index step = 1;
    for (int d = 0; d < dimensions; ++d, step *= side) {
      if (i / step % side + 1 == side) continue;
      row.push_back(i + step), col.push_back(i), value.push_back(-1.0 + 1e-3 * (i % 7));
    }
  }
  return assembleTriplets(n, n, row.data(), col.data(), value.data(), row.size(),
                          Part::OneTriangle);
}

/// Unknowns in small groups that all meet in a few common ones, as points seen by cameras.
Columns bundle(Index points, Index cameras) {
  std::vector<Index> row, col;
  std::vector<double> value;
  const Index n = 3 * points + 6 * cameras;
  std::mt19937 random(7);
  for (Index p = 0; p < points; ++p) {
    for (int seen = 0; seen < 4; ++seen) {
      const Index camera = 3 * points + 6 * static_cast<Index>(random() % unsigned(cameras));
      for (Index i = 0; i < 18; ++i) {
        row.push_back(camera + i % 6), col.push_back(3 * p + i / 6);
        value.push_back(1e-3 * static_cast<double>(random() % 100));
      }
    }
  }
  for (Index i = 0; i < n; ++i) row.push_back(i), col.push_back(i), value.push_back(10.0);
  return assembleTriplets(n, n, row.data(), col.data(), value.data(), row.size(),
                          Part::OneTriangle);
}

TEST(Factor, AgreesWithDenseArithmeticOnSmallMatricesOfManyShapes) {
  std::mt19937 random(1);
  kernels::Team team(1);
  for (int round = 0; round < 600; ++round) {
    const std::string shape = kShapes[random() % (kShapes.size() - 1)];
    const Index n = 1 + static_cast<Index>(random() % (round % 10 == 0 ? 120 : 30));
    const Columns lower = makeLower(shape, n, random);
    const auto order = static_cast<size_t>(lower.cols);
    SCOPED_TRACE(shape + ", order " + std::to_string(order) + ", round " + std::to_string(round));
    const std::vector<double> a = denseOf(lower.view());
    double logDet = 0.0;
    const std::vector<double> z = denseInverse(a, order, logDet);
    const Factor f(lower, team);
    ASSERT_EQ(f.failedRow, -1);
    EXPECT_NEAR(logDeterminant(f.symbolic, f.panels.data()), logDet,
                1e-12 * (1 + std::fabs(logDet)));

    std::vector<double> diagonal(order, NAN);
    EXPECT_LT(variances(f.symbolic, f.entries, f.panels.data(), diagonal.data(), team, nullptr),
              1e-13);
    // Every entry of the inverse on the pattern, through the permutation.
    const PanelReader read = [&](Index g, const double* panel) {
      const Index* rows = f.symbolic.rowsOf(g);
      const auto height = static_cast<size_t>(f.symbolic.height(g));
      for (size_t c = 0; c < static_cast<size_t>(f.symbolic.width(g)); ++c) {
        for (size_t i = 0; i < height; ++i) {
          const auto p = static_cast<size_t>(f.symbolic.permutation[rows[i]]);
          const auto q = static_cast<size_t>(f.symbolic.permutation[rows[c]]);
          ASSERT_NEAR(panel[c * height + i], z[p * order + q], 1e-13 * std::fabs(z[q * order + q]));
        }
      }
    };
    std::vector<bool> wanted(static_cast<size_t>(f.symbolic.groups()));
    for (size_t g = 0; g < wanted.size(); ++g) wanted[g] = random() % 4 == 0;
    selectedInverse(f.symbolic, f.panels.data(), random() % 2 == 0 ? &wanted : nullptr, read, team,
                    nullptr);
    const auto count = static_cast<Index>(random() % 40);
    std::vector<Index> some(order == 0 ? 0 : static_cast<size_t>(count));
    for (Index& i : some) i = static_cast<Index>(random() % order);
    std::vector<double> block(some.size() * some.size());
    covarianceBlock(f.symbolic, f.panels.data(), static_cast<Index>(some.size()), some.data(),
                    block.data(), team);
    for (size_t i = 0; i < order; ++i)
      ASSERT_NEAR(diagonal[i], z[i * order + i], 1e-13 * z[i * order + i]);
    for (size_t i = 0; i < block.size(); ++i) {
      const auto p = static_cast<size_t>(some[i / some.size()]);
      const auto q = static_cast<size_t>(some[i % some.size()]);
      ASSERT_NEAR(block[i], z[p * order + q],
                  1e-13 * std::sqrt(z[p * order + p] * z[q * order + q]));
    }
    // A X = B for a few right-hand sides, one of which is also solved alone.
    std::vector<double> x(3 * order), alone;
    for (double& value : x) value = static_cast<double>(random() % 100) - 50.0;
    const std::vector<double> b = x;
    alone.assign(x.begin(), x.begin() + static_cast<std::ptrdiff_t>(order));
    solve(f.symbolic, f.panels.data(), 3, x.data(), team);
    solve(f.symbolic, f.panels.data(), 1, alone.data(), team);
    EXPECT_TRUE(std::equal(alone.begin(), alone.end(), x.begin()));
    for (size_t s = 0; s < 3; ++s) {
      for (size_t i = 0; i < order; ++i) {
        double sum = -b[s * order + i];
        for (size_t j = 0; j < order; ++j) sum += a[i * order + j] * x[s * order + j];
        ASSERT_NEAR(sum, 0.0, 1e-11);
      }
    }
  }
}

TEST(Factor, SolvesForCovariancesWhoseColumnsFillTooLargeATable) {
  // A path in its own order: far from its ends entry (i, j) of the inverse is 2^-|i - j| / 1.5.
  constexpr Index n = 41000;
  std::vector<Index> row, col, some(801);
  std::vector<double> value, block(some.size() * some.size());
  for (Index i = 0; i < n; ++i) {
    row.push_back(i), col.push_back(i), value.push_back(2.5);
    if (i > 0) row.push_back(i), col.push_back(i - 1), value.push_back(-1.0);
  }
  kernels::Team team(2);
  const Factor f(
      assembleTriplets(n, n, row.data(), col.data(), value.data(), row.size(), Part::OneTriangle),
      team, Ordering::Natural);
  std::mt19937 random(1);
  for (Index& i : some) i = 100 + static_cast<Index>(random() % 50);
  covarianceBlock(f.symbolic, f.panels.data(), static_cast<Index>(some.size()), some.data(),
                  block.data(), team);
  for (size_t k = 0; k < block.size(); ++k) {
    const int apart = some[k / some.size()] - some[k % some.size()];
    ASSERT_NEAR(block[k], std::ldexp(1 / 1.5, -std::abs(apart)), 1e-15);
  }
}

TEST(Factor, LeavesTheSchurComplementOfKeptColumnsAndTakesTheirInverse) {
  std::mt19937 random(3);
  for (int round = 0; round < 400; ++round) {
    const std::string shape = kShapes[random() % (kShapes.size() - 1)];
    const Columns lower = makeLower(shape, 2 + static_cast<Index>(random() % 60), random);
    const auto n = static_cast<size_t>(lower.cols);
    const size_t kept = n == 0 ? 0 : random() % (n + 1), first = n - kept;
    const auto ordering = static_cast<Ordering>(random() % 4);
    SCOPED_TRACE(shape + ", " + std::to_string(kept) + " kept of " + std::to_string(n) +
                 ", ordering " + std::to_string(static_cast<int>(ordering)));
    const std::vector<double> a = denseOf(lower.view());
    double logOfAll = 0.0, logOfInterior = 0.0, logOfSchur = 0.0;
    const std::vector<double> z = denseInverse(a, n, logOfAll);
    denseInverse(corner(a, n, first, false), first, logOfInterior);
    // The inverse of the Schur complement is that part of the inverse.
    const std::vector<double> schur = denseInverse(corner(z, n, kept, true), kept, logOfSchur);
    kernels::Team team(1 + round % 3);
    Factor f(lower, team, ordering, static_cast<Index>(kept));
    const Symbolic& s = f.symbolic;
    ASSERT_EQ(f.failedRow, -1);
    EXPECT_NEAR(logDeterminant(s, f.panels.data()), logOfInterior, 1e-11);
    std::vector<double> x(n);
    for (double& value : x) value = static_cast<double>(random() % 100) - 50.0;
    const std::vector<double> b = x;
    solveForward(s, f.panels.data(), 1, x.data(), team);
    forKept(f, [&](size_t i, size_t j, double& value) {
      ASSERT_NEAR(value, schur[i * kept + j], 1e-11 * std::fabs(schur[i * kept + i]));
      value = z[(first + i) * n + first + j];
    });
    const std::vector<double> right(x.begin() + static_cast<std::ptrdiff_t>(first), x.end());
    for (size_t i = first; i < n; ++i) {
      x[i] = std::inner_product(right.begin(), right.end(), &z[i * n + first], 0.0);
    }
    solveTransposed(s, f.panels.data(), 1, x.data(), team);
    std::vector<double> diagonal(n), sums(n);
    variances(s, f.entries, f.panels.data(), diagonal.data(), sums.data(), team, nullptr);
    for (size_t i = 0; i < n; ++i) {
      ASSERT_NEAR(diagonal[i], z[i * n + i], 1e-13 * z[i * n + i]);
      double identity = 0.0, product = 0.0;
      for (size_t j = 0; j < n; ++j) {
        product += a[i * n + j] * x[j];
        identity += a[i * n + j] * z[j * n + i];
      }
      ASSERT_NEAR(product, b[i], 1e-11);
      ASSERT_NEAR(sums[i], identity, 1e-12);
    }
  }
}

/// The lower triangles of the panels are the same; what lies above is no part of the factor.
void expectSamePanels(const Symbolic& s, const double* a, const double* b) {
  for (Index g = 0; g < s.groups(); ++g) {
    const Offset h = s.height(g);
    for (Offset c = 0; c < s.width(g); ++c) {
      const Offset at = s.panelStart[g] + c * (h + 1);
      ASSERT_EQ(0, std::memcmp(a + at, b + at, sizeof(double) * (h - c)));
    }
  }
}

/// The factor and the diagonal of its inverse, with the residual behind it, by way of a file.
void expectTheSameInAFile(const Factor& f, const std::vector<double>& diagonal, double residual,
                          kernels::Team& team) {
  const Symbolic& s = f.symbolic;
  for (const Thrift thrift : {Thrift{}, {1, false}, {300, true}, {3000, false}, {3000, true}}) {
    const int descriptor = memfd_create("panels", 0);
    ASSERT_EQ(kernels::reserveRoom(descriptor, 0, f.panels.size() * sizeof(double), {}), 0);
    const kernels::PanelFile file(descriptor, f.panels.size());
    const FactorPanels stored(file, thrift);
    const PanelStore store = [&](Index g, const double* panel) {
      file.write(static_cast<size_t>(s.panelStart[g]), panel, static_cast<size_t>(s.panelSize(g)));
    };
    ASSERT_EQ(factorise(s, f.entries, store, stored, team, nullptr), -1);
    expectSamePanels(s, file.values(), f.panels.data());
    std::vector<double> d(diagonal.size());
    EXPECT_EQ(variances(s, f.entries, stored, d.data(), team, nullptr), residual);
    EXPECT_EQ(d, diagonal);
  }
}

TEST(FactorThreads, TheSameBitsFromAnyNumberOfThreads) {
  const struct {
    Columns lower;
    Ordering ordering;
    Index kept = 0;
  } cases[] = {{grid(17, 3), Ordering::NestedDissection},
               {grid(17, 3), Ordering::MinimumDegree},
               {grid(17, 3), Ordering::NestedDissection, 300},
               {grid(70, 2), Ordering::NestedDissection},
               {bundle(800, 60), Ordering::Automatic}};
  for (const auto& [lower, ordering, kept] : cases) {
    const auto n = static_cast<size_t>(lower.cols);
    std::vector<double> panels, diagonal, solution, draw;
    double residual = 0.0;
    for (const int threads : {1, 2, 4, 7}) {
      SCOPED_TRACE(std::to_string(n) + " unknowns, threads " + std::to_string(threads));
      kernels::Team team(threads);
      Factor f(lower, team, ordering, kept);
      ASSERT_EQ(f.failedRow, -1);
      // Any symmetric square does for the kept ones.
      forKept(f, [](size_t, size_t, double&) {});
      std::vector<double> d(n), x(40 * n), all(f.panels.size());
      for (size_t i = 0; i < x.size(); ++i) x[i] = static_cast<double>(i % 101) - 50.0;
      std::vector<double> y = x;
      const double r = variances(f.symbolic, f.entries, f.panels.data(), d.data(), team, nullptr);
      selectedInverse(f.symbolic, f.panels.data(), all.data(), team, nullptr);
      (kept == 0 ? solve : solveForward)(f.symbolic, f.panels.data(), 40, x.data(), team);
      solveTransposed(f.symbolic, f.panels.data(), 40, y.data(), team);
      for (Index g = 0; g < f.symbolic.groups(); ++g) {
        const double* const z = all.data() + f.symbolic.panelStart[g];
        for (Index c = 0; c < f.symbolic.width(g); ++c) {
          ASSERT_EQ(z[c * (Offset{f.symbolic.height(g)} + 1)],
                    d[f.symbolic.permutation[f.symbolic.firstColumn[g] + c]]);
        }
      }
      if (kept == 0 && threads % 3 == 1) expectTheSameInAFile(f, d, r, team);
      if (threads == 1) {
        panels = f.panels, diagonal = d, solution = x, draw = y, residual = r;
        EXPECT_TRUE(residual < 1e-12 || kept > 0);
        continue;
      }
      expectSamePanels(f.symbolic, panels.data(), f.panels.data());
      EXPECT_EQ(diagonal, d);
      EXPECT_EQ(solution, x);
      EXPECT_EQ(draw, y);
      EXPECT_EQ(residual, r);
    }
  }
}

TEST(FactorThreads, NamesTheFirstRowWithoutAPositivePivot) {
  for (const double bad : {-1.0, 0.0, double(NAN), double(INFINITY)}) {
    for (const int threads : {1, 3}) {
      Columns lower = grid(40, 2);
      const Symbolic s = analyse(lower.view());
      const Index first = s.permutation[700];
      for (const Index row : {first, s.permutation[1200]}) lower.value[lower.start[row]] = bad;
      kernels::Team team(threads);
      EXPECT_EQ(Factor(lower, team).failedRow, first) << bad << ", threads " << threads;
    }
  }
}

TEST(FactorThreads, StopsWhenAskedToAndWorksAgainAfterwards) {
  struct Enough {};
  const Columns lower = grid(16, 3);
  for (const int threads : {1, 2, 4}) {
    for (const int calls : {0, 2}) {
      int left = calls;
      kernels::Team team(threads, [&] {
        if (left-- == 0) throw Enough();
      });
      left = 1 << 30;
      const Factor f(lower, team, Ordering::NestedDissection);
      std::vector<double> d(static_cast<size_t>(lower.cols)), again(d.size());
      variances(f.symbolic, f.entries, f.panels.data(), d.data(), team, nullptr);
      std::vector<double> panels(f.panels.size());
      // The caller's own thread looks often enough when it works alone; otherwise it may be late.
      const auto expectStopped = [&](const auto& work) {
        left = calls;
        bool stopped = false;
        try {
          work();
        } catch (const Enough&) {
          stopped = true;
        }
        EXPECT_TRUE(stopped || threads > 1) << calls;
      };
      expectStopped([&] { factorise(f.symbolic, f.entries, panels.data(), team, nullptr); });
      expectStopped(
          [&] { variances(f.symbolic, f.entries, f.panels.data(), again.data(), team, nullptr); });
      left = 1 << 30;
      variances(f.symbolic, f.entries, f.panels.data(), again.data(), team, nullptr);
      EXPECT_EQ(d, again);
    }
  }
}

}  // namespace
}  // namespace korin::sparse::testing
