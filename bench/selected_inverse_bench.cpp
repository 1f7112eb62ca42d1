// The selected inverse against the factorisation it starts from, on one thread: grid Laplacians,
// a chain, and the Matrix Market files named in ZEPH_BENCH_MATRICES (separated by colons).
//
// All times are the fastest of some repeats in turn, in milliseconds of processor time, which other
// programs disturb less than they do the clock. CHOLMOD orders by nested dissection. Set
// OPENBLAS_NUM_THREADS=1 and OMP_NUM_THREADS=1: otherwise its threads' work goes uncounted.
//   order, factor    CHOLMOD's analysis and supernodal factorisation
//   step             the inverse on the panels of that factor, in place
//   ratio            step / factor
//   gflops           operations of the step by its time
//   columns          the column recurrence on the simplicial factor
//   subset           the library's own choice for that factor, panels included where it makes them
//   map              bringing every entry of it back to the matrix's own indices
//   whole            partialInverseChol, from unsorted triplets to the diagonal
//   whole_ratio      whole / (order + factor + step), or with the simplicial factor and its step
//                    where CHOLMOD prefers that
//   difference       largest relative one between the diagonals from both factors

#include <benchmark/benchmark.h>
#include <cholmod.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "solver/partial_inverse_chol.h"
#include "solver/solver.h"
#include "solver/suitesparse/cholmod_panels.h"
#include "sparse/inverse/inverse_subset.h"
#include "sparse/inverse/simplicial_inverse.h"
#include "sparse/inverse/supernodal_inverse.h"
#include "zeph/files/matrix_market.h"

