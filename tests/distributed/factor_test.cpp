#include "distributed/distributed_factor.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tests/distributed/other_values.h"
#include "zeph/factor.h"
#include "zeph/factor/lu_backend.h"

namespace zeph {
namespace {

int rankOf() {
  int rank = 0;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  return rank;
}
int processes() {
  int size = 1;
  MPI_Comm_size(MPI_COMM_WORLD, &size);
  return size;
}

struct Case {
  const char* name;
  SparseMatrix A;  // the same on all processes
};

// Neighbours in a grid of three sizes, as a network of differences with weights, held by a few
// unknowns. `parts` unconnected copies; `coupling` unknowns a node.
SparseMatrix network(std::uint32_t nx, std::uint32_t ny, std::uint32_t nz, std::uint32_t parts,
                     std::uint32_t unknowns, bool both, unsigned seed) {
  std::mt19937 chance(seed);
  std::uniform_real_distribution<double> weight(0.1, 4.0);
  SparseMatrix A;
  const std::uint32_t nodes = nx * ny * nz;
  A.rows = A.cols = static_cast<std::size_t>(nodes) * parts * unknowns;
  A.symmetry = both ? Symmetry::General : Symmetry::Symmetric;
  const auto add = [&](std::uint32_t i, std::uint32_t j, double value) {
    A.entries.push_back({std::max(i, j), std::min(i, j), value});
    if (both && i != j) A.entries.push_back({std::min(i, j), std::max(i, j), value});
  };
  for (std::uint32_t part = 0; part < parts; ++part) {
    const auto join = [&](std::uint32_t a, std::uint32_t b) {
      for (std::uint32_t u = 0; u < unknowns; ++u) {
        const std::uint32_t i = (part * nodes + a) * unknowns + u;
        const std::uint32_t j = (part * nodes + b) * unknowns + (u + a) % unknowns;
        const double w = weight(chance);
        add(i, i, w);
        add(j, j, w);
        add(i, j, -w);
      }
    };
    for (std::uint32_t k = 0; k < nodes; ++k) {
      if (k % nx + 1 < nx) join(k, k + 1);
      if (k / nx % ny + 1 < ny) join(k, k + nx);
      if (k / (nx * ny) + 1 < nz) join(k, k + nx * ny);
      if (k % 7 == 0) {
        for (std::uint32_t u = 0; u < unknowns; ++u) {
          add((part * nodes + k) * unknowns + u, (part * nodes + k) * unknowns + u, 0.5);
        }
      }
    }
  }
  return A;
}

// A drive with loops: a chain of poses of three unknowns, and edges across.
SparseMatrix poseGraph(std::uint32_t poses) {
  SparseMatrix A = network(poses, 1, 1, 1, 3, false, 5);
  std::mt19937 chance(6);
  for (std::uint32_t k = 0; k < poses / 3; ++k) {
    const auto i = static_cast<std::uint32_t>(chance() % A.rows);
    const auto j = static_cast<std::uint32_t>(chance() % A.rows);
    if (i == j) continue;
    A.entries.push_back({i, i, 1.0});
    A.entries.push_back({j, j, 1.0});
    A.entries.push_back({std::max(i, j), std::min(i, j), -0.5});
  }
  return A;
}

SparseMatrix unsymmetric(std::uint32_t n, bool indefinite) {
  std::mt19937 chance(n);
  std::uniform_real_distribution<double> value(-1.0, 1.0);
  SparseMatrix A;
  A.rows = A.cols = n;
  A.symmetry = indefinite ? Symmetry::Symmetric : Symmetry::General;
  for (std::uint32_t k = 0; k < n; ++k) A.entries.push_back({k, k, k % 3 == 0 ? -4.0 : 5.0});
  A.entries.push_back({1, 0, 0.5});
  if (!indefinite) A.entries.push_back({0, 1, 0.25});
  for (std::uint32_t k = 0; k < 3 * n; ++k) {
    auto i = static_cast<std::uint32_t>(chance() % n), j = static_cast<std::uint32_t>(chance() % n);
    if (indefinite && i < j) std::swap(i, j);
    if (i != j) A.entries.push_back({i, j, value(chance)});
  }
  return A;
}

std::vector<Case> definiteCases() {
  std::vector<Case> cases;
  cases.push_back({"one unknown", network(1, 1, 1, 1, 1, false, 0)});
  cases.push_back({"two unknowns", network(2, 1, 1, 1, 1, true, 0)});
  cases.push_back({"three unknowns", network(3, 1, 1, 1, 1, false, 0)});
  cases.push_back({"unconnected", network(1, 1, 1, 9, 2, false, 1)});
  cases.push_back({"parts", network(6, 5, 1, 7, 1, true, 2)});
  cases.push_back({"levelling", network(31, 17, 1, 1, 1, false, 3)});
  cases.push_back({"grid", network(9, 8, 7, 1, 1, true, 4)});
  cases.push_back({"poses", poseGraph(150)});
  return cases;
}

// What chance gives to this process: every entry to one, now and then in two halves to two; some
// processes get nothing.
SparseMatrix shareOf(const SparseMatrix& A, unsigned seed) {
  SparseMatrix share = A;
  share.entries.clear();
  std::mt19937 chance(seed);
  const auto owners = 1 + chance() % static_cast<unsigned>(processes());
  for (const Entry& e : A.entries) {
    const auto owner = static_cast<int>(chance() % owners),
               other = static_cast<int>(chance() % owners);
    if (chance() % 4 != 0) {
      if (owner == rankOf()) share.entries.push_back(e);
      continue;
    }
    for (const int half : {owner, other}) {
      if (half == rankOf()) share.entries.push_back({e.row, e.col, 0.5 * e.value});
    }
  }
  return share;
}

void expectSame(const std::vector<double>& got, const std::vector<double>& want, double tolerance) {
  ASSERT_EQ(got.size(), want.size());
  double size = 0.0;
  for (const double v : want) size = std::max(size, std::abs(v));
  for (std::size_t i = 0; i < got.size(); ++i) {
    EXPECT_NEAR(got[i], want[i], tolerance * size) << i;
  }
}

void compareWithMemory(const SparseMatrix& given, const DistributedOptions& options, Engine engine,
                       Route route, unsigned seed, bool again = false) {
  const SparseMatrix share = shareOf(given, seed);
  const SparseMatrix A = again ? scaled(given, 2) : given;
  DistributedFactor f(MPI_COMM_WORLD, share, options);
  if (again) {
    f.variances();
    f.refactorise(valuesOf(scaled(share, 2)));
    EXPECT_EQ(f.report().secondsInverse, 0.0);
  } else {
    compareWithMemory(given, options, engine, route, seed, true);
  }
  const Factor reference(A);
  expectSame(f.variances(), reference.variances(), 1e-11);
  std::vector<double> b(A.rows);
  std::mt19937 chance(seed);
  for (double& v : b) v = static_cast<double>(chance() % 2001) - 1000.0;
  expectSame(f.solve(b), reference.solve(b), 1e-11);
  EXPECT_NEAR(f.logDeterminant(), reference.logDeterminant(), 1e-9);
  EXPECT_EQ(f.determinantSign(), reference.determinantSign());
  std::vector<std::int64_t> rows, cols;
  for (std::size_t k = 0; k < std::min<std::size_t>(A.entries.size(), 50); ++k) {
    const Entry& e = A.entries[A.entries.size() - 1 - k];
    rows.push_back(e.row);
    cols.push_back(e.col);
  }
  expectSame(f.covariance(rows, cols), reference.covariance(rows, cols), 1e-11);
  const DistributedReport r = f.report();
  EXPECT_EQ(r.engine, engine);
  EXPECT_EQ(r.route, route);
  EXPECT_EQ(r.processes, processes());
  EXPECT_EQ(r.entriesOfA, reference.report().entriesOfA);
  EXPECT_LT(r.backwardError, 1e-14);
  EXPECT_LT(r.relativeErrorEstimate, 1e-9);
  EXPECT_GE(r.balance, 1.0 - 1e-12);
}

TEST(DistributedFactor, GivesWhatTheFactorInMemoryGives) {
  unsigned seed = 0;
  for (const Case& c : definiteCases()) {
    SCOPED_TRACE(c.name);
    DistributedOptions options;
    options.engine = Engine::Mumps;
    compareWithMemory(c.A, options, Engine::Mumps, Route::Cholesky, ++seed);
    options.engine = Engine::Domains;
    for (const InterfaceMethod method : {InterfaceMethod::Dense, InterfaceMethod::Sparse}) {
      options.interface = method;
      compareWithMemory(c.A, options, Engine::Domains, Route::Cholesky, ++seed);
    }
  }
}

TEST(DistributedFactor, TakesGeneralMatricesByMumps) {
  if (!hasLuRoute()) GTEST_SKIP() << "this build has no LU in memory to compare with";
  for (const std::uint32_t n : {2u, 3u, 40u, 300u}) {
    for (const bool indefinite : {false, true}) {
      SCOPED_TRACE(std::to_string(n) + (indefinite ? " indefinite" : " unsymmetric"));
      compareWithMemory(unsymmetric(n, indefinite), {}, Engine::Mumps, Route::Lu, n);
    }
  }
}

// The kind and the sentence of what all processes throw alike.
std::string thrown(const std::function<void()>& work) {
  try {
    work();
  } catch (const Error& e) {
    std::string mine = std::to_string(exitCode(e.kind())) + " " + e.what();
    std::vector<char> first(mine.size() + 1, ' ');
    std::copy(mine.begin(), mine.end(), first.begin());
    MPI_Bcast(first.data(), static_cast<int>(mine.size()), MPI_CHAR, 0, MPI_COMM_WORLD);
    EXPECT_EQ(std::string(first.data(), mine.size()), mine);
    return mine;
  }
  return {};
}

std::string thrown(const SparseMatrix& share, const DistributedOptions& options = {}) {
  return thrown([&] { DistributedFactor(MPI_COMM_WORLD, share, options).variances(); });
}

TEST(DistributedFactor, OneFailureIsThatOfAllProcesses) {
  const SparseMatrix A = network(5, 4, 1, 1, 1, true, 1);
  const int last = processes() - 1;
  const std::string who = last == 0 ? "" : "rank " + std::to_string(last) + ": ";
  DistributedOptions mumps;
  mumps.engine = Engine::Mumps;
  struct Fault {
    std::function<void(SparseMatrix&, DistributedOptions&)> spoil;  // on the last process alone
    std::string sentence;                                           // begins like this
  };
  const Fault faults[] = {
      {[](SparseMatrix& share, DistributedOptions&) {
         share.entries.push_back({99, 0, 1.0});
       },
       "4 " + who + "entry "},
      {[](SparseMatrix& share, DistributedOptions&) {
         share.entries.push_back({1, 0, std::numeric_limits<double>::quiet_NaN()});
       },
       "4 " + who + "the value of entry (1, 0)"},
      {[](SparseMatrix& share, DistributedOptions&) {
         for (int k = 0; k < 2; ++k) share.entries.push_back({1, 1, 1.5e308});
       },
       "4 the sum of the entries at (1, 1) of the matrix is inf"},
      {[](SparseMatrix& share, DistributedOptions&) { share.cols = 7; },
       "4 " + who + "the matrix is 20 x 7"},
      {[](SparseMatrix&, DistributedOptions& options) { options.memoryLimit = 1e3; },
       "8 " + who + "the part of one process in the factor of the matrix would take"},
      {[](SparseMatrix&, DistributedOptions& options) { options.scratchFolder = "/nowhere"; },
       last == 0 ? "7 there is no folder /nowhere for scratch files"
                 : "2 " + who + "engine, route, interface or the use of a scratch folder"},
      {[](SparseMatrix& share, DistributedOptions&) {
         share.entries.push_back({1, 0, -9.0});
       },
       "0"},
  };
  for (const Fault& fault : faults) {
    SparseMatrix share = shareOf(A, 3);
    DistributedOptions options = mumps;
    if (rankOf() == last) fault.spoil(share, options);
    const std::string sentence = thrown(share, options);
    if (fault.sentence == "0") {
      EXPECT_EQ(sentence, "");  // no longer symmetric, and factorised as what it is
    } else {
      EXPECT_EQ(sentence.substr(0, fault.sentence.size()), fault.sentence);
    }
  }
}

TEST(DistributedFactor, HasNoNumbersBetweenARefactorisationThatFailsAndOneThatDoesNot) {
  const double infinity = std::numeric_limits<double>::infinity();
  const int last = processes() - 1;
  const std::string who = last == 0 ? "" : "rank " + std::to_string(last) + ": ";
  const std::string alone = "4is not symmetric: entry (19, 0) is 0 but entry (0, 19) is 1; ";
  // All values times a factor, and on the last process others at the end, of which the first has no
  // mirror image. What is refused: the kind, and words of the sentence.
  const struct {
    double factor;
    std::array<double, 5> end;
    std::string byCholesky, byLu;
  } faults[] = {
      {1, {infinity}, "4" + who + "the value of entry (0, 19) of the matrix is inf", "="},
      {1, {0, 1.5e308, 1.5e308}, "4the sum of the entries at (9, 9) of the matrix is inf", "="},
      {1, {1}, alone + "the Cholesky route", alone + "its factor was made"},
      {0, {}, "5is not positive definite", "6is singular"},
      {1, {0, 0, 0, 90, 90}, "5is not positive definite", ""},
  };
  for (const int kind : {0, 1, 2, 3}) {
    DistributedOptions asked;
    asked.engine = kind < 2 ? Engine::Domains : Engine::Mumps;
    asked.interface = kind == 0 ? InterfaceMethod::Dense : InterfaceMethod::Sparse;
    asked.route = kind < 3 ? Route::Cholesky : Route::Lu;
    SparseMatrix share = shareOf(network(5, 4, 1, 1, 1, true, 1), 3);
    if (rankOf() == last) {
      share.entries.insert(share.entries.end(),
                           {{0, 19, 0.}, {9, 9, 0.}, {9, 9, 0.}, {9, 10, 0.}, {10, 9, 0.}});
    }
    DistributedFactor f(MPI_COMM_WORLD, share, asked);
    const std::vector<double> variances = f.variances(), x = f.solve(variances);
    const std::function<void()> queries[] = {
        [&] { f.variances(); },      [&] { f.solve(x); },          [&] { f.covariance({0}, {0}); },
        [&] { f.logDeterminant(); }, [&] { f.determinantSign(); }, [&] { f.estimateCondition(); }};
    std::vector<double> tooFew(share.entries.size() - (rankOf() == last ? 1 : 0), 1.0);
    EXPECT_EQ(thrown([&] { f.refactorise(tooFew); }).find("4 " + who + "there are "), 0);
    expectSame(f.solve(variances), x, 1e-13);
    for (const auto& fault : faults) {
      std::vector<double> values = valuesOf(share);
      for (double& value : values) value *= fault.factor;
      if (rankOf() == last) std::copy(fault.end.begin(), fault.end.end(), values.end() - 5);
      const std::string expected = kind < 3 || fault.byLu == "=" ? fault.byCholesky : fault.byLu;
      const std::string said = thrown([&] { f.refactorise(values); });
      EXPECT_EQ(said.substr(0, 1), expected.substr(0, 1)) << said;
      if (expected.empty()) continue;
      EXPECT_NE(said.find(expected.substr(1)), std::string::npos) << said << expected;
      const std::string none = "4 the factor of the matrix has no numbers since its last refac";
      for (const auto& query : queries) EXPECT_EQ(thrown(query).substr(0, none.size()), none);
      EXPECT_EQ(f.report().conditionEstimate, 0.0);
      f.refactorise(valuesOf(share));
      expectSame(f.variances(), variances, 1e-13);
      expectSame(f.solve(variances), x, 1e-13);
    }
  }
}

TEST(DistributedFactor, RefusesWhatHasNoAnswer) {
  DistributedOptions mumps, cholesky;
  mumps.engine = Engine::Mumps;
  cholesky.engine = Engine::Mumps;
  cholesky.route = Route::Cholesky;
  const auto kind = [](const std::string& sentence) { return sentence.substr(0, 1); };
  SparseMatrix held = network(6, 6, 2, 1, 1, true, 2), loose = held;
  for (Entry& e : loose.entries) {
    if (e.row == e.col) e.value = 0.0;
  }
  for (const Entry& e : held.entries) {
    if (e.row != e.col) loose.entries.push_back({e.row, e.row, -e.value});
  }
  EXPECT_EQ(kind(thrown(shareOf(loose, 1), mumps)), "6");  // rows that add up to zero
  held.entries.push_back({40, 40, -50.0});
  held.entries.push_back({41, 41, 50.0});
  EXPECT_EQ(kind(thrown(shareOf(held, 2), cholesky)), "5");
  EXPECT_EQ(thrown(shareOf(held, 2), mumps), "");
  held.entries.push_back({40, 40, 60.0});
  held.entries.push_back({41, 40, -30.0});  // indefinite behind a positive diagonal
  held.entries.push_back({40, 41, -30.0});
  EXPECT_EQ(kind(thrown(shareOf(held, 2), cholesky)), "5");
  EXPECT_EQ(thrown(shareOf(held, 2), mumps), "");

  SparseMatrix half = network(6, 6, 1, 1, 1, false, 2);
  half.symmetry = Symmetry::General;
  const std::string sentence = thrown(shareOf(half, 4));
  EXPECT_NE(sentence.find("in the lower triangle"), std::string::npos) << sentence;
  SparseMatrix zero = half;
  zero.triangular = true;
  for (Entry& e : zero.entries) {
    if (e.row == 4 || e.col == 4) e.value = 0.0;
  }
  EXPECT_EQ(kind(thrown(shareOf(zero, 4))), "6");

  // Hilbert's matrix: its inverse exists, no digit of it is known.
  SparseMatrix hilbert;
  hilbert.rows = hilbert.cols = 14;
  for (std::uint32_t i = 0; i < 14; ++i) {
    for (std::uint32_t j = 0; j < 14; ++j) hilbert.entries.push_back({i, j, 1.0 / (i + j + 1.0)});
  }
  EXPECT_NE(thrown(shareOf(hilbert, 1), mumps), "");
}

// A chain of unit weights that is held by h at one end, whose determinant is h: what is off is
// told, or refused.
TEST(DistributedFactor, TellsWhatIsHardlyDetermined) {
  for (const double h : {1e-1, 1e-9, 1e-13}) {
    SparseMatrix A;
    A.rows = A.cols = 30;
    A.symmetry = Symmetry::Symmetric;
    for (std::uint32_t k = 0; k < 30; ++k) {
      A.entries.push_back({k, k, k == 0 ? 1.0 + h : k == 29 ? 1.0 : 2.0});
      if (k > 0) A.entries.push_back({k, k - 1, -1.0});
    }
    const double held = std::log(A.entries[0].value - 1.0);
    for (const char* how : {"dense", "sparse", "mumps"}) {
      SCOPED_TRACE(how + (" " + std::to_string(h)));
      DistributedOptions options;
      options.engine = std::string(how) == "mumps" ? Engine::Mumps : Engine::Domains;
      if (std::string(how) == "sparse") options.interface = InterfaceMethod::Sparse;
      int answers = 0;
      try {
        const DistributedFactor f(MPI_COMM_WORLD, shareOf(A, 7), options);
        const std::function<void()> questions[] = {
            [&] {
              const double error = std::abs(f.logDeterminant() - held);
              EXPECT_LT(error, 1e-13 + f.report().lastErrorEstimate);
            },
            [&] { f.solve(std::vector<double>(30, 1.0)); },
            [&] {
              f.covariance({3, 4}, {3, 3});
            },
            [&] { f.variances(); }};
        for (const auto& question : questions) {
          try {
            question();
            ++answers;
            EXPECT_EQ(f.warnings().size(), h < 1e-2 ? 1u : 0u);
            EXPECT_EQ(f.report().lastErrorEstimate > 1e-6, h < 1e-2);
          } catch (const Error& e) {
            EXPECT_EQ(e.kind(), ErrorKind::Singular);
          }
        }
      } catch (const Error& e) {
        EXPECT_EQ(e.kind(), ErrorKind::Singular);
      }
      EXPECT_EQ(answers, h < 1e-12 ? 0 : 4);
    }
  }
  // The inverse has a zero where A has one, of which rounding leaves something.
  SparseMatrix A;
  A.rows = A.cols = 3;
  A.entries = {{0, 0, .1},  {0, 1, .3},  {1, 0, .3},  {1, 1, .9},
               {0, 2, 1.0}, {2, 0, 1.0}, {1, 2, 2.0}, {2, 1, 2.0}};
  const DistributedFactor f(MPI_COMM_WORLD, shareOf(A, 8));
  EXPECT_LT(std::abs(f.variances()[2]), 1e-15);
  EXPECT_EQ(f.report().uncertainVariances, 1);
  EXPECT_EQ(f.report().firstUncertain, 2);
  f.covariance({2}, {2});
  EXPECT_EQ(f.warnings().size(), 1u);
}

TEST(DistributedFactor, StopsOnRequestAndRefusesWrongArguments) {
  const SparseMatrix A = network(5, 4, 1, 1, 1, false, 1);
  DistributedOptions options;
  options.engine = Engine::Mumps;
  options.progress = [](const char* stage, double) { return std::string(stage) != "factorising"; };
  const std::string prefix = processes() == 1 ? "130 " : "130 rank 0: ";
  EXPECT_EQ(thrown(shareOf(A, 1), options), prefix + "stopped on request while factorising");
  options.progress = {};
  const DistributedFactor f(MPI_COMM_WORLD, shareOf(A, 1), options);
  EXPECT_THROW(f.solve({1.0}), Error);
  std::vector<double> b(A.rows, 1.0);
  if (rankOf() == processes() - 1) b[3] = std::numeric_limits<double>::infinity();
  EXPECT_THROW(f.solve(b), Error);
  EXPECT_THROW(f.covariance({0}, {20}), Error);
  EXPECT_THROW(f.covariance({0}, {}), Error);
  EXPECT_EQ(f.covariance({}, {}).size(), 0u);
  EXPECT_LT(f.solve(std::vector<double>(A.rows, 5e-324))[0], 1e-320);  // no digits to judge by
  expectSame(f.solve(std::vector<double>(A.rows, 1.0)),
             Factor(A).solve(std::vector<double>(A.rows, 1.0)), 1e-12);
}

TEST(DistributedFactor, KeepsItsFactorInFilesThatDoNotStay) {
  namespace fs = std::filesystem;
  const std::string run = std::to_string(::getppid());  // of mpirun, the same for all
  const fs::path folder = fs::temp_directory_path() / ("zeph-distributed-test-" + run);
  if (rankOf() == 0) fs::create_directories(folder);
  MPI_Barrier(MPI_COMM_WORLD);
  const SparseMatrix A = network(15, 15, 4, 1, 1, false, 1);
  DistributedOptions options;
  options.engine = Engine::Mumps;
  options.scratchFolder = folder.string();
  compareWithMemory(A, options, Engine::Mumps, Route::Cholesky, 1);
  {
    const SparseMatrix share = shareOf(A, 2);
    DistributedFactor f(MPI_COMM_WORLD, share, options);
    EXPECT_FALSE(fs::is_empty(folder));
    const std::vector<double> b(A.rows, 1.0), x = f.solve(b);
    const fs::path elsewhere = folder.string() + "-elsewhere";
    MPI_Barrier(MPI_COMM_WORLD);
    if (rankOf() == 0) fs::rename(folder, elsewhere);
    MPI_Barrier(MPI_COMM_WORLD);
    EXPECT_EQ(thrown([&] { f.refactorise(valuesOf(share)); }).substr(0, 24),
              "7 the scratch files of t");
    if (rankOf() == 0) fs::rename(elsewhere, folder);
    MPI_Barrier(MPI_COMM_WORLD);
    f.refactorise(valuesOf(share));
    expectSame(f.solve(b), x, 1e-13);
  }
  MPI_Barrier(MPI_COMM_WORLD);
  EXPECT_TRUE(fs::is_empty(folder));
  MPI_Barrier(MPI_COMM_WORLD);
  if (rankOf() == 0) fs::remove_all(folder);
}

}  // namespace
}  // namespace zeph
