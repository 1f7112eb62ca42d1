#include <gtest/gtest.h>

#include <random>
#include <thread>
#include <vector>

#include "math/containers/sparsematrix.h"
#include "solver/ldl_minimal_set.h"
#include "solver/partial_inverse_lu.h"
#include "solver/selected_inverse.h"
#include "solver/solver.h"

// CHOLMOD's own threads are out of the thread sanitizer's sight, how they wait for one another too.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options() {
  return "ignore_noninstrumented_modules=1";
}

namespace zeph_solver {
namespace {

// A bit of everything, on objects of its own; every number that comes out.
std::vector<double> work(std::size_t n) {
  std::mt19937 random(5);
  ProtoSparse A(n, n), set;
  korin::SparseMatrix rows(n, n, true, true, nullptr), square(n, n, true, false, nullptr);
  korin::SparseVector line(n, nullptr);
  for (std::size_t i = 0; i < 20 * n; ++i) {
    const std::size_t r = random() % n, c = i % n;
    A.addElement(r, c, -0.01), A.addElement(c, r, -0.01), A.addElement(c, c, 1.0);
    rows.setValue(r, c, 1.0), line[r] = 2.0;
  }
  A.compress();
  square.setMatMulMat(rows, rows);
  partialInverseLDLMinimalSet(A, set);
  std::vector<double> results = {static_cast<double>(set.nz()), line.sumVal()};
  ZtVector x(n), b(n);
  for (std::size_t i = 0; i < n; ++i) b.data[i] = square.getValue(i, 3);
  const auto keep = [&] { results.insert(results.end(), x.data, x.data + n); };
  for (const bool cholesky : {true, false}) {
    Solver solver(3);
    solver.solveGeneric(A, x, b, cholesky, nullptr, true), keep();
    partialInverse(A, cholesky, x), keep();
  }
  partialInverseLUSelected(A, x), keep();
  return results;
}

TEST(TwoThreads, WorkOnObjectsOfTheirOwn) {
  std::vector<double> results[2];
  std::thread other([&] { results[1] = work(150); });
  results[0] = work(150);
  other.join();
  EXPECT_EQ(results[0], results[1]);
  EXPECT_EQ(results[0], work(150));
}

}  // namespace
}  // namespace zeph_solver
