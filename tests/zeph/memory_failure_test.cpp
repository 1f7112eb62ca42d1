// Every single allocation of an operation fails once, or from one on all of them, in the libraries
// below as well as in our own code.
#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <random>
#include <thread>
#include <utility>
#include <vector>

#include "kernels/team.h"
#include "solver/assembly/protosparse.h"
#include "tests/zeph/files/archives.h"
#include "tests/zeph/front_test.h"
#include "zeph/checks/matrix_check.h"
#include "zeph/factor/lower_factor.h"
#include "zeph/files/mat_export.h"
#include "zeph/general/cholmod_factor.h"
#include "zeph/general/solve.h"
#include "zeph/general/variances.h"
#include "zeph/matrix/multiply.h"
#include "zeph/zeph.h"
#include "zeph/zeph_c.h"

namespace {

// Allocations that succeed before the one that fails; negative: none fails.
std::atomic<long> remaining = -1;
// Whether those after it fail as well, until `remaining` is set again.
std::atomic<bool> lasting = false;
std::atomic<bool> injected = false;
// Bytes that there are, where that is not 0, and those in use since it was set.
std::atomic<long> budget = 0, used = 0, most = 0;

// Sanitizers allocate before anything that they look after may run.
bool started = false;
const struct Start {
  Start() { started = true; }
} start;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;  // they end the process where a thread of theirs starts without
#else
constexpr bool kSanitized = false;
#endif

void* counted(void* block) {
  if (budget == 0) return block;
  used += static_cast<long>(malloc_usable_size(block));
  if (used > most) most = used.load();
  return block;
}

void uncount(void* block) {
  if (budget != 0) used -= static_cast<long>(malloc_usable_size(block));
}

bool failsNow(std::size_t bytes) {
  if (budget != 0 && used + static_cast<long>(bytes) > budget) return injected = true;
  if (remaining < 0 || (kSanitized && gettid() != getpid())) return false;
  if (remaining > 0) return --remaining < 0;
  if (!lasting) remaining = -1;
  return injected = true;
}

}  // namespace

// This program's own, in front of those of the C library or of the sanitizer.
extern "C" {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ZEPH_UNFAILING(name) __interceptor_##name
#define ZEPH_UNCHECKED [[gnu::no_sanitize("address", "thread", "undefined")]]
#else
#define ZEPH_UNCHECKED
#define ZEPH_UNFAILING(name) __libc_##name
#endif
void* ZEPH_UNFAILING(malloc)(std::size_t);
void* ZEPH_UNFAILING(calloc)(std::size_t, std::size_t);
void* ZEPH_UNFAILING(realloc)(void*, std::size_t);

void ZEPH_UNFAILING(free)(void*);

ZEPH_UNCHECKED void* malloc(std::size_t bytes) {
  if (!started) return ZEPH_UNFAILING(malloc)(bytes);
  return failsNow(bytes) ? nullptr : counted(ZEPH_UNFAILING(malloc)(bytes));
}
ZEPH_UNCHECKED void* calloc(std::size_t count, std::size_t bytes) {
  if (!started) return ZEPH_UNFAILING(calloc)(count, bytes);
  return failsNow(count * bytes) ? nullptr : counted(ZEPH_UNFAILING(calloc)(count, bytes));
}
ZEPH_UNCHECKED void* realloc(void* block, std::size_t bytes) {
  if (!started) return ZEPH_UNFAILING(realloc)(block, bytes);
  if (failsNow(bytes)) return nullptr;
  uncount(block);
  return counted(ZEPH_UNFAILING(realloc)(block, bytes));
}
ZEPH_UNCHECKED void free(void* block) {
  if (started) uncount(block);
  ZEPH_UNFAILING(free)(block);
}
}

[[gnu::noinline]] void* operator new(std::size_t bytes) {
  void* block = std::malloc(bytes != 0 ? bytes : 1);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
[[gnu::noinline]] void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
  return std::malloc(bytes != 0 ? bytes : 1);
}
[[gnu::noinline]] void operator delete(void* block) noexcept {
  std::free(block);
}
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}

namespace {

using zeph::Route;

class MemoryFailure : public ::testing::Test {
 protected:
  ~MemoryFailure() override { remaining = -1; }

