#include "zeph/factor.h"

#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <limits>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "tests/zeph/factor/dense_truth.h"
#include "tests/zeph/front_test.h"
#include "zeph/factor/lu_backend.h"
#include "zeph/general/variances.h"

namespace {

using zeph::DenseMatrix;
using zeph::Entry;
using zeph::Factor;
using zeph::Options;
using zeph::Ordering;
using zeph::Route;
using zeph::SparseMatrix;
using zeph::Symmetry;

constexpr double kEps = std::numeric_limits<double>::epsilon();

bool sameBits(const std::vector<double>& a, const std::vector<double>& b) {
  return a.size() == b.size() &&
         (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(double)) == 0);
}

std::vector<double> valuesOf(const SparseMatrix& A) {
  std::vector<double> values;
  for (const Entry& e : A.entries) values.push_back(e.value);
  return values;
}

/// The 7-point stencil on a cube of m³ points with a small shift: large enough for all threads.
SparseMatrix cube(std::uint32_t m) {
  SparseMatrix A;
  A.rows = A.cols = m * m * m;
  A.symmetry = Symmetry::Symmetric;
  for (std::uint32_t i = 0; i < m * m * m; ++i) {
    A.entries.push_back({i, i, 6.01});
    if (i % m != 0) A.entries.push_back({i, i - 1, -1.0});
    if (i / m % m != 0) A.entries.push_back({i, i - m, -1.0});
    if (i / m / m != 0) A.entries.push_back({i, i - m * m, -1.0});
  }
  return A;
}

class FactorTest : public FrontTest {
 protected:
  double uniform() { return static_cast<double>(random_()) / 4294967296.0; }

  /// Row i hangs on row j < i.
  std::vector<std::pair<unsigned, unsigned>> edges(unsigned n, unsigned shape) {
    std::vector<std::pair<unsigned, unsigned>> list;
    for (unsigned i = 1; i < n; ++i) {
      switch (shape % 6) {
        case 0:  // a tree
          list.push_back({i, below(i)});
          break;
        case 1:  // an arrow
          list.push_back({i, 0});
          break;
        case 2:  // a dense block beside a path
          for (unsigned j = i < n / 2 ? 0 : i - 1; j < i; ++j) list.push_back({i, j});
          break;
        case 3:  // pieces
          if (i % 5 != 0) list.push_back({i, i - 1 - below(i % 5)});
          break;
        case 4:  // an arrow the other way, over a loop
          list.push_back({i, i - 1});
          list.push_back({n - 1, i - 1});
          break;
        default:
          for (unsigned k = below(4); k > 0; --k) list.push_back({i, below(i)});
      }
    }
    return list;
  }

  /// Positive definite; duplicates, shuffled, in one triangle or both; rows and columns scaled by
  /// powers of ten up to 10^(decades/2) and down to its inverse.
  SparseMatrix definite(unsigned n, unsigned shape, double decades) {
    std::vector<double> diagonal(n, 0.0), scale(n);
    for (double& s : scale) s = std::pow(10.0, decades * (uniform() - 0.5));
    SparseMatrix A;
    A.source = "A";
    A.rows = A.cols = n;
    const unsigned form = below(3);
    A.symmetry = form == 0 ? Symmetry::General : Symmetry::Symmetric;
    const auto add = [&](unsigned i, unsigned j, double v) {
      const double value = v * scale[i] * scale[j];
      if (form == 2) std::swap(i, j);
      A.entries.push_back({i, j, value});
      if (form == 0 && i != j) A.entries.push_back({j, i, value});
    };
    for (const auto& [i, j] : edges(n, shape)) {
      if (i == j) continue;
      const double v = uniform() - 0.5;
      for (unsigned k = 1 + below(2); k > 0; --k) {
        add(i, j, v);
        diagonal[i] += std::abs(v);
        diagonal[j] += std::abs(v);
      }
    }
    for (unsigned i = 0; i < n; ++i) add(i, i, diagonal[i] + 1e-3 + uniform());
    std::shuffle(A.entries.begin(), A.entries.end(), random_);
    return A;
  }

  Options anyOptions(std::size_t n) {
    Options o;
    o.ordering = static_cast<Ordering>(below(5));
    o.threads = static_cast<int>(1 + below(3));
    if (o.ordering != Ordering::Given) return o;
    o.permutation.resize(n);
    std::iota(o.permutation.begin(), o.permutation.end(), 0);
    std::shuffle(o.permutation.begin(), o.permutation.end(), random_);
    return o;
  }

