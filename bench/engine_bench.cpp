// The engine's stages, in milliseconds, beside CHOLMOD's ordering and factorisation of the same
// matrix: best of some repeats in turn, on the clock or, with --cpu=1, in processor time.
//
//   engine_bench [--threads=N] [--seconds=S] MATRIX...     MATRIX as in bench/peers/matrices.h
//
// total is from unsorted triplets to all variances; rate is in GFLOP/s over factor and inverse.

#include <cholmod.h>

#include <cmath>
#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

#include "kernels/panel_storage.h"
#include "peers/matrices.h"
#include "peers/measure.h"
#include "solver/solver.h"
#include "solver/suitesparse/suitesparse_handles.h"
#include "sparse/inverse/selected_inverse.h"
#include "sparse/numeric/factorise.h"
#include "sparse/pattern/assembly.h"
#include "sparse/symbolic/analyse.h"
#include "sparse/symbolic/placement.h"

namespace {

using namespace korin::sparse;
using compare::Best;

struct Triplets {
  std::vector<Index> row, col;
  std::vector<double> value;
};

Triplets tripletsOf(const zeph_solver::ProtoSparse& A) {
  Triplets t;
  for (std::size_t k = 0; k < A.elements.size(); ++k) {
    const auto& e = A.elements[k];
    t.row.push_back(static_cast<Index>(e.row));
    t.col.push_back(static_cast<Index>(e.col));
    t.value.push_back(e.value);
  }
  return t;
}

bool processorTime = false;

template <class Work>
double seconds(const Work& work) {
  if (!processorTime) return compare::seconds(work);
  const std::clock_t start = std::clock();
  work();
  return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

struct Stages {
  Best assembly, analysis, placement, factor, inverse, total, again;
};

void runEngine(const Triplets& t, Index n, int threads, Stages& best, std::vector<double>& diagonal,
               Symbolic& shown) {
  double assembly = 0, analysis = 0, placement = 0, factor = 0, inverse = 0;
  const double total = seconds([&] {
    Columns lower;
    Symbolic symbolic;
    PlacedEntries entries;
    std::vector<Offset> slot;
    korin::kernels::PanelStorage panels;
    korin::kernels::Team team(threads);
    assembly = seconds([&] {
      lower = assembleTriplets(n, n, t.row.data(), t.col.data(), t.value.data(), t.row.size(),
                               Part::LowerOfBoth, &slot);
    });
    analysis = seconds([&] { symbolic = analyse(lower.view()); });
    placement = seconds([&] { entries = place(symbolic, lower.view(), &slot); });
    factor = seconds([&] {
      panels = korin::kernels::rawPanels(static_cast<std::size_t>(symbolic.storage()));
      if (factorise(symbolic, entries, panels.get(), team, nullptr) >= 0) std::puts("failed");
    });
    inverse = seconds(
        [&] { variances(symbolic, entries, panels.get(), diagonal.data(), team, nullptr); });
    shown = std::move(symbolic);
  });
  best.assembly.add(assembly);
  best.analysis.add(analysis);
  best.placement.add(placement);
  best.factor.add(factor);
  best.inverse.add(inverse);
  best.total.add(total);
}

void runCholmod(const zeph_solver::ProtoSparse& A, int ordering, Best& order, Best& factor) {
  zeph_solver::Solver solver(3);
  cholmod_common* common = solver.common->get();
  cholmod_sparse* converted = nullptr;
  zeph_solver::protoSparseToCholmodSparse(zeph_solver::ProtoSparse(A), converted, common);
  const zeph_solver::CholmodHandle<cholmod_sparse> a(converted, common);
  common->nmethods = 1;
  common->method[0].ordering = ordering;
  common->postorder = 1;
  common->supernodal = CHOLMOD_AUTO;
  zeph_solver::CholmodHandle<cholmod_factor> L;
  const double o = seconds([&] { L.reset(cholmod_analyze(a, common), common); });
  const double f = seconds([&] { cholmod_factorize(a, L, common); });
  order.add(o);
  factor.add(f);
}

}  // namespace

int main(int argc, char** argv) {
  const compare::Arguments arguments(argc, argv);
  processorTime = arguments.number("cpu", 0) > 0;
  const int threads = static_cast<int>(arguments.number("threads", 1));
  for (const std::string& name : arguments.positions()) {
    const compare::TestMatrix m = compare::makeMatrix(name);
    const Triplets t = tripletsOf(m.A);
    const auto n = static_cast<Index>(m.A.rowCount);
    Stages s;
    Best order, factor, orderNd, factorNd;
    Symbolic symbolic;
    std::vector<double> diagonal(m.A.rowCount);
    compare::repeat(arguments.number("seconds", 2), 1, 30, [&] {
      runEngine(t, n, threads, s, diagonal, symbolic);
      if (arguments.number("peers", 1) > 0) {
        runCholmod(m.A, CHOLMOD_AMD, order, factor);
        if (arguments.number("peers", 1) > 1) runCholmod(m.A, CHOLMOD_METIS, orderNd, factorNd);
      }
    });
    const double amd = order.value + factor.value;
    const double nd = orderNd.value + factorNd.value;
    std::printf(
        "%-24s assembly %.2f analysis %.2f place %.2f factor %.2f inverse %.2f total %.2f | "
        "cholmod amd %.2f + %.2f, metis %.2f + %.2f | ours/best %.2f | %.1f GFLOP/s L %.2fM stored "
        "%.2fM groups %d ops %.3g front %.2f MB inverse %.2f MB\n",
        m.name.c_str(), 1e3 * s.assembly.value, 1e3 * s.analysis.value, 1e3 * s.placement.value,
        1e3 * s.factor.value, 1e3 * s.inverse.value, 1e3 * s.total.value, 1e3 * order.value,
        1e3 * factor.value, 1e3 * orderNd.value, 1e3 * factorNd.value,
        s.total.value / std::min(amd, nd),
        1e-9 * 3 * symbolic.operations / (s.factor.value + s.inverse.value),
        1e-6 * static_cast<double>(symbolic.entries),
        1e-6 * static_cast<double>(symbolic.storage()), symbolic.groups(), symbolic.operations,
        1e-6 * frontMemory(symbolic, threads), 1e-6 * inverseMemory(symbolic, threads));
  }
}