  // Repeats the attempt, a later allocation failing each time, until none is left to fail; gives
  // the number of failures.
  static long failEach(const std::function<void(bool& failed)>& attempt) {
    long failures = 0;
    for (bool injected = true; injected; ++failures) {
      bool failed = false;
      remaining = failures;
      attempt(failed);
      injected = remaining < 0;
      remaining = -1;
      if (failed && !injected) ADD_FAILURE() << "failed on its own";
    }
    return failures - 1;
  }
};

TEST_F(MemoryFailure, IsCalledSoOnEveryRoute) {
  constexpr std::uint32_t n = 150;
  zeph::SparseMatrix A;
  A.rows = A.cols = n;
  for (std::uint32_t i = 0; i < n; ++i) {
    A.entries.push_back({i, i, 5.0});
    for (const std::uint32_t j : {i + 1, i + 12}) {
      if (j < n) A.entries.push_back({i, j, -1.0}), A.entries.push_back({j, i, -1.0});
    }
  }
  auto B = zeph::DenseMatrix::zeros(n, 3);
  B(2, 1) = 1.0;
  using M = zeph::SparseMatrix;
  const std::function<void(M)> operations[] = {
      [](M m) { zeph::variances(std::move(m), Route::Cholesky); },
      [](M m) { zeph::variances(std::move(m), Route::Lu); },
      [](M m) { zeph::variances(std::move(m), Route::LuSolves); },
      [&](M m) { zeph::solve(std::move(m), B, Route::Cholesky); },
      [&](M m) { zeph::solve(std::move(m), B, Route::Lu); },
      [](M m) { zeph::cholmodFactor(std::move(m), true); }};
  for (const auto& operation : operations) {
    const long failures = failEach([&](bool& failed) {
      const long later = remaining.exchange(-1);
      M copy(A);
      remaining = later;
      try {
        operation(std::move(copy));
      } catch (const zeph::Error& e) {
        failed = true;
        EXPECT_EQ(e.kind(), zeph::ErrorKind::Memory) << &operation - operations << e.what();
      }
    });
    EXPECT_GT(failures, 30) << &operation - operations;
  }
}

TEST_F(MemoryFailure, LeavesAnAssembledMatrixAsItWas) {
  zeph_solver::ProtoSparse sparse(40, 40), dense(50, 50);
  for (std::size_t i = 0; i < 40; ++i) sparse.addElement(i, 3, 1.0), dense.addElement(3, i, 2.0);
  dense.makeDense();
  const std::function<void(zeph_solver::ProtoSparse&)> changes[] = {
      [&](auto& p) { p = p.isDense() ? sparse : dense; }, [](auto& p) { p.makeSparse(); }};
  for (const auto& change : changes) {
    for (const zeph_solver::ProtoSparse* start : {&sparse, &dense}) {
      failEach([&](bool& failed) {
        const long later = remaining.exchange(-1);
        zeph_solver::ProtoSparse p(*start);
        remaining = later;
        try {
          change(p);
        } catch (const std::bad_alloc&) {
          remaining = -1;
          failed = true;
          EXPECT_TRUE(p.rowCount == start->rowCount && p.isDense() == start->isDense());
          EXPECT_EQ(p.elements.size(), start->elements.size());
          EXPECT_EQ(p.nz(), 40u);
        }
      });
    }
  }
}

using Numbers = std::vector<double>;

bool sameBits(const Numbers& a, const Numbers& b) {
  return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(double)) == 0;
}

// Runs work of the test itself, in which no allocation fails.
template <class Work>
auto unfailing(const Work& work) {
  const long later = remaining.exchange(-1);
  auto result = work();
  remaining = later;
  return result;
}

Numbers numbers(double a, double b) {
  return unfailing([&] { return Numbers{a, b}; });
}

// What an operation gives into the numbers, and its exit status; -1 for a failure without a
// sentence and for exceptions of other kinds.
using Operation = std::function<int(Numbers&)>;

Operation throwing(std::function<Numbers()> work) {
  return [work = std::move(work)](Numbers& result) {
    try {
      result = work();
      return 0;
    } catch (const zeph::Error& e) {
      return e.what()[0] != 0 ? exitCode(e.kind()) : -1;
    } catch (...) {
      return -1;
    }
  };
}

int spoken(int status) {
  return status == 0 || zeph_last_error()[0] != 0 ? status : -1;
}