  /// Entry (i, j) of an inverse against the truth, relative to its row and column.
  static void expectEntry(double z, const DenseTruth& t, std::size_t i, std::size_t j,
                          double tolerance) {
    const long double size = std::sqrt(std::fabs(t(i, i))) * std::sqrt(std::fabs(t(j, j)));
    EXPECT_LE(std::fabs(z - t(i, j)), tolerance * size) << i << ", " << j << " of " << t.n;
  }

  /// tr(A^-1 B) for B of every symmetry; the inverse is `share` times the truth.
  void expectTraces(const Factor& f, const DenseTruth& t, double share) {
    for (const Symmetry form : {Symmetry::General, Symmetry::Symmetric, Symmetry::SkewSymmetric}) {
      SparseMatrix B;
      B.rows = B.cols = t.n;
      B.symmetry = form;
      long double trace = 0.0L, mirrored = form == Symmetry::SkewSymmetric ? -1.0L : 1.0L;
      for (unsigned k = 5; k > 0; --k) {
        const unsigned i = below(t.n), j = below(i + 1);
        const long double size = std::max(std::fabs(t(i, j)), std::fabs(t(j, i)));
        if (size == 0.0L || (i == j && mirrored < 0.0L)) continue;
        B.entries.push_back({i, j, static_cast<double>((1.0 + uniform()) / size)});
        trace += B.entries.back().value * t(j, i);
        if (form == Symmetry::General || i == j) continue;
        trace += mirrored * B.entries.back().value * t(i, j);
      }
      EXPECT_NEAR(f.traceOfInverseTimes(B), share * static_cast<double>(trace), 1e-8);
    }
  }

  /// Every question that a factor of a symmetric matrix answers, against the dense inverse.
  void expectAnswers(const Factor& f, const SparseMatrix& A) {
    const DenseTruth t(A);
    const std::size_t n = A.rows;
    const std::vector<double> d = f.variances();
    const double estimate = f.report().relativeErrorEstimate;
    EXPECT_LT(estimate, 1e-10);
    std::vector<std::int64_t> all(n), rows, cols, some;
    for (std::size_t i = 0; i < n; ++i) {
      EXPECT_LE(std::fabs(d[i] - t(i, i)), estimate * t(i, i)) << i << " of " << n;
      all[i] = static_cast<std::int64_t>(i);
    }
    EXPECT_NEAR(f.logDeterminant(), static_cast<double>(t.logAbs),
                1e-12 * static_cast<double>(1 + n));
    EXPECT_EQ(f.determinantSign(), 1);
    long double trace = 0.0L;  // of the inverse where the diagonal is scaled to ones
    for (const Entry& e : A.entries) trace += e.row == e.col ? e.value * t(e.row, e.row) : 0.0L;
    EXPECT_NEAR(f.report().conditionEstimate / static_cast<double>(trace), 1.0, 1e-10);

    const SparseMatrix Z = f.selectedInverse();
    EXPECT_GE(Z.entries.size(), n);
    for (std::size_t k = 0; k < Z.entries.size(); ++k) {
      const Entry& e = Z.entries[k];
      expectEntry(e.value, t, e.row, e.col, 1e-11);
      if (k == 0) continue;
      const Entry& before = Z.entries[k - 1];
      EXPECT_TRUE(before.col < e.col || (before.col == e.col && before.row < e.row));
    }
    for (unsigned k = below(40); k > 0; --k) {
      rows.push_back(below(n));
      cols.push_back(below(n));
    }
    const std::vector<double> pairs = f.covariance(rows, cols);
    for (std::size_t k = 0; k < rows.size(); ++k) expectEntry(pairs[k], t, rows[k], cols[k], 1e-11);
    EXPECT_TRUE(sameBits(pairs, f.covariance(cols, rows)));
    for (unsigned k = below(5); k > 0; --k) some.push_back(below(n));
    const DenseMatrix block = f.covarianceBlock(some);
    for (std::size_t i = 0; i < some.size(); ++i) {
      expectEntry(f.variances(some)[i], t, some[i], some[i], 1e-11);
      for (std::size_t j = 0; j < some.size(); ++j) {
        expectEntry(block(i, j), t, some[i], some[j], 1e-11);
      }
    }
    expectTraces(f, t, 1.0);
    auto identity = DenseMatrix::zeros(n, n);
    for (std::size_t i = 0; i < n; ++i) identity(i, i) = 1.0;
    const DenseMatrix X = f.solve(identity);
    for (std::size_t i = 0; i < n * n; ++i) expectEntry(X.values[i], t, i % n, i / n, 1e-11);
  }
};

