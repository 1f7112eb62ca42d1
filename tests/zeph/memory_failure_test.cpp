// Every single allocation of an operation fails once, in SuiteSparse and in our own code.
#include <SuiteSparse_config.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <new>
#include <utility>

#include "solver/assembly/protosparse.h"
#include "zeph/general/cholmod_factor.h"
#include "zeph/general/solve.h"
#include "zeph/general/variances.h"

namespace {

// Allocations that succeed before the one that fails; negative: none fails.
std::atomic<long> remaining = -1;

bool failsNow() {
  return remaining >= 0 && remaining-- == 0;
}

void* failingMalloc(std::size_t bytes) {
  return failsNow() ? nullptr : std::malloc(bytes);
}
void* failingCalloc(std::size_t count, std::size_t bytes) {
  return failsNow() ? nullptr : std::calloc(count, bytes);
}
void* failingRealloc(void* block, std::size_t bytes) {
  return failsNow() ? nullptr : std::realloc(block, bytes);
}

}  // namespace

void* operator new(std::size_t bytes) {
  void* block = failingMalloc(bytes != 0 ? bytes : 1);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
  return failingMalloc(bytes != 0 ? bytes : 1);
}
void operator delete(void* block) noexcept {
  std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}

namespace {

using zeph::Route;

class MemoryFailure : public ::testing::Test {
 protected:
  MemoryFailure() {
#if SUITESPARSE_MAIN_VERSION >= 7
    SuiteSparse_config_malloc_func_set(failingMalloc);
    SuiteSparse_config_calloc_func_set(failingCalloc);
    SuiteSparse_config_realloc_func_set(failingRealloc);
#else
    SuiteSparse_config.malloc_func = failingMalloc;
    SuiteSparse_config.calloc_func = failingCalloc;
    SuiteSparse_config.realloc_func = failingRealloc;
#endif
  }
  ~MemoryFailure() override {
    remaining = -1;
  }

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

}  // namespace
