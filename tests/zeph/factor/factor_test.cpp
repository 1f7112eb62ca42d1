#include "zeph/factor.h"

#include <malloc.h>
#include <sys/wait.h>

#include <atomic>
#include <cstdlib>
#include <thread>

#include "tests/sparse/symbolic/symbolic_model.h"
#include "tests/zeph/factor/dense_truth.h"
#include "tests/zeph/front_test.h"
#include "tests/zeph/matrices.h"
#include "zeph/factor/lu_backend.h"
#include "zeph/general/variances.h"

namespace zeph {
namespace {

namespace model = korin::sparse::testing;

constexpr double kEps = std::numeric_limits<double>::epsilon();

class FactorTest : public FrontTest {
 protected:
  std::vector<double> powersOfTen(std::size_t n, double decades) {
    std::vector<double> powers(n);
    for (double& p : powers) p = std::pow(10.0, decades * uniform(-0.5, 0.5));
    return powers;
  }

  /// Positive definite, of one of ten shapes; entries in one or two parts, shuffled, in one
  /// triangle or both; rows and columns scaled by powers of ten up to 10^(decades/2) and down to
  /// its inverse.
  SparseMatrix definite(unsigned n, unsigned shape, double decades) {
    const auto lower =
        model::makeLower(model::kShapes[1 + shape % 10], static_cast<int>(n), random_);
    const std::vector<double> scale = powersOfTen(n, decades);
    const unsigned form = below(3);
    SparseMatrix A = squareMatrix(n, form == 0 ? Symmetry::General : Symmetry::Symmetric);
    for (unsigned c = 0; c < n; ++c) {
      for (auto p = lower.start[c]; p < lower.start[c + 1]; ++p) {
        unsigned i = static_cast<unsigned>(lower.row[p]), j = c;
        const unsigned parts = 1 + below(2);
        const double sign = i != j && below(2) == 0 ? -1.0 : 1.0;
        const double value = sign * lower.value[p] * scale[i] * scale[j] / parts;
        if (form == 2) std::swap(i, j);
        A.entries.insert(A.entries.end(), parts, {i, j, value});
        if (form == 0 && i != j) A.entries.insert(A.entries.end(), parts, {j, i, value});
      }
    }
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

  /// tr(A^-1 B) for B of every symmetry.
  void expectTraces(const Factor& f, const DenseTruth& t) {
    for (const Symmetry form : {Symmetry::General, Symmetry::Symmetric, Symmetry::SkewSymmetric}) {
      SparseMatrix B = squareMatrix(t.n, form);
      long double trace = 0.0L, mirrored = form == Symmetry::SkewSymmetric ? -1.0L : 1.0L;
      for (unsigned k = 5; k > 0; --k) {
        const unsigned i = below(t.n), j = below(i + 1);
        const long double size = std::max(std::fabs(t(i, j)), std::fabs(t(j, i)));
        if (size == 0.0L || (i == j && mirrored < 0.0L)) continue;
        B.entries.push_back({i, j, static_cast<double>(uniform(1.0, 2.0) / size)});
        trace += B.entries.back().value * t(j, i);
        if (form == Symmetry::General || i == j) continue;
        trace += mirrored * B.entries.back().value * t(i, j);
      }
      EXPECT_NEAR(f.traceOfInverseTimes(B), static_cast<double>(trace), 1e-8);
    }
  }

  /// What is reported of a solution, to within rounding; and that it is small.
  void expectBackwardError(const Factor& f, const DenseTruth& t) {
    std::vector<double> b(t.n);
    const std::vector<double> wanted = powersOfTen(t.n, 6.0);  // unlike sizes make it hard
    for (std::size_t k = 0; k < t.n * t.n; ++k) {
      b[k / t.n] += static_cast<double>(t.a[k]) * wanted[k % t.n];
    }
    const std::vector<double> x = f.solve(b);
    long double error = 0.0L;
    for (std::size_t i = 0; i < t.n; ++i) {
      long double left = b[i], size = std::fabs(b[i]);
      for (std::size_t j = 0; j < t.n; ++j) {
        left -= t.a[i * t.n + j] * x[j];
        size += std::fabs(t.a[i * t.n + j] * x[j]);
      }
      if (size > 0.0L) error = std::max(error, std::fabs(left) / size);
    }
    const double rounding = static_cast<double>(t.n) * kEps;
    EXPECT_NEAR(f.report().backwardError, static_cast<double>(error), rounding);
    EXPECT_LE(error, 8.0 * kEps + rounding);
  }

  /// Every question that a factor answers, against the dense inverse.
  void expectAnswers(const Factor& f, const SparseMatrix& A) {
    const DenseTruth t(A);
    const std::size_t n = A.rows;
    const bool definite = f.report().route == Route::Cholesky;
    const double tolerance = definite ? 1e-11 : 1e-9;
    const std::vector<double> d = f.variances();
    const double estimate = f.report().relativeErrorEstimate;
    EXPECT_TRUE(estimate < 1e-10 || !definite) << estimate;
    for (std::size_t i = 0; i < n; ++i) {
      EXPECT_LE(std::fabs(d[i] - t(i, i)), (definite ? estimate : 1e-9) * std::fabs(t(i, i)))
          << i << " of " << n;
    }
    EXPECT_NEAR(f.logDeterminant(), static_cast<double>(t.logAbs),
                0.1 * tolerance * static_cast<double>(1 + n));
    EXPECT_EQ(f.determinantSign(), t.sign);
    std::vector<std::int64_t> rows, cols, some;
    for (unsigned k = below(40); k > 0; --k) {
      rows.push_back(below(n));
      cols.push_back(below(n));
    }
    const std::vector<double> pairs = f.covariance(rows, cols);
    for (std::size_t k = 0; k < rows.size(); ++k) {
      expectEntry(pairs[k], t, rows[k], cols[k], tolerance);
    }
    for (unsigned k = below(5); k > 0; --k) some.push_back(below(n));
    const DenseMatrix block = f.covarianceBlock(some);
    for (std::size_t i = 0; i < some.size(); ++i) {
      expectEntry(f.variances(some)[i], t, some[i], some[i], tolerance);
      for (std::size_t j = 0; j < some.size(); ++j) {
        expectEntry(block(i, j), t, some[i], some[j], tolerance);
      }
    }
    expectTraces(f, t);
    auto identity = DenseMatrix::zeros(n, n);
    for (std::size_t i = 0; i < n; ++i) identity(i, i) = 1.0;
    const DenseMatrix X = f.solve(identity);
    for (std::size_t i = 0; i < n * n; ++i) expectEntry(X.values[i], t, i % n, i / n, tolerance);
    expectBackwardError(f, t);
    if (!definite) {
      expectError([&] { f.selectedInverse(); }, "4 a selected inverse need");
      expectError([&] { f.sample(1, 1); }, "4 samples need");
      return;
    }
    EXPECT_TRUE(sameBits(pairs, f.covariance(cols, rows)));
    long double trace = 0.0L;  // of the inverse where the diagonal is scaled to ones
    for (std::size_t i = 0; i < n; ++i) trace += t.a[i * n + i] * t(i, i);
    EXPECT_NEAR(f.report().conditionEstimate / static_cast<double>(trace), 1.0, 1e-10);
    const SparseMatrix Z = f.selectedInverse();
    EXPECT_GE(Z.entries.size(), n);
    for (std::size_t k = 0; k < Z.entries.size(); ++k) {
      const Entry& e = Z.entries[k];
      expectEntry(e.value, t, e.row, e.col, tolerance);
      if (k == 0) continue;
      const Entry& before = Z.entries[k - 1];
      EXPECT_TRUE(before.col < e.col || (before.col == e.col && before.row < e.row));
    }
  }

  /// Asks all, and again with the numbers that other units give.
  void expectAnswersTwice(Factor& f, SparseMatrix A, double decades) {
    expectAnswers(f, A);
    const std::vector<double> scale = powersOfTen(A.rows, decades);
    for (Entry& e : A.entries) e.value *= scale[e.row] * scale[e.col];
    f.refactorise(valuesOf(A));
    expectAnswers(f, A);
  }
};

TEST_F(FactorTest, answersAsTheDenseInverseDoes) {
  for (unsigned round = 0; round < 1500; ++round) {
    const unsigned n = round < 30 ? 1 : 1 + below(round % 50 == 0 ? 90 : 14);
    const double decades = round % 4 == 3 ? 150.0 : round % 4;
    const SparseMatrix A = definite(n, round, decades);
    Factor f(A, anyOptions(n));
    EXPECT_EQ(f.report().route, Route::Cholesky);
    EXPECT_EQ(f.report().unknowns, n);
    expectAnswersTwice(f, A, decades);
  }
}

TEST_F(FactorTest, generalMatricesTakeLu) {
  if (!hasLuRoute()) GTEST_SKIP() << "no LU route in this build";
  double operations = 0.0;
  for (unsigned round = 0; round < 200; ++round) {
    const unsigned n = 1 + below(12);
    SparseMatrix A = definite(n, round, round % 2 ? 100.0 : 0.0);
    const bool indefinite = round % 3 == 0;
    if (A.symmetry != Symmetry::General && !indefinite) continue;
    const unsigned spoilt = below(n);
    for (Entry& e : A.entries) {
      if (indefinite ? e.row == spoilt && e.col == spoilt : e.row < e.col) e.value *= -0.9;
      if (round % 4 < 2 && e.row == e.col) e.value *= 0.01;  // so that pivots are elsewhere
    }
    Factor f(A);
    const Report r = f.report();
    operations += r.route == Route::Lu ? r.operations : 0.0;
    EXPECT_LE(r.operations, n * (n + 1.0) * (2.0 * n + 1.0) / 6.0);  // of a full matrix
    expectAnswersTwice(f, A, 2.0);
  }
  EXPECT_GT(operations, 0.0);
}

TEST_F(FactorTest, sameBitsFromAnyTeam) {
  const SparseMatrix A = stencil(17, true);
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
  if (hasLuRoute()) {
    const Variances cholmod = variances(A, Route::Cholesky);
    for (std::size_t i = 0; i < n; ++i)
      EXPECT_NEAR(first[0][i] / cholmod.diagonal.data[i], 1.0, 1e-12);
  }
}

// All that a process does with factors of both routes, in bits.
std::vector<double> answersOf(const SparseMatrix& A, const SparseMatrix& general) {
  Options o;
  o.threads = 3;
  std::vector<double> all = Factor(A, o).variances();
  for (const SparseMatrix* m : {&A, &general}) {
    if (m == &general && !hasLuRoute()) continue;
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
  const SparseMatrix A = stencil(9, true);
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

TEST_F(FactorTest, manyThreadsOfTheHostAskOneFactorAndMakeOthersAndOneIsStopped) {
  const SparseMatrix A = stencil(9, true);
  SparseMatrix general = definite(40, 5, 2.0);
  general.entries[0].value *= -3.0;
  const std::vector<double> expected = answersOf(A, general);
  const Factor shared(A), alone(A);
  const std::vector<double> d = alone.variances(), some = alone.variances({5, 400, 17});
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
      for (int k = 0; k < 2; ++k) {
        wrong += !sameBits(shared.variances({5, 400, 17}), some);
        wrong += shared.report().unknowns != static_cast<std::int64_t>(A.rows);
        wrong += !sameBits(shared.variances(), d);
        wrong += !sameBits(answersOf(A, general), expected);
      }
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
    SparseMatrix m = squareMatrix(n, symmetry, std::move(entries));
    m.source = "A";
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
                byLu && !hasLuRoute() ? "4 this build has no LU route, and " : c.sentence);
    try {
      Factor f(c.m, o);
    } catch (const Error& e) {
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
  if (hasLuRoute()) {
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
  expectError([&] { Factor g(stencil(9, true), small); }, "8 factorising the matrix would take");
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
  SparseMatrix bundle = squareMatrix(60300, Symmetry::General);
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
  for (const SparseMatrix& A : {stencil(30, true), bundle}) {
    double ofOne = 0.0;
    // The same for two threads: where memory is short, one helps the other.
    for (const int threads : {1, 2}) {
      Options o;
      o.threads = threads;
      const std::vector<double> variances = Factor(A, o).variances();
      const auto predicted = [&] {
        const std::string refused = errorOf([&] { Factor(A, o).variances(); });
        const std::size_t at = refused.find("would take ");
        return at == std::string::npos ? 0.0 : 1e6 * std::atof(refused.c_str() + at + 11);
      };
      o.memoryLimit = 1.0;
      o.memoryLimit = std::max(predicted(), plan(A, o).bytes) * 1.01;
      const double inverse = predicted();
      const double need = std::max(inverse, o.memoryLimit);
      if (threads == 1) ofOne = need;
      EXPECT_EQ(need, ofOne);
      o.memoryLimit = need * 1.01;
      EXPECT_EQ(predicted(), 0.0);
      const double peak = peakBytes([&] {
        if (Factor(A, o).variances() != variances) throw std::runtime_error("other bits");
      });
      // The heap keeps some of what ordering took, and large pages end where blocks do not.
      EXPECT_LE(peak, 1.1 * need + 5e6) << need;
      EXPECT_GE(peak, 0.75 * need) << need;
    }
  }
}

TEST_F(FactorTest, progressStopsEveryStage) {
  const SparseMatrix A = stencil(15, true);
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
  const SparseMatrix A = stencil(10, true);
  const Report planned = plan(A), made = Factor(A).report();
  EXPECT_EQ(planned.unknowns, 1000);
  EXPECT_EQ(planned.entriesOfA, 1000 + 6 * 900);
  EXPECT_EQ(planned.entriesOfL, made.entriesOfL);
  EXPECT_EQ(planned.operations, made.operations);
  EXPECT_EQ(planned.bytes, made.bytes);
  EXPECT_EQ(planned.ordering, made.ordering);
  EXPECT_GT(planned.secondsFactorisation, 0.0);
  EXPECT_TRUE(made.secondsOrdering > 0.0 && made.secondsAnalysis > 0.0);
  EXPECT_EQ(plan(A).identityResidual, 0.0);
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
    for (const Entry& e : normalEquations(J, weights).entries) {
      EXPECT_GE(e.row, e.col);
      EXPECT_NEAR(e.value, expected[e.row + e.col * J.cols], 1e-14);
      expected[e.row + e.col * J.cols] = expected[e.col + e.row * J.cols] = 0.0;
    }
    for (const double left : expected) EXPECT_EQ(left, 0.0);
    weights[0] = -1.0;
    expectError([&] { normalEquations(J, weights); }, "4 the weight of row 0 of the matrix is -1");
  }
}

}  // namespace
}  // namespace zeph
