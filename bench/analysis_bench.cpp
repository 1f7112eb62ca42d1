// Everything before the numbers of a sparse factorisation, stage by stage on one thread: grids, and
// the matrices named in ZEPH_BENCH_MATRICES (separated by colons; Matrix Market files or what
// makeMatrix of the comparisons knows, such as grid2d/300 with a slash for the colon).
//
// Times are the fastest of some repeats, in milliseconds of processor time.
//   assemble, shuffled   triplets (both triangles, as assembled, then in random order) to the lower
//                        triangle in compressed columns; eigen, eigen_shuffled: setFromTriplets of
//                        both triangles, whole, ours_whole: the same of ours
//   compress, amd, tree  the graph, its minimum degree order, elimination tree and lengths
//   group                relaxed groups in postorder; analyse: all from the columns to the
//   structure place                A's entries to their places metis                nested
//   dissection of the compressed graph
// Sizes: nodes of the compressed graph, groups; entries and operations of minimum degree and the
// ratios of others to them: stored (panels), full (graph not compressed), cholmod, nd (nested
// dissection), operations for the latter three; stack: updates waiting / stored values.

#include <benchmark/benchmark.h>
#include <cholmod.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <numeric>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#ifdef ZEPH_COMPARE_EIGEN
#include <Eigen/SparseCore>
#endif

#include "bench/peers/matrices.h"
#include "sparse/ordering/dissection.h"
#include "sparse/ordering/libraries.h"
#include "sparse/pattern/assembly.h"
#include "sparse/pattern/compress.h"
#include "sparse/symbolic/analyse.h"
#include "sparse/symbolic/grouping.h"
#include "sparse/symbolic/placement.h"

namespace {

using namespace korin::sparse;

constexpr double kLeastSeconds = 0.3;

/// Fastest run in milliseconds, of some seconds' worth of them.
template <class Work>
double fastest(const Work& work) {
  double best = HUGE_VAL, sum = 0.0;
  for (int repeat = 0; repeat < 2 || (sum < kLeastSeconds && repeat < 200); ++repeat) {
    const std::clock_t start = std::clock();
    work();
    const double seconds = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
    best = std::min(best, seconds);
    sum += seconds;
  }
  return 1e3 * best;
}

struct Triplets {
  Index n = 0;
  std::vector<Index> row, col;
  std::vector<double> value;