namespace {

using zeph_solver::CholmodHandle;
using zeph_solver::ProtoSparse;

/// Beyond this many operations of the factorisation the column recurrence is left out.
constexpr double kTooManyOperations = 4e9;

double seconds() {
  return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

/// Runs `work` and keeps its time in `fastest` if it is the best so far.
template <class Work>
void timed(double& fastest, const Work& work) {
  const double start = seconds();
  work();
  fastest = std::min(fastest, 1e3 * (seconds() - start));
}

/// Laplacian of a grid, slightly regularised, both triangles, in random order.
ProtoSparse gridLaplacian(std::size_t x, std::size_t y, std::size_t z) {
  const std::size_t n = x * y * z;
  ProtoSparse A(n, n);
  for (std::size_t i = 0; i < n; ++i) {
    double links = 0.0;
    const auto link = [&](bool there, std::size_t j) {
      if (!there) return;
      A.addElement(i, j, -1.0);
      links += 1.0;
    };
    link(i % x > 0, i - 1);
    link(i % x + 1 < x, i + 1);
    link(i / x % y > 0, i - x);
    link(i / x % y + 1 < y, i + x);
    link(i >= x * y, i - x * y);
    link(i + x * y < n, i + x * y);
    A.addElement(i, i, links + 0.01);
  }
  std::shuffle(A.elements.begin(), A.elements.end(), std::mt19937(1));
  return A;
}

ProtoSparse fromFile(const std::string& path) {
  const zeph::SparseMatrix m = zeph::readMatrixMarket(path);
  ProtoSparse A(m.rows, m.cols);
  for (const auto& e : m.entries)
    A.addElement(std::min(e.row, e.col), std::max(e.row, e.col), e.value);
  return A;
}

struct Times {
  double order = HUGE_VAL, factor = HUGE_VAL, step = HUGE_VAL, simplicialFactor = HUGE_VAL,
         columns = HUGE_VAL, subset = HUGE_VAL, map = HUGE_VAL, whole = HUGE_VAL;
  double operations = 0.0;
  bool prefersSimplicial = false;
};

/// Factorises with the given ordering into the given form.
CholmodHandle<cholmod_factor> factorise(cholmod_sparse* a, const std::vector<int>& perm,
                                        int supernodal, cholmod_common* common, double& fastest) {
  common->supernodal = supernodal;
  common->method[0].ordering = CHOLMOD_GIVEN;
  common->postorder = 0;
  CholmodHandle<cholmod_factor> factor(
      cholmod_analyze_p(a, const_cast<int*>(perm.data()), nullptr, 0, common), common);
  timed(fastest, [&] { cholmod_factorize(a, factor, common); });
  return factor;
}

void stepOnPanels(const cholmod_factor& L, Times& times, std::vector<double>& diagonal) {
  const zeph_solver::CholmodPanels view(L);
  const korin::sparse::SupernodalFactor& panels = view.panels();
  timed(times.step, [&] { korin::sparse::supernodalInverse(panels); });
  korin::sparse::panelDiagonal(panels, view.permutation(), diagonal.data());
  times.operations = 0.0;
  for (unsigned int g = 0; g < panels.groupCount; ++g) {
    const double n = panels.firstColumn[g + 1] - panels.firstColumn[g];
    const double below = panels.rowStart[g + 1] - panels.rowStart[g] - n;
    times.operations += 2 * n * below * (below + n) + 2 * n * n * n / 3;
  }
}

void stepOnColumns(const cholmod_factor& L, Times& times, std::vector<double>& diagonal) {
  const auto* p = static_cast<const int*>(L.p);
  const auto* perm = static_cast<const unsigned int*>(L.Perm);
  const auto n = static_cast<korin::sparse::Index>(L.n);
  const std::vector<korin::sparse::Offset> starts(p, p + n + 1);
  const korin::sparse::ColumnsView factor{n, n, starts.data(), static_cast<const int*>(L.i),
                                          static_cast<const double*>(L.x)};
  const auto entries = static_cast<std::size_t>(factor.entries());
  timed(times.columns, [&] {
    std::vector<double> inverse(entries);
    korin::sparse::simplicialInverse(factor, inverse.data());
  });
  std::vector<unsigned int> mappedStarts(L.n + 1), mappedRows(entries);
  std::vector<double> mappedValues(entries);
  const double before = seconds();
  const korin::sparse::InverseSubset subset(factor, korin::sparse::FactorPattern::Elimination);
  subset.diagonal(perm, diagonal.data());
  times.subset = std::min(times.subset, 1e3 * (seconds() - before));
  timed(times.map,
        [&] { subset.mapTo(perm, mappedStarts.data(), mappedRows.data(), mappedValues.data()); });
}

void SelectedInverse(benchmark::State& state, const std::function<ProtoSparse()>& make,
                     int repeats) {
  const ProtoSparse original = make();
  zeph_solver::Solver solver(zeph_solver::Solver::kNestedDissection);
  cholmod_common* common = solver.common->get();
  common->final_asis = 0;
  common->final_super = 1;
  common->final_ll = common->final_pack = common->final_monotonic = 1;
  const auto ordering = common->method[0];
  cholmod_sparse* converted = nullptr;
  zeph_solver::protoSparseToCholmodSparse(ProtoSparse(original), converted, common);
  const CholmodHandle<cholmod_sparse> a(converted, common);

  Times t;
  std::vector<double> fromPanels(original.rowCount), fromColumns(original.rowCount);
  ZtVector diagonal(original.rowCount);
  for (auto _ : state) {
    for (int repeat = 0; repeat < repeats; ++repeat) {
      common->method[0] = ordering;
      common->postorder = 1;
      common->supernodal = CHOLMOD_AUTO;
      CholmodHandle<cholmod_factor> analysis;
      timed(t.order, [&] { analysis.reset(cholmod_analyze(a, common), common); });
      const auto* chosen = static_cast<const int*>(analysis->Perm);
      const std::vector<int> perm(chosen, chosen + analysis->n);
      t.prefersSimplicial = analysis->is_super == 0;
      stepOnPanels(*factorise(a, perm, CHOLMOD_SUPERNODAL, common, t.factor).get(), t, fromPanels);
      if (common->fl < kTooManyOperations) {
        stepOnColumns(*factorise(a, perm, CHOLMOD_SIMPLICIAL, common, t.simplicialFactor).get(), t,
                      fromColumns);
      }
      const ProtoSparse unsorted = original;
      timed(t.whole, [&] { zeph_solver::partialInverseChol(unsorted, diagonal); });
    }
  }

  double difference = 0.0;
  for (std::size_t i = 0; i < fromPanels.size() && t.columns < HUGE_VAL; ++i) {
    difference = std::max(difference, std::fabs(fromPanels[i] / fromColumns[i] - 1.0));
  }
  const double parts = t.prefersSimplicial ? t.simplicialFactor + t.subset : t.factor + t.step;
  const std::vector<std::pair<const char*, double>> shown{
      {"order", t.order},        {"factor", t.factor},
      {"step", t.step},          {"ratio", t.step / t.factor},
      {"columns", t.columns},    {"gflops", 1e-6 * t.operations / t.step},
      {"subset", t.subset},      {"map", t.map},
      {"whole", t.whole},        {"whole_ratio", t.whole / (t.order + parts)},
      {"difference", difference}};
  for (const auto& [name, value] : shown) {
    if (value < HUGE_VAL) state.counters[name] = value;
  }
}

void add(const std::string& name, int repeats, const std::function<ProtoSparse()>& make) {
  benchmark::RegisterBenchmark(
      ("SelectedInverse/" + name).c_str(),
      [=](benchmark::State& state) { SelectedInverse(state, make, repeats); })
      ->Iterations(1)
      ->Unit(benchmark::kMillisecond);
}

const bool kRegistered = [] {
  add("chain_100000", 5, [] { return gridLaplacian(100000, 1, 1); });
  for (const std::size_t side : {30, 100, 300, 1000}) {
    add("grid2d_" + std::to_string(side), side > 500 ? 2 : 5,
        [side] { return gridLaplacian(side, side, 1); });
  }
  for (const std::size_t side : {20, 30, 40}) {
    add("grid3d_" + std::to_string(side), 3, [side] { return gridLaplacian(side, side, side); });
  }
  const char* files = std::getenv("ZEPH_BENCH_MATRICES");
  std::stringstream list(files != nullptr ? files : "");
  for (std::string path; std::getline(list, path, ':');) {
    add(path.substr(path.find_last_of('/') + 1), 5, [path] { return fromFile(path); });
  }
  return true;
}();

}  // namespace