TEST_F(FactorTest, answersAsTheDenseInverseDoes) {
  for (unsigned round = 0; round < 2000; ++round) {
    const unsigned n = round < 30 ? 1 : 1 + below(round % 50 == 0 ? 90 : 14);
    const double decades = round % 4 == 3 ? 150.0 : round % 4;
    SparseMatrix A = definite(n, round, decades);
    Factor f(A, anyOptions(n));
    const zeph::Report r = f.report();
    EXPECT_EQ(r.route, Route::Cholesky);
    EXPECT_EQ(r.unknowns, n);
    expectAnswers(f, A);
    const SparseMatrix B = definite(n, round, decades);
    if (B.entries.size() != A.entries.size() || round % 3 != 0) continue;
    // The pattern of A with values of which a power of ten is other for every row.
    std::vector<double> scale(n);
    for (double& s : scale) s = std::pow(10.0, decades * (uniform() - 0.5));
    for (Entry& e : A.entries) e.value *= scale[e.row] * scale[e.col];
    f.refactorise(valuesOf(A));
    expectAnswers(f, A);
    EXPECT_TRUE(sameBits(f.variances(), Factor(A, Options()).variances()) || n > 1);
  }
}

TEST_F(FactorTest, generalMatricesTakeLu) {
  if (!zeph::hasLuRoute()) GTEST_SKIP() << "no LU route in this build";
  double operations = 0.0;
  for (unsigned round = 0; round < 200; ++round) {
    const unsigned n = 1 + below(12);
    SparseMatrix A = definite(n, round, round % 2 ? 100.0 : 0.0);
    const bool indefinite = round % 3 == 0;
    if (A.symmetry != Symmetry::General && !indefinite) continue;
    const unsigned spoilt = below(n);
    for (Entry& e : A.entries) {
      if (indefinite ? e.row == spoilt && e.col == spoilt : e.row < e.col) e.value *= -0.9;
    }
    Factor f(A);
    const DenseTruth t(A);
    const zeph::Report r = f.report();
    operations += r.route == Route::Lu ? r.operations : 0.0;
    EXPECT_LE(r.operations, n * (n + 1.0) * (2.0 * n + 1.0) / 6.0);  // of a full matrix
    EXPECT_EQ(f.determinantSign(), t.sign);
    EXPECT_NEAR(f.logDeterminant(), static_cast<double>(t.logAbs), 1e-11 * (1.0 + n));
    for (int again = 0; again < 2; ++again) {
      const std::vector<double> d = f.variances();
      std::vector<std::int64_t> rows, cols;
      for (std::size_t i = 0; i < n; ++i) {
        EXPECT_NEAR(d[i] / static_cast<double>(t(i, i)), again == 0 ? 1.0 : 0.5, 1e-9);
        rows.push_back(below(n));
        cols.push_back(below(n));
      }
      const std::vector<double> z = f.covariance(rows, cols);
      for (std::size_t k = 0; k < n; ++k) {
        expectEntry(again == 0 ? z[k] : 2.0 * z[k], t, rows[k], cols[k], 1e-9);
      }
      expectTraces(f, t, again == 0 ? 1.0 : 0.5);
      std::vector<double> b(n), doubled = valuesOf(A);
      for (const Entry& e : A.entries) {  // A times ones
        b[e.row] += e.value;
        if (A.symmetry == Symmetry::Symmetric && e.row != e.col) b[e.col] += e.value;
      }
      const std::vector<double> x = f.solve(b);
      for (std::size_t i = 0; i < n && round % 2 == 0; ++i) {
        EXPECT_NEAR(x[i], again == 0 ? 1.0 : 0.5, 1e-8);
      }
      // The system that x solves, in long double: what is reported is that to within rounding.
      std::vector<long double> left(b.begin(), b.end()), size(n);
      for (std::size_t i = 0; i < n; ++i) size[i] = std::fabs(left[i]);
      const auto term = [&](std::uint32_t i, std::uint32_t j, long double a) {
        a *= (again == 0 ? 1.0L : 2.0L) * x[j];
        left[i] -= a;
        size[i] += std::fabs(a);
      };
      for (const Entry& e : A.entries) {
        term(e.row, e.col, e.value);
        if (A.symmetry == Symmetry::Symmetric && e.row != e.col) term(e.col, e.row, e.value);
      }
      long double error = 0.0;
      for (std::size_t i = 0; i < n; ++i) {
        if (size[i] > 0) error = std::max(error, std::fabs(left[i]) / size[i]);
      }
      EXPECT_NEAR(f.report().backwardError, static_cast<double>(error), n * kEps);
      EXPECT_LE(error, 8.0 * kEps + n * kEps);
      for (double& v : doubled) v *= 2.0;
      f.refactorise(doubled);
    }
    if (f.report().route != Route::Lu) continue;
    expectError([&] { f.selectedInverse(); }, "4 a selected inverse need");
    expectError([&] { f.sample(1, 1); }, "4 samples need");
  }
  EXPECT_GT(operations, 0.0);
}