// Lets allocations of the operation fail, all from the n-th on or it alone, for every n with step 1
// and for random ones otherwise, until none is left to fail. After each failure the operation gives
// the same bits as before. Gives the number of failures.
long failEverywhere(const Operation& operation, std::size_t randomSteps) {
  Numbers expected, result;
  EXPECT_EQ(operation(expected), 0);
  std::mt19937 random(7);
  long failures = 0;
  for (const bool all : {false, true}) {
    long n = 0;
    do {
      lasting = all;
      injected = false;
      remaining = n;
      const int status = operation(result);
      remaining = -1;
      EXPECT_TRUE(status == 0 || (injected && status == 8)) << n << " gives status " << status;
      EXPECT_TRUE(status != 0 || sameBits(result, expected)) << n << " changes the result";
      if (status != 0) {
        ++failures;
        EXPECT_EQ(operation(result), 0) << n;
        EXPECT_TRUE(sameBits(result, expected)) << "after " << n;
      }
      n += 1 + static_cast<long>(randomSteps == 0 ? 0 : random() % randomSteps);
    } while (injected && !::testing::Test::HasFailure());
  }
  return failures;
}

// The stencil on a grid of m x m nodes, or on a cube, with `together` unknowns each.
zeph::SparseMatrix stencil(std::uint32_t m, bool cube, std::uint32_t together) {
  zeph::SparseMatrix A;
  const std::uint32_t nodes = m * m * (cube ? m : 1);
  A.rows = A.cols = nodes * together;
  A.symmetry = zeph::Symmetry::Symmetric;
  for (std::uint32_t i = 0; i < nodes; ++i) {
    for (std::uint32_t a = 0; a < together; ++a) {
      for (std::uint32_t b = 0; b < together; ++b) {
        const auto add = [&](std::uint32_t j, double value) {
          if (i != j || b <= a) A.entries.push_back({i * together + a, j * together + b, value});
        };
        add(i, a == b ? 7.0 * together : 0.5);
        if (i % m != 0) add(i - 1, -1.0);
        if (i / m % m != 0) add(i - m, -1.0);
        if (i >= m * m) add(i - m * m, -1.0);
      }
    }
  }
  return A;
}

struct Subject {
  zeph::SparseMatrix A;
  zeph::Options options;
  std::size_t randomSteps = 0;
};

std::vector<Subject> subjects() {
  std::vector<Subject> all(5);
  for (Subject& s : all) s.options.threads = 1;
  all[0].A = stencil(12, false, 1);
  all[1].A = stencil(4, false, 3);
  all[2].A = stencil(12, false, 1);
  all[2].options.ordering = zeph::Ordering::NestedDissection;
  all[3].A = stencil(7, false, 1);
  all[3].options.route = Route::Lu;
  all[4].A = stencil(12, true, 1);
  all[4].options.threads = 3;
  all[4].randomSteps = 60;
  return all;
}

TEST_F(MemoryFailure, LeavesFactorsAsTheyWereWithThreads) {
  for (const Subject& s : subjects()) {
    const auto n = static_cast<std::int64_t>(s.A.rows);
    const bool lu = s.options.route == Route::Lu;
    const std::vector<std::int64_t> some{0, n / 2, n - 1, 1}, others{1, n / 2, 0, 2};
    Numbers b(s.A.rows, 1.0), values;
    for (const zeph::Entry& e : s.A.entries) values.push_back(e.value);
    zeph::Factor f(s.A, s.options);
    const std::vector<std::function<Numbers()>> questions{
        [&] { return zeph::Factor(s.A, s.options).variances(); },
        [&] { return numbers(zeph::plan(s.A, s.options).operations, 0.0); },
        [&] { return f.variances(); },
        [&] { return f.variances(some); },
        [&] { return f.covariance(some, others); },
        [&] { return f.covarianceBlock(some).values; },
        [&] {
          if (lu) return f.solve(b);
          const zeph::SparseMatrix Z = f.selectedInverse();
          return unfailing([&] {
            Numbers z;
            for (const zeph::Entry& e : Z.entries) z.push_back(e.value);
            return z;
          });
        },
        [&] { return f.solve(b); },
        [&] { return lu ? f.solve(b) : f.sample(2, 7).values; },
        [&] { return numbers(f.traceOfInverseTimes(s.A), f.logDeterminant()); },
        [&] { return numbers(f.estimateCondition(), f.report().bytes); },
        [&] {
          f.refactorise(values);
          return f.variances();
        }};
    const Numbers before = f.variances();
    long failures = 0;
    for (const auto& question : questions) {
      failures += failEverywhere(throwing(question), s.randomSteps);
      ASSERT_FALSE(HasFailure()) << "question " << &question - questions.data() << " of subject "
                                 << n << ' ' << static_cast<int>(s.options.ordering);
    }
    EXPECT_TRUE(sameBits(f.variances(), before));
    EXPECT_GT(failures, s.randomSteps == 0 ? 500 : 20);
  }
}

