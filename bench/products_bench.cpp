// ProtoSparse::multiplyDense beside the compressed product of Eigen with row-major operands: a
// million triplets, a hundred thousand rows, 1, 8 and 32 columns, for lists in three orders.

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "solver/assembly/protosparse.h"

#if __has_include(<eigen3/Eigen/Sparse>)
#include <eigen3/Eigen/Sparse>
#define ZEPH_BENCH_EIGEN
#endif

namespace {

using zeph_solver::MatrixElement;
using zeph_solver::ProtoSparse;

constexpr int kRows = 100000;
constexpr int kTriplets = 1000000;
enum ListOrder { ColumnMajor, RowMajor, Unordered };

ProtoSparse makeMatrix(int order) {
  std::mt19937 random(1);
  ProtoSparse a(kRows, kRows);
  for (int i = 0; i < kTriplets; ++i) {
    a.addElement(random() % kRows, random() % kRows, static_cast<double>(random()) * 0x1p-31 - 1.0);
  }
  if (order != Unordered) a.sortElements();
  if (order == RowMajor) a.transposeSelf();
  return a;
}

void multiplyDense(benchmark::State& state) {
  const auto cols = static_cast<std::size_t>(state.range(0));
  ProtoSparse a = makeMatrix(static_cast<int>(state.range(1)));
  korin::Matrix b(kRows, cols), c(kRows, cols);
  for (std::size_t i = 0; i < kRows * cols; ++i) b.data[i] = static_cast<double>(i % 1000);
  for (auto _ : state) {
    a.multiplyDense(b, c);
    benchmark::DoNotOptimize(c.data);
  }
  state.SetItemsProcessed(state.iterations() * kTriplets);
}

BENCHMARK(multiplyDense)
    ->ArgNames({"cols", "order"})
    ->ArgsProduct({{1, 8, 32}, {ColumnMajor, RowMajor, Unordered}})
    ->Unit(benchmark::kMillisecond);

#ifdef ZEPH_BENCH_EIGEN
template <int kStorage>
void eigenProduct(benchmark::State& state) {
  using Sparse = Eigen::SparseMatrix<double, kStorage>;
  const auto cols = static_cast<Eigen::Index>(state.range(0));
  std::vector<Eigen::Triplet<double>> triplets;
  for (const MatrixElement& e : makeMatrix(ColumnMajor).elements) {
    triplets.emplace_back(static_cast<int>(e.row), static_cast<int>(e.col), e.value);
  }
  Sparse a(kRows, kRows);
  a.setFromTriplets(triplets.begin(), triplets.end());
  const auto run = [&](const auto& b, auto c) {
    for (auto _ : state) {
      c.noalias() = a * b;
      benchmark::DoNotOptimize(c.data());
    }
  };
  using Dense = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
  if (cols == 1) {
    run(Eigen::VectorXd(Eigen::VectorXd::Random(kRows)), Eigen::VectorXd(kRows));
  } else {
    run(Dense(Dense::Random(kRows, cols)), Dense(kRows, cols));
  }
  state.SetItemsProcessed(state.iterations() * kTriplets);
}

void eigenRowMajor(benchmark::State& state) {
  eigenProduct<Eigen::RowMajor>(state);
}

void eigenColMajor(benchmark::State& state) {
  eigenProduct<Eigen::ColMajor>(state);
}

BENCHMARK(eigenRowMajor)->ArgName("cols")->Arg(1)->Arg(8)->Arg(32)->Unit(benchmark::kMillisecond);
BENCHMARK(eigenColMajor)->ArgName("cols")->Arg(1)->Arg(8)->Arg(32)->Unit(benchmark::kMillisecond);
#endif

}  // namespace