TEST_F(FactorTest, sameBitsFromAnyTeam) {
  const SparseMatrix A = cube(17);
  const std::size_t n = A.rows;
  std::vector<std::vector<double>> first;
  for (const int threads : {1, 2, 4, 7}) {
    Options o;
    o.threads = threads;
    o.ordering = Ordering::NestedDissection;
    Factor f(A, o);
    f.refactorise(valuesOf(A));
    auto B = DenseMatrix::zeros(n, 20);
    for (std::size_t k = 0; k < B.values.size(); ++k)
      B.values[k] = std::sin(static_cast<double>(k));
    const std::vector<std::vector<double>> answers = {
        f.variances(),
        f.solve(B).values,
        f.sample(3, 5).values,
        valuesOf(f.selectedInverse()),
        f.variances({5, 4000, 17}),
        f.covariance({1, 2, 3, 1000}, {1, 3000, 4, 4912}),
        {f.logDeterminant(), f.traceOfInverseTimes(A), f.report().identityResidual}};
    EXPECT_EQ(f.report().threads, threads);
    if (first.empty()) first = answers;
    for (std::size_t k = 0; k < answers.size(); ++k)
      EXPECT_TRUE(sameBits(answers[k], first[k])) << k;
  }
  if (zeph::hasLuRoute()) {
    const zeph::Variances cholmod = zeph::variances(A, Route::Cholesky);
    for (std::size_t i = 0; i < n; ++i)
      EXPECT_NEAR(first[0][i] / cholmod.diagonal.data[i], 1.0, 1e-12);
  }
}

TEST_F(FactorTest, answersManyThreadsOfTheHostAtOnce) {
  const SparseMatrix A = cube(9);
  const std::size_t n = A.rows;
  const Factor f(A);
  std::atomic<int> wrong{0};
  std::vector<std::thread> hosts;
  for (int h = 0; h < 3; ++h) {
    hosts.emplace_back([&] {
      wrong += !sameBits(f.variances({5, 400, 17}), f.variances({5, 400, 17}));
      wrong += f.report().unknowns != static_cast<std::int64_t>(n);
      wrong += !sameBits(f.variances(), f.variances());
    });
  }
  for (std::thread& h : hosts) h.join();
  EXPECT_EQ(wrong, 0);
}

// All that a process does with factors of both routes, in bits.
std::vector<double> answersOf(const SparseMatrix& A, const SparseMatrix& general) {
  Options o;
  o.threads = 3;
  std::vector<double> all = Factor(A, o).variances();
  for (const SparseMatrix* m : {&A, &general}) {
    if (m == &general && !zeph::hasLuRoute()) continue;
    Factor f(*m, o);
    f.refactorise(valuesOf(*m));
    for (const std::vector<double>& more :
         {f.variances(), f.solve(std::vector<double>(m->rows, 1.0))}) {
      all.insert(all.end(), more.begin(), more.end());
    }
  }
  return all;
}

TEST_F(FactorTest, worksInForkedChildren) {
  const SparseMatrix A = cube(9);
  SparseMatrix general = definite(40, 5, 2.0);
  general.entries[0].value *= -3.0;
  const Factor before(A);  // made by the parent, asked by the child
  const std::vector<double> d = before.variances();
  const std::vector<double> expected = answersOf(A, general);
  for (int generation = 0; generation < 2; ++generation) {
    const pid_t child = fork();
    if (child == 0) {
      bool same = false;
      try {
        same = sameBits(before.variances(), d) && sameBits(answersOf(A, general), expected);
      } catch (...) {
      }
      _exit(same ? 0 : 1);
    }
    int status = 1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(sameBits(before.variances(), d));
  }
}

TEST_F(FactorTest, manyFactorsOfManyThreadsAtOnceAndOneIsStopped) {
  const SparseMatrix A = cube(9);
  SparseMatrix general = definite(40, 5, 2.0);
  general.entries[0].value *= -3.0;
  const std::vector<double> expected = answersOf(A, general);
  std::atomic<bool> stop{false}, begun{false};
  std::atomic<int> wrong{0};
  std::vector<std::thread> hosts;
  hosts.emplace_back([&] {
    Options o;
    o.threads = 2;
    o.progress = [&](const char*, double) {
      begun = true;
      return !stop;
    };
    const auto run = [&] {
      for (;;) Factor(A, o).variances();
    };
    wrong += errorOf(run).find("130 stopped on request while") != 0;
  });
  for (int h = 0; h < 3; ++h) {
    hosts.emplace_back([&] {
      for (int k = 0; k < 2; ++k) wrong += !sameBits(answersOf(A, general), expected);
    });
  }
  while (!begun) std::this_thread::yield();
  stop = true;
  for (std::thread& h : hosts) h.join();
  EXPECT_EQ(wrong, 0);
}