// METIS ends the process where an allocation of its own fails, so that it may not come to that.
TEST_F(MemoryFailure, IsFoundBeforeALibraryEndsTheProcess) {
  const zeph::SparseMatrix A = stencil(45, false, 1);
  zeph::Options options;
  options.threads = 1;
  for (const auto ordering : {zeph::Ordering::NestedDissection, zeph::Ordering::MinimumDegree}) {
    for (const auto route : {Route::Cholesky, Route::Lu}) {
      options.ordering = ordering;
      options.route = route;
      Numbers expected, result;
      const Operation operation =
          throwing([&] { return zeph::Factor(A, options).solve(Numbers(A.rows, 1.0)); });
      EXPECT_EQ(operation(expected), 0);
      const auto within = [&](long bytes) {
        used = most = 0;
        injected = false;
        budget = bytes;
        const int status = operation(result);
        budget = 0;
        return status;
      };
      EXPECT_EQ(within(1L << 40), 0);
      const long whole = most;
      int failures = 0;
      for (int k = 1; k < 80; ++k) {
        const int status = within(whole * k / 80);
        EXPECT_TRUE(status == 0 || (injected && status == 8)) << status << " at " << k;
        EXPECT_TRUE(status != 0 || sameBits(result, expected)) << k;
        failures += status == 8;
      }
      EXPECT_GT(failures, 60);
      EXPECT_EQ(within(1L << 40), 0);
      EXPECT_LT(used - static_cast<long>(result.size() * sizeof(double)), 4096);
      EXPECT_TRUE(sameBits(result, expected));
    }
  }
}

TEST_F(MemoryFailure, StopsNoTeamOfThreadsAtWork) {
  korin::kernels::TaskForest forest{std::vector<int>(1000, 999), Numbers(1000, 0.0)};
  forest.parent[999] = -1;
  std::atomic<int> done = 0;
  korin::kernels::Team(3).run(forest, korin::kernels::Direction::ParentsFirst, [&](int task, int) {
    if (task == 999) lasting = true, remaining = 0;
    ++done;
  });
  remaining = -1;
  EXPECT_EQ(done, 1000);
}

TEST_F(MemoryFailure, ComesThroughTheCInterfaceAsAStatusAndASentence) {
  const std::int64_t starts[] = {0, 2, 4, 6, 7}, rows[] = {0, 1, 1, 2, 2, 3, 3};
  const double values[] = {4.0, -1.0, 4.0, -1.0, 4.0, -1.0, 4.0};
  zeph_factor* f = nullptr;
  ASSERT_EQ(zeph_factor_create(&f, 4, starts, rows, values, 1, nullptr), 0);
  const Numbers b(4, 1.0);
  Numbers room(4);
  int status = 0;
  std::thread([&] {  // whose first failure it is
    lasting = true;
    remaining = 0;
    status = spoken(zeph_factor_variances(f, room.data()));
    remaining = -1;
  })
      .join();
  EXPECT_EQ(status, kSanitized ? 0 : 8);
  const std::vector<Operation> calls{
      [&](Numbers&) {
        zeph_factor* g = nullptr;
        const int status = zeph_factor_create(&g, 4, starts, rows, values, 1, nullptr);
        const bool right = (status == 0) == (g != nullptr);
        zeph_factor_free(g);
        return right ? spoken(status) : -1;
      },
      [&](Numbers&) { return spoken(zeph_factor_refactorise(f, values)); },
      [&](Numbers& x) { return spoken(zeph_factor_solve(f, 1, b.data(), x.data())); },
      [&](Numbers& x) { return spoken(zeph_factor_variances(f, x.data())); },
      [&](Numbers& x) {
        std::int64_t columns[5], indices[16];
        return spoken(zeph_factor_selected_inverse(f, columns, indices, x.data()));
      },
      [&](Numbers& x) { return spoken(zeph_factor_covariance(f, 4, rows, rows, x.data())); },
      [&](Numbers& x) {
        int sign = 0;
        return spoken(zeph_factor_log_determinant(f, x.data(), &sign));
      },
      [&](Numbers&) {
        zeph_report report;
        return spoken(zeph_factor_report(f, &report));
      }};
  for (const Operation& call : calls) {
    failEverywhere(
        [&](Numbers& x) {
          unfailing([&] { return x.assign(16, 0.0), 0; });
          return call(x);
        },
        0);
    ASSERT_FALSE(HasFailure()) << "call " << &call - calls.data();
  }
  zeph_factor_free(f);
}