  Columns assemble(Part part) const {
    return assembleTriplets(n, n, row.data(), col.data(), value.data(), row.size(), part);
  }
  void shuffle() {
    std::vector<std::size_t> order(row.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::shuffle(order.begin(), order.end(), std::mt19937(1));
    Triplets mixed{n, row, col, value};
    for (std::size_t k = 0; k < order.size(); ++k) {
      mixed.row[k] = row[order[k]];
      mixed.col[k] = col[order[k]];
      mixed.value[k] = value[order[k]];
    }
    std::swap(*this, mixed);
  }
};

#ifdef ZEPH_COMPARE_EIGEN
double eigen(const Triplets& t) {
  std::vector<Eigen::Triplet<double, Index>> list;
  for (std::size_t k = 0; k < t.row.size(); ++k) list.emplace_back(t.row[k], t.col[k], t.value[k]);
  return fastest([&] {
    Eigen::SparseMatrix<double, Eigen::ColMajor, Index> a(t.n, t.n);
    a.setFromTriplets(list.begin(), list.end());
    benchmark::DoNotOptimize(a.valuePtr());
  });
}
#endif

Prediction cholmodCounts(const Columns& lower) {
  cholmod_common common;
  cholmod_l_start(&common);
  common.nmethods = 1;
  common.method[0].ordering = CHOLMOD_AMD;
  cholmod_sparse* a = cholmod_l_allocate_sparse(lower.cols, lower.cols, lower.row.size(), 1, 1, -1,
                                                CHOLMOD_REAL, &common);
  std::copy(lower.start.begin(), lower.start.end(), static_cast<SuiteSparse_long*>(a->p));
  std::copy(lower.row.begin(), lower.row.end(), static_cast<SuiteSparse_long*>(a->i));
  std::copy(lower.value.begin(), lower.value.end(), static_cast<double*>(a->x));
  cholmod_factor* factor = cholmod_l_analyze(a, &common);
  const Prediction counts{static_cast<Offset>(common.lnz), common.fl};
  cholmod_l_free_factor(&factor, &common);
  cholmod_l_free_sparse(&a, &common);
  cholmod_l_finish(&common);
  return counts;
}

void Analysis(benchmark::State& state, const std::string& text) {
  const compare::TestMatrix matrix = compare::makeMatrix(text);
  Triplets t;
  t.n = static_cast<Index>(matrix.A.rowCount);
  for (const auto& e : matrix.A.elements) {
    t.row.push_back(static_cast<Index>(e.row));
    t.col.push_back(static_cast<Index>(e.col));
    t.value.push_back(e.value);
  }
  auto& shown = state.counters;
  for (auto _ : state) {
    const Columns lower = t.assemble(Part::LowerOfBoth);
    shown["1_assemble"] = fastest([&] { t.assemble(Part::LowerOfBoth); });
    const CompressedGraph all = compress(lower.view(), Compression::All);
    const Graph& graph = all.graph;
    shown["2_compress"] = fastest([&] { compress(lower.view(), Compression::All); });
    std::vector<Index> order = minimumDegree(graph);
    shown["3_amd"] = fastest([&] { minimumDegree(graph); });
    const OrderedGraph ordered = withOrder(graph, Ordering::MinimumDegree, order);
    shown["4_tree"] = fastest([&] {
      benchmark::DoNotOptimize(predict(graph, order, eliminationTree(graph, order), graph.nodes()));
    });
    std::vector<Index> weight;
    for (const Index node : order) weight.push_back(graph.weight[node]);
    shown["5_group"] = fastest([&] { groupNodes(ordered.tree, weight); });
    const AnalysisOptions options{Ordering::MinimumDegree, nullptr};
    const Symbolic s = analyse(lower.view(), options);
    shown["6_analyse"] = fastest([&] { analyse(lower.view(), options); });
    shown["7_place"] = fastest([&] { place(s, lower.view()); });
    shown["8_whole"] = fastest([&] {
      const Columns columns = t.assemble(Part::LowerOfBoth);
      const Symbolic symbolic = analyse(columns.view(), options);
      benchmark::DoNotOptimize(place(symbolic, columns.view()).value.data());
    });
    const std::clock_t start = std::clock();
    const OrderedGraph dissected =
        withOrder(graph, Ordering::NestedDissection, nestedDissection(graph));
    shown["9_metis"] = 1e3 * static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
    const Graph full = compress(lower.view(), Compression::None).graph;
    const OrderedGraph uncompressed = orderGraph(full, Ordering::MinimumDegree);
    const Prediction cholmod = cholmodCounts(lower);

    const auto entries = static_cast<double>(s.entries);
    shown["n"] = s.n;
    shown["nodes"] = s.compressedNodes;
    shown["groups"] = s.groups();
    shown["edges"] = static_cast<double>(graph.neighbour.size());
    shown["entries"] = entries;
    shown["operations"] = s.operations;
    shown["stored"] = static_cast<double>(s.storage()) / entries;
    shown["stack"] = predictMemory(s).updates / predictMemory(s).panels;
    shown["full"] = static_cast<double>(uncompressed.predicted.entries) / entries;
    shown["full_operations"] = uncompressed.predicted.operations / s.operations;
    shown["cholmod"] = static_cast<double>(cholmod.entries) / entries;
    shown["cholmod_operations"] = cholmod.operations / s.operations;
    shown["nd"] = static_cast<double>(dissected.predicted.entries) / entries;
    shown["nd_operations"] = dissected.predicted.operations / s.operations;
    shown["chosen"] = static_cast<double>(orderGraph(graph, Ordering::Automatic).ordering);
#ifdef ZEPH_COMPARE_EIGEN
    shown["eigen"] = eigen(t);
#endif
    shown["ours_whole"] = fastest([&] { t.assemble(Part::Whole); });
    t.shuffle();
#ifdef ZEPH_COMPARE_EIGEN
    shown["eigen_shuffled"] = eigen(t);
#endif
    shown["ours_whole_shuffled"] = fastest([&] { t.assemble(Part::Whole); });
    shown["shuffled"] = fastest([&] { t.assemble(Part::LowerOfBoth); });
  }
}

const bool kRegistered = [] {
  const char* named = std::getenv("ZEPH_BENCH_MATRICES");
  std::stringstream list(named != nullptr ? named : "grid2d/300:grid3d/20:grid3d/30:grid2d/1000");
  for (std::string text; std::getline(list, text, ':');) {
    if (text.rfind("grid", 0) == 0 || text.rfind("network", 0) == 0) {
      std::replace(text.begin(), text.end(), '/', ':');
    }
    benchmark::RegisterBenchmark(("Analysis/" + text.substr(text.find_last_of('/') + 1)).c_str(),
                                 [text](benchmark::State& state) { Analysis(state, text); })
        ->Iterations(1)
        ->Unit(benchmark::kMillisecond);
  }
  return true;
}();

}  // namespace