TEST_F(FactorTest, samplesHaveTheCovariance) {
  const SparseMatrix A = definite(6, 5, 2.0);
  const DenseTruth t(A);
  const Factor f(A);
  constexpr std::size_t kCount = 40000;
  const DenseMatrix x = f.sample(kCount, 3);
  EXPECT_TRUE(sameBits(f.sample(1, 3).values, {x.values.begin(), x.values.begin() + 6}));
  EXPECT_FALSE(sameBits(f.sample(1, 4).values, {x.values.begin(), x.values.begin() + 6}));
  for (std::size_t i = 0; i < 6; ++i) {
    for (std::size_t j = 0; j < 6; ++j) {
      double sum = 0.0;
      for (std::size_t c = 0; c < kCount; ++c) sum += x(i, c) * x(j, c);
      expectEntry(sum / kCount, t, i, j, 0.03);
    }
  }
}

TEST_F(FactorTest, refusesWhatCannotBeMeant) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const auto S = Symmetry::Symmetric;
  const auto G = Symmetry::General;
  const auto make = [](std::size_t n, Symmetry symmetry, std::vector<Entry> entries) {
    SparseMatrix m;
    m.source = "A";
    m.rows = m.cols = n;
    m.symmetry = symmetry;
    m.entries = std::move(entries);
    return m;
  };
  const SparseMatrix good = make(2, S, {{0, 0, 4.0}, {1, 0, 2.0}, {1, 1, 5.0}});
  const struct {
    SparseMatrix m;
    Route route;
    const char* sentence;
    std::int64_t row;
  } cases[] = {
      {make(0, S, {}), Route::Automatic, "4 A is empty (0 x 0)", -1},
      {make(2, S, {{2, 0, 1.0}}), Route::Automatic, "4 entry (2, 0) of A lies outside its 2 rows",
       -1},
      {make(2, S, {{0, 0, 1.0}, {1, 1, nan}}), Route::Automatic,
       "4 the value of entry (1, 1) of A is nan", 1},
      {make(2, S, {{0, 0, 4.0}, {1, 1, 4.0}, {1, 0, 1.0}, {0, 1, 1.0}}), Route::Automatic,
       "4 A is said to be symmetric by one stored triangle but has entries in both, as (1, 0) and",
       -1},
      {make(2, G, {{0, 0, 4.0}, {1, 1, 4.0}, {1, 0, 1.0}}), Route::Automatic,
       "4 the only entry beside the diagonal of A lies in the lower triangle", -1},
      {make(2, G, {{0, 0, 4.0}, {1, 1, 4.0}, {1, 0, 1.0}, {0, 1, 2.0}}), Route::Cholesky,
       "4 A is not symmetric: entry (1, 0) is 1 but entry (0, 1) is 2; the Cholesky route", -1},
      {make(2, S, {{0, 0, 1.0}, {1, 0, 2.0}, {1, 1, 1.0}}), Route::Cholesky,
       "5 A is not positive definite: the Cholesky factorisation broke down at row 1", 1},
      {make(2, S, {{0, 0, 1.0}, {1, 1, -1.0}}), Route::Cholesky, "5 A is not positive definite", 1},
      {make(2, S, {{1, 0, 1.0}, {1, 1, 1.0}}), Route::Cholesky, "5 A is not positive definite", 0},
      {make(2, S, {{0, 0, 1e308}, {0, 0, 1e308}, {1, 1, 1.0}}), Route::Automatic,
       "4 the sum of the entries at (0, 0) of A is inf", 0},
      {make(2, S, {{0, 0, 1.0}, {1, 0, 1.0}, {1, 1, 1.0}}), Route::Automatic,
       "6 A is singular: no point is held fixed", 0},
      {make(3, S, {{0, 0, 1.0}}), Route::Automatic, "6 A is singular: it has fewer entries", -1},
      {make(3, Symmetry::SkewSymmetric, {{1, 0, 1.0}, {2, 1, 1.0}}), Route::Automatic,
       "6 A is singular", -1},
  };
  for (const auto& c : cases) {
    Options o;
    o.route = c.route;
    const bool byLu = std::strcmp(c.sentence, "6 A is singular") == 0;
    expectError([&] { Factor f(c.m, o); },
                byLu && !zeph::hasLuRoute() ? "4 this build has no LU route, and " : c.sentence);
    try {
      Factor f(c.m, o);
    } catch (const zeph::Error& e) {
      EXPECT_EQ(e.row(), c.row) << e.what();
    }
  }
  Factor f(good);
  Options given;
  given.ordering = Ordering::Given;
  given.permutation = {0, 2};
  expectError([&] { Factor g(good, given); }, "4 The permutation");
  given.permutation = {0};
  expectError([&] { Factor g(good, given); }, "4 the permutation has 1 entries for 2 rows");
  expectError([&] { f.solve(std::vector<double>{1.0}); },
              "4 the right-hand side is 1 x 1; A needs 2");
  expectError([&] { f.solve(std::vector<double>{1.0, nan}); }, "4 entry (1, 0) of the right-hand");
  expectError([&] { f.solve(nullptr, nullptr); }, "2 the right-hand side is a null pointer");
  expectError([&] { f.variances({0, -1}); }, "4 index 1 is -1; A has the rows 0 to 1");
  expectError([&] { f.covariance({0}, {0, 1}); }, "4 there are 1 row indices but 2");
  expectError([&] { f.covarianceBlock({2}); }, "4 index 0 is 2;");
  expectError([&] { f.traceOfInverseTimes(make(3, S, {})); }, "4 A is 3 x 3; its trace");
  expectError([&] { f.refactorise({1.0}); }, "4 there are 1 values for the 3 entries of A");
  EXPECT_EQ(f.variances().size(), 2u);

  // After a failed refactorisation there are no numbers, after the next good one there are.
  expectError([&] { f.refactorise({1.0, 2.0, 1.0}); }, "5 A is not positive definite");
  expectError([&] { f.variances(); }, "4 the factor of A has no numbers");
  f.refactorise({4.0, 2.0, 5.0});
  EXPECT_NEAR(f.variances()[0], 0.3125, 1e-16);

  // A triangular matrix is no half of a symmetric one.
  SparseMatrix lower = make(2, G, {{0, 0, 4.0}, {1, 0, 2.0}, {1, 1, 5.0}});
  lower.triangular = true;
  if (zeph::hasLuRoute()) {
    EXPECT_EQ(Factor(lower).report().route, Route::Lu);
    EXPECT_NEAR(Factor(lower).variances()[0], 0.25, 1e-16);
  }

  // Both triangles were given, so new values are compared again.
  Factor whole(make(2, G, {{0, 0, 4.0}, {1, 1, 5.0}, {1, 0, 2.0}, {0, 1, 2.0}}));
  expectError([&] { whole.refactorise({4.0, 5.0, 2.0, 1.0}); }, "4 A is not symmetric");
  expectError(
      [&] {
        f.solve(std::vector<double>{1e308, 1e308});
        f.refactorise({1e-300, 0.0, 1.0});
        f.solve(std::vector<double>{1e308, 1.0});
      },
      "4 the solution of A overflows");
  Options small;
  small.memoryLimit = 1e4;
  expectError([&] { Factor g(cube(9), small); }, "8 factorising the matrix would take");
}

