// Every single allocation of an operation fails once, or from one on all of them, in the libraries
// below as well as in our own code.
#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <thread>

#include "kernels/team.h"
#include "solver/assembly/protosparse.h"
#include "tests/zeph/files/archives.h"
#include "tests/zeph/front_test.h"
#include "tests/zeph/matrices.h"
#include "zeph/checks/matrix_check.h"
#include "zeph/factor/lower_factor.h"
#include "zeph/factor/lu_backend.h"
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
  if (kSanitized && gettid() != getpid()) return false;
  long left = remaining;
  while (left > 0 && !remaining.compare_exchange_weak(left, left - 1)) {  // one of several threads
  }
  if (left != 0) return false;
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

namespace zeph {
namespace {

class MemoryFailure : public FrontTest {
 protected:
  ~MemoryFailure() override { remaining = -1; }
};

using Numbers = std::vector<double>;

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
    } catch (const Error& e) {
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

TEST_F(MemoryFailure, LeavesAnAssembledMatrixAsItWas) {
  using zeph_solver::ProtoSparse;
  ProtoSparse sparse(40, 40), dense(50, 50);
  for (std::size_t i = 0; i < 40; ++i) sparse.addElement(i, 3, 1.0), dense.addElement(3, i, 2.0);
  dense.makeDense();
  const std::function<void(ProtoSparse&)> changes[] = {
      [&](auto& p) { p = p.isDense() ? sparse : dense; }, [](auto& p) { p.makeSparse(); }};
  for (const auto& change : changes) {
    for (const ProtoSparse* start : {&sparse, &dense}) {
      const Operation changed = [&](Numbers& result) {
        ProtoSparse p = unfailing([&] { return *start; });
        try {
          change(p);
        } catch (const std::bad_alloc&) {
          const bool same = p.rowCount == start->rowCount && p.isDense() == start->isDense() &&
                            p.elements.size() == start->elements.size() && p.nz() == 40;
          return same ? 8 : -1;
        }
        result = numbers(static_cast<double>(p.nz()), p.isDense());
        return 0;
      };
      failEverywhere(changed, 0);
    }
  }
}

struct Subject {
  SparseMatrix A;
  Options options;
  std::size_t randomSteps = 0;
};

std::vector<Subject> subjects() {
  std::vector<Subject> all(5);
  for (Subject& s : all) s.options.threads = 1;
  all[0].A = stencil(12, false);
  all[1].A = stencil(4, false, 3);
  all[2].A = stencil(12, false);
  all[2].options.ordering = Ordering::NestedDissection;
  all[3].A = stencil(7, false);
  all[3].options.route = Route::Lu;
  all[4].A = stencil(12, true);
  all[4].options.threads = 3;
  all[4].randomSteps = 60;
  return all;
}

TEST_F(MemoryFailure, LeavesFactorsAsTheyWereWithThreads) {
  for (const Subject& s : subjects()) {
    const auto n = static_cast<std::int64_t>(s.A.rows);
    const bool lu = s.options.route == Route::Lu;
    const std::vector<std::int64_t> some{0, n / 2, n - 1, 1}, others{1, n / 2, 0, 2};
    const Numbers b(s.A.rows, 1.0), values = valuesOf(s.A);
    Factor f(s.A, s.options);
    const std::vector<std::function<Numbers()>> questions{
        [&] { return Factor(s.A, s.options).variances(); },
        [&] { return numbers(plan(s.A, s.options).operations, 0.0); },
        [&] { return f.variances(); },
        [&] { return f.variances(some); },
        [&] { return f.covariance(some, others); },
        [&] { return f.covarianceBlock(some).values; },
        [&] {
          if (lu) return f.solve(b);
          const SparseMatrix Z = f.selectedInverse();
          return unfailing([&] { return valuesOf(Z); });
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
  const SparseMatrix A = stencil(45, false);
  Options options;
  options.threads = 1;
  for (const auto ordering : {Ordering::NestedDissection, Ordering::MinimumDegree}) {
    for (const auto route : {Route::Cholesky, Route::Lu}) {
      options.ordering = ordering;
      options.route = route;
      Numbers expected, result;
      const Operation operation =
          throwing([&] { return Factor(A, options).solve(Numbers(A.rows, 1.0)); });
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

// What a call takes beside the factor is asked for beforehand; where the limit leaves less than it
// would like, fewer columns at once give the same bits.
TEST_F(MemoryFailure, IsPredictedForEveryQuestionAndTakenInSmallerParts) {
  const SparseMatrix A = stencil(40, false);
  const std::size_t n = A.rows, columns = 40, some = 50;
  Numbers b(n * columns);
  for (double& value : b) value = uniform();
  std::vector<std::int64_t> rows(n), cols(n), starts(n + 1), rowsOfInverse;
  std::iota(rows.begin(), rows.end(), 0);
  for (std::size_t k = 0; k < n; ++k) cols[k] = static_cast<std::int64_t>(7 * k % some);
  const std::vector<std::int64_t> block(rows.begin(), rows.begin() + some);
  const struct {
    bool byLu;
    std::size_t results;  // numbers that are returned
    std::function<void(const Factor&, Numbers&)> ask;
  } questions[] = {
      {true, 0, [&](const Factor& f, Numbers& x) { f.solve(b.data(), x.data(), columns); }},
      {true, 0,
       [&](const Factor& f, Numbers& z) { f.covariance(rows.data(), cols.data(), n, z.data()); }},
      {true, some * some,
       [&](const Factor& f, Numbers& z) { z = f.covarianceBlock(block).values; }},
      {true, 0, [&](const Factor& f, Numbers& z) { z[0] = f.traceOfInverseTimes(A); }},
      {true, 0, [&](const Factor& f, Numbers& z) { f.variances(z.data(), n); }},
      {false, columns * n, [&](const Factor& f, Numbers& x) { x = f.sample(columns, 7).values; }},
      {false, 0, [&](const Factor& f, Numbers& z) {
         f.selectedInverse(starts.data(), rowsOfInverse.data(), z.data());
       }}};
  for (const Route route : {Route::Cholesky, Route::Lu}) {
    if (route == Route::Lu && !hasLuRoute()) continue;
    Options o;
    o.threads = 2, o.route = route;
    const Factor unlimited(A, o);
    const double held = unlimited.report().bytes;
    if (route == Route::Lu) {
      const LuPlan p = *planLu(A);
      used = most = 0;
      budget = 1L << 40;
      const auto entries = static_cast<double>(Factor(A, o).report().entriesOfL);
      budget = 0;
      EXPECT_GE(static_cast<double>(most), p.leastBytes);
      EXPECT_LE(static_cast<double>(most), p.mostBytes);
      EXPECT_NEAR(static_cast<double>(most), p.bytesOnDiagonal, 0.4 * p.bytesOnDiagonal);
      EXPECT_NEAR(entries, p.entriesOnDiagonal, 0.01 * entries);
      EXPECT_LE(entries, p.mostEntries);
    } else {
      unlimited.selectedInverse(starts.data(), nullptr, nullptr);
      rowsOfInverse.resize(static_cast<std::size_t>(starts.back()));
    }
    for (const auto& q : questions) {
      if (route == Route::Lu && !q.byLu) continue;
      const std::string name =
          "question " + std::to_string(&q - questions) + " to " + zeph::name(route);
      Numbers expected(b.size() + rowsOfInverse.size()), found = expected;
      q.ask(unlimited, expected);
      double bytes = 0.0;
      const auto refused = [&](double limit) {
        o.memoryLimit = limit;
        std::string said = errorOf([&] { Factor(A, o); });
        if (said == "no error") {
          const Factor f(A, o);
          used = most = 0;
          budget = 1L << 40;
          said = errorOf([&] { q.ask(f, found); });
          budget = 0;
          bytes = static_cast<double>(most) - 8.0 * static_cast<double>(q.results);
        }
        EXPECT_TRUE(said == "no error" || said.find("more than the limit") != said.npos) << said;
        return said != "no error";
      };
      double least = 10.0 * held;
      for (double below = held; least > 1.01 * below;) {
        const double limit = std::sqrt(least * below);
        (refused(limit) ? below : least) = limit;
      }
      EXPECT_FALSE(refused(least)) << name;
      EXPECT_TRUE(sameBits(found, expected)) << name;
      EXPECT_LE(held + bytes, 1.02 * least) << name;
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

Numbers numbersOf(const SparseMatrix& m) {
  return unfailing([&] {
    Numbers all{static_cast<double>(m.rows), static_cast<double>(m.cols)};
    for (const Entry& e : m.entries) {
      all.insert(all.end(), {static_cast<double>(e.row), static_cast<double>(e.col), e.value});
    }
    return all;
  });
}

TEST_F(MemoryFailure, IsSaidByReadersWritersJobsAndTheGeneralRoutes) {
  const SparseMatrix A = stencil(6, false);
  SparseMatrix J = A;
  J.symmetry = Symmetry::General;
  const std::string mtx = path("A.mtx"), out = path("out.mtx");
  writeSparse(mtx, A);
  writeSparse(path("A.csv"), A);
  write("A.mtx.gz", gzipped(read(mtx)));
  write("A.npz", sparseArchive(A, "csc"));
  write("A.rb",
        "title\n 5 1 1 3\nrsa            2             2             3             0\n"
        "(3I2)           (3I1)           (1P3E9.2)\n 1 3 4\n122\n 4.00E+00-1.00E+00 3.00D+00\n");
  const std::string list = write("b.txt", "1\n-2\n5\n"), packed = path("A.mtx.gz");
  const std::string pose = write("p.g2o",
                                 "EDGE_SE2 0 1 1 0 0 4 0 0 4 0 1\nEDGE_SE2 1 2 1 0 0 4 0 0 4 0 1\n"
                                 "EDGE_SE2 0 2 2 .1 0 4 0 0 4 0 1\n");
  auto B = DenseMatrix::zeros(A.rows, 2);
  B(2, 1) = 1.0;
  const std::vector<double> y(A.rows, 1.0);
  const auto fresh = [&] { return unfailing([&] { return A; }); };
  const std::string inputs[] = {mtx, path("A.csv"), packed, path("A.npz"), path("A.rb")};
  const auto readBack = [&](int k) { return numbersOf(readSparse(inputs[k])); };
  const auto variancesBy = [&](Route route) {
    const Variances v = zeph::variances(fresh(), route);
    return unfailing([&] { return Numbers(v.diagonal.data, v.diagonal.data + v.diagonal.size); });
  };
  const auto poses = [&] {
    PoseGraphResult result = optimise(readPoseGraph(pose));
    return std::make_pair(result.covariances(), std::move(result));
  };
  const AdjustmentReportOptions about;
  const Adjustment adjustment = adjust(J, y, {});
  const struct {
    const char* name;
    std::size_t randomSteps;
    std::function<Numbers()> work;
  } questions[] = {
      {"A.mtx", 0, [&] { return readBack(0); }},
      {"A.csv", 0, [&] { return readBack(1); }},
      {"A.mtx.gz", 0, [&] { return readBack(2); }},
      {"A.npz", 0, [&] { return readBack(3); }},
      {"A.rb", 0, [&] { return readBack(4); }},
      {"Cholesky", 0, [&] { return variancesBy(Route::Cholesky); }},
      {"LU", 0, [&] { return variancesBy(Route::Lu); }},
      {"LU by solves", 0, [&] { return variancesBy(Route::LuSolves); }},
      {"solution", 0, [&] { return solve(fresh(), B, Route::Cholesky).X.values; }},
      {"solution by LU", 0, [&] { return solve(fresh(), B, Route::Lu).X.values; }},
      {"factor", 0, [&] { return numbersOf(cholmodFactor(fresh(), true).L); }},
      {"dense", 30, [&] { return readDense(list).values; }},
      {"archive as dense", 30, [&] { return readDense(packed).values; }},
      {"poses", 30, [&] { return std::move(poses().first.back().values); }},
      {"adjust", 30, [&] { return adjust(J, y, {}).sigma; }},
      {"page", 30, [&] { return writeAdjustmentReport(out, adjustment, about), numbers(0, 0); }},
      {"normal equations", 30, [&] { return numbersOf(normalEquations(J, y)); }},
      {"lower factor", 30, [&] { return numbersOf(lowerFactor(A, {}).L); }},
      {"check", 30, [&] { return numbers(checkMatrix(A).fit(), 0); }},
      {"product", 30, [&] { return multiply(fresh(), B).values; }},
      {"sparse file", 30, [&] { return writeSparse(out, fresh()), numbers(0, 0); }},
      {"dense file", 30, [&] { return writeDense(out, B), numbers(0, 0); }},
      {"export", 30, [&] { return exportMat(out, fresh(), "A"), numbers(0, 0); }},
  };
  const std::size_t files = fileCount();
  for (const auto& [name, randomSteps, work] : questions) {
    EXPECT_GT(failEverywhere(throwing(work), randomSteps), 0);
    std::filesystem::remove(out);
    EXPECT_EQ(fileCount(), files);
    ASSERT_FALSE(HasFailure()) << name;
  }
}

}  // namespace
}  // namespace zeph
