// Diagonal of the inverse of a general matrix: one pass over the LU factors against a solve per
// unit vector, on convection-diffusion operators (unsymmetric five-point stars) of side^2 unknowns.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <string>

#include "bench/peers/matrices.h"
#include "solver/partial_inverse_lu.h"
#include "solver/selected_inverse.h"

namespace {

using zeph_solver::ProtoSparse;

ProtoSparse convectionDiffusion(long side) {
  return compare::makeMatrix("flow:" + std::to_string(side)).A;
}

// Processor time, which other programs on the machine disturb less than they do the clock.
double seconds() {
  return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

void SelectedInverse(benchmark::State& state) {
  const ProtoSparse A = convectionDiffusion(state.range(0));
  ZtVector diagonal(A.rowCount);
  for (auto _ : state) {
    zeph_solver::partialInverseLUSelected(A, diagonal);
    benchmark::DoNotOptimize(diagonal.data);
  }
  state.counters["unknowns"] = static_cast<double>(A.rowCount);
}

// All n solves, timed as a whole; `ratio` is their processor time over that of the fastest of three
// selected inverses in the same run, `difference` the largest relative one between the two results.
void AllSolves(benchmark::State& state) {
  const ProtoSparse A = convectionDiffusion(state.range(0));
  ZtVector selected(A.rowCount), solved(A.rowCount);
  double fastest = HUGE_VAL;
  for (int repeat = 0; repeat < 3; ++repeat) {
    const double start = seconds();
    zeph_solver::partialInverseLUSelected(A, selected);
    fastest = std::min(fastest, seconds() - start);
  }
  double whole = 0.0;
  for (auto _ : state) {
    const double start = seconds();
    zeph_solver::partialInverseLU(A, solved);
    whole = seconds() - start;
  }
  double difference = 0.0;
  for (ZtSize i = 0; i < solved.size; ++i) {
    difference = std::max(difference, std::fabs(selected.data[i] / solved.data[i] - 1.0));
  }
  state.counters["unknowns"] = static_cast<double>(A.rowCount);
  state.counters["ratio"] = whole / fastest;
  state.counters["difference"] = difference;
}

BENCHMARK(SelectedInverse)->Arg(60)->Arg(150)->Arg(300)->Unit(benchmark::kMillisecond);
BENCHMARK(AllSolves)->Arg(60)->Arg(150)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