// Peak of resident memory, in a process of its own; what is thrown gives nothing.
double peakBytes(const std::function<void()>& work) {
  const auto kilobytes = [](const std::string& field) {
    std::ifstream in("/proc/self/status");
    for (std::string line; std::getline(in, line);) {
      if (line.rfind(field, 0) == 0) return std::atof(line.c_str() + field.size());
    }
    return 0.0;
  };
  malloc_trim(0);  // what earlier work left would be used again unseen
  int ends[2];
  if (pipe(ends) != 0) return 0.0;
  double peak = 0.0;
  if (const pid_t child = fork(); child == 0) {
    try {
      const double before = kilobytes("VmRSS:");
      work();
      peak = 1024.0 * (kilobytes("VmHWM:") - before);
    } catch (...) {
    }
    _exit(write(ends[1], &peak, sizeof peak) == sizeof peak ? 0 : 1);
  } else if (child > 0) {
    if (read(ends[0], &peak, sizeof peak) != sizeof peak) peak = 0.0;
    waitpid(child, nullptr, 0);
  }
  close(ends[0]);
  close(ends[1]);
  return peak;
}

TEST_F(FactorTest, takesWhatIsPredictedAndRefusesLimitsBelow) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "sanitizers keep memory of their own";
#endif
  // Scattered blocks, both triangles: the matrix weighs as much as its factor.
  SparseMatrix bundle;
  bundle.rows = bundle.cols = 60300;
  for (std::uint32_t p = 0; p < 60000; p += 3) {
    const std::uint32_t camera = 60000 + below(25) * 12;
    for (std::uint32_t i = p; i < p + 3; ++i) {
      for (std::uint32_t j = camera; j < camera + 12; ++j) {
        const double a = uniform() - 0.5;
        bundle.entries.insert(bundle.entries.end(), {{i, j, a}, {j, i, a}});
      }
    }
  }
  for (std::uint32_t i = 0; i < 60300; ++i) bundle.entries.push_back({i, i, 1e5});
  for (const SparseMatrix& A : {cube(24), bundle}) {
    Options o;
    o.threads = 1;
    const auto predicted = [&] {
      const std::string refused = errorOf([&] { Factor(A, o).variances(); });
      const std::size_t at = refused.find("would take ");
      return at == std::string::npos ? 0.0 : 1e6 * std::atof(refused.c_str() + at + 11);
    };
    o.memoryLimit = 1.0;
    o.memoryLimit = std::max(predicted(), zeph::plan(A, o).bytes) * 1.01;
    const double inverse = predicted();
    const double need = std::max(inverse, o.memoryLimit);
    o.memoryLimit = need * 1.01;
    EXPECT_EQ(predicted(), 0.0);
    const double peak = peakBytes([&] { Factor(A, o).variances(); });
    // The heap keeps some of what ordering took, and large pages end where blocks do not.
    EXPECT_LE(peak, 1.1 * need + 5e6) << need;
    EXPECT_GE(peak, 0.75 * need) << need;
  }
}

