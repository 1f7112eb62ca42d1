// Dense kernels on one thread. The second argument, where there is one, is the processor level:
// 0 baseline, 1 AVX2, 2 AVX-512; levels that this machine lacks are skipped.
#include <benchmark/benchmark.h>

#include <cstddef>
#include <random>
#include <vector>

#include "kernels/processor.h"
#include "kernels/products/fused_product.h"
#include "math/dense/korin_matrix.h"
#include "math/dense/korin_vector.h"

namespace {

using korin::Matrix;
using namespace korin::kernels;

Matrix randomMatrix(ZtSize rows, ZtSize cols) {
  std::mt19937 random(1);
  std::uniform_real_distribution<> uniform(-1.0, 1.0);
  Matrix m(rows, cols);
  for (ZtSize i = 0; i < rows * cols; ++i) m.data[i] = uniform(random);
  return m;
}

// Forces a level for one benchmark; false when the machine lacks it.
class Level {
 public:
  Level(benchmark::State& state, std::int64_t level) : before_(processorLevel()) {
    const auto wanted = static_cast<ProcessorLevel>(level);
    if (forceProcessorLevel(wanted) != wanted) state.SkipWithError("not on this machine");
  }
  ~Level() { forceProcessorLevel(before_); }
  Level(const Level&) = delete;
  Level& operator=(const Level&) = delete;

 private:
  ProcessorLevel before_;
};

void reportRate(benchmark::State& state, double operations) {
  state.counters["FLOP/s"] = benchmark::Counter(
      operations, benchmark::Counter::kIsIterationInvariantRate, benchmark::Counter::kIs1000);
}

// What a user would write: the yardstick for small orders.
void BM_PlainLoop(benchmark::State& state) {
  const auto n = static_cast<ZtSize>(state.range(0));
  const Matrix a = randomMatrix(n, n), b = randomMatrix(n, n);
  Matrix c(n, n);
  for (auto _ : state) {
    for (ZtSize i = 0; i < n; ++i) {
      for (ZtSize j = 0; j < n; ++j) c(i, j) = 0.0;
      for (ZtSize p = 0; p < n; ++p) {
        for (ZtSize j = 0; j < n; ++j) c(i, j) += a(i, p) * b(p, j);
      }
    }
    benchmark::DoNotOptimize(c.data);
    benchmark::ClobberMemory();
  }
  reportRate(state, 2.0 * static_cast<double>(n * n * n));
}
BENCHMARK(BM_PlainLoop)->Arg(2)->Arg(4)->Arg(8)->Arg(12)->Arg(16)->Arg(64);

void BM_PlainTransposedLoop(benchmark::State& state) {
  const auto n = static_cast<ZtSize>(state.range(0));
  const Matrix a = randomMatrix(n, n), b = randomMatrix(n, n);
  Matrix c(n, n);
  for (auto _ : state) {
    for (ZtSize i = 0; i < n; ++i) {
      for (ZtSize j = 0; j < n; ++j) {
        double sum = 0.0;
        for (ZtSize p = 0; p < n; ++p) sum += a(i, p) * b(j, p);
        c(i, j) = sum;
      }
    }
    benchmark::ClobberMemory();
  }
  reportRate(state, 2.0 * static_cast<double>(n * n * n));
}
BENCHMARK(BM_PlainTransposedLoop)->Arg(2)->Arg(4)->Arg(8)->Arg(12)->Arg(16)->Arg(64);

template <void (Matrix::*kProduct)(const ZtMatrix&, const ZtMatrix&)>
void BM_Product(benchmark::State& state) {
  const Level level(state, state.range(1));
  const auto n = static_cast<ZtSize>(state.range(0));
  const Matrix a = randomMatrix(n, n), b = randomMatrix(n, n);
  Matrix c(n, n);
  for (auto _ : state) {
    (c.*kProduct)(a, b);
    benchmark::ClobberMemory();
  }
  reportRate(state, 2.0 * static_cast<double>(n * n * n));
}
const std::vector<std::int64_t> kOrders = {2, 4, 8, 12, 16, 64, 100, 128, 200, 256, 258, 1000};
BENCHMARK_TEMPLATE(BM_Product, &Matrix::setMatMulMat)->ArgsProduct({kOrders, {0, 1, 2}});
BENCHMARK_TEMPLATE(BM_Product, &Matrix::setMatMulTransMat)->ArgsProduct({kOrders, {0, 1, 2}});

// Panels of sparse factors: C (m x n) -= A (m x k) * B (k x n), all column-major.
void BM_FusedPanel(benchmark::State& state) {
  const auto m = static_cast<ZtSize>(state.range(0));
  const auto n = static_cast<ZtSize>(state.range(1));
  const auto k = static_cast<ZtSize>(state.range(2));
  const Matrix a = randomMatrix(k, m), b = randomMatrix(n, k);
  Matrix c = randomMatrix(n, m);
  const auto rows = static_cast<std::ptrdiff_t>(m), inner = static_cast<std::ptrdiff_t>(k);
  for (auto _ : state) {
    fusedProduct(m, n, k, -1.0, {a.data, 1, rows}, {b.data, 1, inner}, 1.0, {c.data, 1, rows});
    benchmark::ClobberMemory();
  }
  reportRate(state, 2.0 * static_cast<double>(m * n * k));
}
BENCHMARK(BM_FusedPanel)->ArgsProduct({{50, 600, 3000}, {1, 4, 16, 64}, {4, 32, 192}});

void BM_Transpose(benchmark::State& state) {
  const auto n = static_cast<ZtSize>(state.range(0));
  const Matrix a = randomMatrix(n, n);
  Matrix t(n, n);
  for (auto _ : state) {
    t.setTransposeOf(a);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(16 * n * n));
}
BENCHMARK(BM_Transpose)->Arg(16)->Arg(100)->Arg(1000)->Arg(1024);

Matrix positiveDefinite(ZtSize n) {
  Matrix a = randomMatrix(n, n);
  for (ZtSize i = 0; i < n; ++i) a(i, i) += 2.0 * static_cast<double>(n);
  return a;
}

void BM_Cholesky(benchmark::State& state) {
  const auto n = static_cast<ZtSize>(state.range(0));
  const Matrix a = positiveDefinite(n);
  Matrix l(n, n);
  for (auto _ : state) {
    l.setSub_mat(a, 0, 0);
    benchmark::DoNotOptimize(l.setCholesky(false));
  }
  const auto order = static_cast<double>(n);
  reportRate(state, order * order * order / 3.0);
}
BENCHMARK(BM_Cholesky)->Arg(8)->Arg(30)->Arg(100)->Arg(300)->Arg(1000);

template <void (korin::Vector::*kSolve)(const ZtMatrix&, const ZtVector&)>
void BM_TriangularSolve(benchmark::State& state) {
  const auto n = static_cast<ZtSize>(state.range(0));
  const Matrix a = positiveDefinite(n);
  const korin::Vector b = a.col(0);
  korin::Vector x(b);
  for (auto _ : state) {
    (x.*kSolve)(a, b);
    benchmark::ClobberMemory();
  }
  reportRate(state, static_cast<double>(n * n));
}
BENCHMARK_TEMPLATE(BM_TriangularSolve, &korin::Vector::setLeftDivideTriL)->Arg(30)->Arg(300);
BENCHMARK_TEMPLATE(BM_TriangularSolve, &korin::Vector::setLeftDivideTriU)->Arg(30)->Arg(300);

}  // namespace