class MemoryFailureInFiles : public FrontTest {};

Numbers numbersOf(const zeph::SparseMatrix& m) {
  return unfailing([&] {
    Numbers all{static_cast<double>(m.rows), static_cast<double>(m.cols)};
    for (const zeph::Entry& e : m.entries) {
      all.insert(all.end(), {static_cast<double>(e.row), static_cast<double>(e.col), e.value});
    }
    return all;
  });
}

TEST_F(MemoryFailureInFiles, ReadersWritersAndJobsSaySo) {
  const zeph::SparseMatrix A = stencil(6, false, 1);
  zeph::SparseMatrix J = A;
  J.symmetry = zeph::Symmetry::General;
  const std::string mtx = path("A.mtx"), out = path("out.mtx");
  zeph::writeSparse(mtx, A);
  zeph::writeSparse(path("A.csv"), A);
  write("A.mtx.gz", gzipped(read(mtx)));
  write("A.npz", sparseArchive(A, "csc"));
  write("A.rb",
        "title\n 5 1 1 3\nrsa            2             2             3             0\n"
        "(3I2)           (3I1)           (1P3E9.2)\n 1 3 4\n122\n 4.00E+00-1.00E+00 3.00D+00\n");
  const std::string list = write("b.txt", "1\n-2\n5\n"), packed = path("A.mtx.gz");
  const std::string pose = write("p.g2o",
                                 "EDGE_SE2 0 1 1 0 0 4 0 0 4 0 1\nEDGE_SE2 1 2 1 0 0 4 0 0 4 0 1\n"
                                 "EDGE_SE2 0 2 2 .1 0 4 0 0 4 0 1\n");
  std::vector<std::pair<std::string, std::function<Numbers()>>> questions;
  for (const char* name : {"A.mtx", "A.csv", "A.mtx.gz", "A.npz", "A.rb"}) {
    questions.emplace_back(name, [file = path(name)] { return numbersOf(zeph::readSparse(file)); });
  }
  const zeph::DenseMatrix B = zeph::DenseMatrix::zeros(A.rows, 2);
  const std::vector<double> y(A.rows, 1.0);
  const auto poses = [&] {
    zeph::PoseGraphResult result = zeph::optimise(zeph::readPoseGraph(pose));
    return std::make_pair(result.covariances(), std::move(result));
  };
  const zeph::AdjustmentReportOptions about;
  const zeph::Adjustment adjustment = zeph::adjust(J, y, {});
  using Work = std::function<Numbers()>;
  const std::pair<const char*, Work> others[] = {
      {"dense", [&] { return zeph::readDense(list).values; }},
      {"archive as dense", [&] { return zeph::readDense(packed).values; }},
      {"poses", [&] { return std::move(poses().first.back().values); }},
      {"adjust", [&] { return zeph::adjust(J, y, {}).sigma; }},
      {"page", [&] { return zeph::writeAdjustmentReport(out, adjustment, about), numbers(0, 0); }},
      {"normal equations", [&] { return numbersOf(zeph::normalEquations(J, y)); }},
      {"lower factor", [&] { return numbersOf(zeph::lowerFactor(A, {}).L); }},
      {"check", [&] { return numbers(zeph::checkMatrix(A).fit(), 0); }},
      {"product", [&] { return zeph::multiply(unfailing([&] { return A; }), B).values; }},
      {"sparse file",
       [&] { return zeph::writeSparse(out, unfailing([&] { return A; })), numbers(0, 0); }},
      {"dense file", [&] { return zeph::writeDense(out, B), numbers(0, 0); }},
      {"export",
       [&] { return zeph::exportMat(out, unfailing([&] { return A; }), "A"), numbers(0, 0); }},
  };
  questions.insert(questions.end(), std::begin(others), std::end(others));
  const std::size_t files = fileCount();
  for (const auto& [name, question] : questions) {
    EXPECT_GT(failEverywhere(throwing(question), name[0] == 'A' ? 0 : 30), 0);
    std::filesystem::remove(out);
    EXPECT_EQ(fileCount(), files);
    EXPECT_FALSE(HasFailure()) << name;
    if (HasFailure()) break;
  }
}

}  // namespace