TEST_F(FactorTest, singularMatricesPassByNoRoute) {
  for (unsigned round = 0; round < 200; ++round) {
    // Weighted differences along the edges of a connected graph and nothing that holds a point.
    const unsigned n = 2 + below(60);
    SparseMatrix A;
    A.rows = A.cols = n;
    A.symmetry = Symmetry::Symmetric;
    for (unsigned i = 1; i < n; ++i) {
      for (unsigned k = 1 + below(2); k > 0; --k) {
        const unsigned j = below(i);
        const double w = std::pow(10.0, 4.0 * uniform());
        A.entries.insert(A.entries.end(), {{i, i, w}, {j, j, w}, {i, j, -w}});
      }
    }
    const auto ask = [&](const auto& question) {
      Options o;
      o.route = round % 2 ? Route::Cholesky : Route::Automatic;
      const std::string answer = errorOf([&] {
        Factor f(A, o);
        question(f);
      });
      const bool brokeDown = answer[0] == (o.route == Route::Cholesky ? '5'
                                           : zeph::hasLuRoute()       ? '6'
                                                                      : '4');
      EXPECT_TRUE(answer[0] == '6' || brokeDown) << answer;
    };
    ask([](Factor& f) { f.variances(); });
    ask([&](Factor& f) { f.solve(std::vector<double>(n, 1.0)); });
    ask([](Factor& f) { f.variances({0}); });
  }
}

TEST_F(FactorTest, progressStopsEveryStage) {
  const SparseMatrix A = cube(15);
  std::vector<std::string> stages;
  int stopAt = -1, calls = 0;
  Options o;
  o.threads = 2;
  o.progress = [&](const char* stage, double share) {
    EXPECT_TRUE(share >= 0.0 && share <= 1.0);
    if (stages.empty() || stages.back() != stage) stages.push_back(stage);
    return calls++ != stopAt;
  };
  Factor f(A, o);
  EXPECT_EQ(stages, (std::vector<std::string>{"assembling", "ordering", "factorising"}));
  const std::vector<double> d = f.variances();
  // At every one of the first calls and at some of the later ones, which a slow machine has many
  // of.
  for (const int threads : {1, 3}) {
    o.threads = threads;
    Factor asked(A, o);
    const std::function<void()> requests[] = {[&] { Factor g(A, o); }, [&] { asked.variances(); },
                                              [&] { asked.refactorise(valuesOf(A)); }};
    for (const auto& request : requests) {
      int at = 0;
      for (bool stopped = true; stopped; at += stopped ? 1 + at / 2 : 0) {
        stopAt = at;
        calls = 0;
        const std::string error = errorOf(request);
        stopped = calls > at;
        stopAt = -1;
        EXPECT_EQ(error.find(stopped ? "130 stopped on request while" : "no error"), 0u) << error;
        EXPECT_TRUE(!stopped || calls == at + 1);
        if (&request == requests + 2) request();
        EXPECT_TRUE(sameBits(asked.variances(), d));
      }
      EXPECT_GE(at, &request == requests ? 3 : 1);
    }
  }
}

TEST_F(FactorTest, planPredictsTheReport) {
  const SparseMatrix A = cube(10);
  const zeph::Report planned = zeph::plan(A), made = Factor(A).report();
  EXPECT_EQ(planned.unknowns, 1000);
  EXPECT_EQ(planned.entriesOfA, 1000 + 6 * 900);
  EXPECT_EQ(planned.entriesOfL, made.entriesOfL);
  EXPECT_EQ(planned.operations, made.operations);
  EXPECT_EQ(planned.bytes, made.bytes);
  EXPECT_EQ(planned.ordering, made.ordering);
  EXPECT_GT(planned.secondsFactorisation, 0.0);
  EXPECT_TRUE(made.secondsOrdering > 0.0 && made.secondsAnalysis > 0.0);
  EXPECT_EQ(zeph::plan(A).identityResidual, 0.0);
}

TEST_F(FactorTest, matricesComeFromTripletsColumnsAndMeasurements) {
  const std::int64_t starts[] = {0, 2, 3}, rows[] = {0, 1, 1}, cols[] = {0, 0, 1};
  const std::int32_t starts32[] = {0, 2, 3}, rows32[] = {0, 1, 1}, cols32[] = {0, 0, 1};
  const double values[] = {4.0, 2.0, 5.0};
  const auto S = Symmetry::Symmetric;
  const SparseMatrix made[] = {
      SparseMatrix::fromTriplets(2, 2, rows, cols, values, 3, S),
      SparseMatrix::fromTriplets(2, 2, rows32, cols32, values, 3, S),
      SparseMatrix::fromCompressedColumns(2, 2, starts, rows, values, S),
      SparseMatrix::fromCompressedColumns(2, 2, starts32, rows32, values, S)};
  for (const SparseMatrix& A : made) {
    EXPECT_TRUE(sameBits(Factor(A).variances(), Factor(made[0]).variances()));
    EXPECT_NEAR(Factor(A).variances()[1], 0.25, 1e-16);
  }
  const std::int64_t none[] = {0, 0, 0};
  EXPECT_TRUE(SparseMatrix::fromCompressedColumns(2, 2, none, nullptr, nullptr).entries.empty());
  const std::int64_t descending[] = {0, 3, 2}, late[] = {1, 2, 3}, far[] = {0, 2, 1};
  expectError([&] { SparseMatrix::fromCompressedColumns(2, 2, descending, rows, values); },
              "4 column start 2 is 2;");
  expectError([&] { SparseMatrix::fromCompressedColumns(2, 2, late, rows, values); },
              "4 column start 0 is 1;");
  expectError([&] { SparseMatrix::fromTriplets(2, 2, far, cols, values, 3); },
              "4 the row index of entry 1 is 2; it must be from 0 to 1");
  expectError([&] { SparseMatrix::fromTriplets(2, 2, rows, cols, nullptr, 3); },
              "2 the array of values is null");
  expectError([&] { SparseMatrix::fromTriplets(2, 3, rows, cols, values, 3, S); },
              "4 the matrix is");
  expectError([&] { SparseMatrix::fromTriplets(3000000000u, 2, rows, cols, values, 3); }, "4 the");

  for (unsigned round = 0; round < 100; ++round) {
    SparseMatrix J;
    J.rows = 1 + below(12);
    J.cols = 1 + below(8);
    for (unsigned k = below(40); k > 0; --k)
      J.entries.push_back({below(J.rows), below(J.cols), uniform()});
    std::vector<double> weights(J.rows);
    for (double& w : weights) w = uniform();
    std::vector<double> dense(J.rows * J.cols), expected(J.cols * J.cols);
    for (const Entry& e : J.entries) dense[e.row + e.col * J.rows] += e.value;
    for (std::size_t k = 0; k < expected.size(); ++k) {
      for (std::size_t r = 0; r < J.rows; ++r) {
        expected[k] += weights[r] * dense[r + k % J.cols * J.rows] * dense[r + k / J.cols * J.rows];
      }
    }
    for (const Entry& e : zeph::normalEquations(J, weights).entries) {
      EXPECT_GE(e.row, e.col);
      EXPECT_NEAR(e.value, expected[e.row + e.col * J.cols], 1e-14);
      expected[e.row + e.col * J.cols] = expected[e.col + e.row * J.cols] = 0.0;
    }
    for (const double left : expected) EXPECT_EQ(left, 0.0);
    weights[0] = -1.0;
    expectError([&] { zeph::normalEquations(J, weights); },
                "4 the weight of row 0 of the matrix is -1");
  }
}

}  // namespace
