// The Cholesky engine: from unsorted triplets to all variances, with one thread and with two,
// beside what established solvers take to order and factorise alone.
//   compare_engine MATRIX... [--limit=SECONDS] [--export=FILE]
//     --export  writes the last matrix and its variances for peers that are programs of their own
//   compare_engine --stages=1 MATRIX... [--limit=SECONDS] [--threads=N] [--cpu=1]
//     a readable line of our stages in milliseconds instead, in processor time with --cpu
// MATRIX as in matrices.h. The peers' BLAS takes as many threads as OPENBLAS_NUM_THREADS says.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <functional>
#include <numeric>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "engine_call.h"
#include "factor_peers.h"
#include "kernels/team.h"
#include "matrices.h"
#include "measure.h"
#include "solver/partial_inverse_chol.h"
#include "sparse/inverse/covariance_block.h"
#include "sparse/inverse/selected_inverse.h"
#include "sparse/numeric/factorise.h"
#include "sparse/numeric/solve.h"
#include "sparse/pattern/assembly.h"
#include "zeph/factor.h"

namespace {

using compare::Best;
using compare::Engine;
using compare::Record;
using compare::seconds;
using compare::Stages;
using compare::Triplets;
using korin::kernels::Team;
using korin::sparse::Columns;
using korin::sparse::Index;
using korin::sparse::Offset;
using korin::sparse::Part;

/// A contestant that took this much longer than the best so far is not run again.
constexpr double kHopeless = 2.0;
/// Eigen's factorisation runs at 1 to 2 GFLOP/s; beyond this it would take half a minute a round.
constexpr double kEigenOperations = 3e10;
constexpr Index kPoses = 10;

struct BestStages {
  Best assembly, analysis, placement, factor, inverse, total;
  void add(const Stages& s) {
    assembly.add(s.assembly);
    analysis.add(s.analysis);
    placement.add(s.placement);
    factor.add(s.factor);
    inverse.add(s.inverse);
    total.add(s.total);
  }
  void addTo(Record& record, const std::string& threads) const {
    record.add("assembly_" + threads, assembly.value).add("analysis_" + threads, analysis.value);
    record.add("placement_" + threads, placement.value).add("factor_" + threads, factor.value);
    record.add("inverse_" + threads, inverse.value).add("total_" + threads, total.value);
  }
};

struct Peer {
  std::string name;
  std::function<compare::FactorTimes(const Columns&)> run;
  Best order, factor, both;
};

std::vector<Peer> peersFor(const Columns& lower) {
  using compare::Lower;
  std::vector<Peer> peers;
  const auto add = [&](const char* name, compare::FactorTimes (*run)(const Lower&)) {
    peers.push_back({name, [run](const Columns& c) { return run(c.view()); }, {}, {}, {}});
  };
  add("cholmod_amd", compare::cholmodMinimumDegree);
  add("cholmod_metis", compare::cholmodNestedDissection);
  add("mumps_amd", compare::mumpsMinimumDegree);
#ifdef ZEPH_COMPARE_EIGEN
  if (compare::minimumDegreeOperations(lower.view()) <= kEigenOperations) {
    const auto run =
        [start = std::vector<int>(lower.start.begin(), lower.start.end())](const Columns& c) {
          return compare::eigenMinimumDegree(c.cols, start.data(), c.row.data(), c.value.data());
        };
    peers.push_back({"eigen_amd", run, {}, {}, {}});
  }
#endif
  return peers;
}

/// Unknowns that were ordered as one, where all nodes have the same number of them; else 1.
Index nodeSize(const korin::sparse::Symbolic& s) {
  return s.n % s.compressedNodes == 0 ? s.n / s.compressedNodes : 1;
}

/// The public call: everything checked, the error estimated.
double callFactor(const zeph::SparseMatrix& A, int threads, double* variances) {
  zeph::Options options;
  options.threads = threads;
  return seconds([&] { zeph::Factor(A, options).variances(variances, A.rows); });
}

/// Peak memory of our call and of each peer, in processes of their own.
void addMemory(const Triplets& t, const zeph::SparseMatrix& A, const Columns& lower,
               std::vector<Peer>& peers, Record& record) {
  for (const int threads : {1, 2}) {
    const auto run = compare::runIsolated(0, [&](double*) {
      Engine engine;
      std::vector<double> diagonal(static_cast<std::size_t>(t.n));
      compare::callEngine(t, threads, engine, diagonal.data());
    });
    if (run.completed) record.add("ours_mb_" + std::to_string(threads), run.megabytes);
  }
  const auto checked = compare::runIsolated(0, [&](double*) {
    std::vector<double> diagonal(A.rows);
    callFactor(A, 1, diagonal.data());
  });
  if (checked.completed) record.add("checked_mb", checked.megabytes);
  for (Peer& peer : peers) {
    const auto run = compare::runIsolated(0, [&](double*) {
      if (!peer.run(lower).completed) throw std::exception();
    });
    if (run.completed) record.add(peer.name + "_mb", run.megabytes);
  }
}

/// All covariances among the unknowns of some nodes, spread over the matrix, beside all variances.
void addSubset(const Engine& engine, Index size, const std::vector<double>& variances, double limit,
               Record& record) {
  const auto& s = engine.symbolic;
  const Index nodes = std::min(kPoses, s.n / size);
  std::vector<Index> unknowns;
  for (Index k = 0; k < nodes; ++k) {
    const Index first = static_cast<Index>(Offset{k} * (s.n / size) / nodes) * size;
    for (Index i = 0; i < size; ++i) unknowns.push_back(first + i);
  }
  const std::size_t count = unknowns.size();
  std::vector<double> block(count * count), all(variances.size()), solved(variances.size());
  Team team(1);
  Best subset, whole;
  compare::repeat(limit, 5, 50, [&] {
    subset.add(seconds([&] {
      covarianceBlock(s, engine.panels.get(), static_cast<Index>(count), unknowns.data(),
                      block.data(), team);
    }));
    whole.add(seconds([&] {
      korin::sparse::variances(s, engine.entries, engine.panels.get(), all.data(), team, nullptr);
    }));
  });
  // Variances against all of them, covariances against one solved column.
  solved[static_cast<std::size_t>(unknowns[0])] = 1.0;
  solve(s, engine.panels.get(), 1, solved.data(), team);
  double difference = 0.0;
  for (std::size_t i = 0; i < count; ++i) {
    const auto u = static_cast<std::size_t>(unknowns[i]);
    const auto first = static_cast<std::size_t>(unknowns[0]);
    const double scale = std::sqrt(variances[u] * variances[first]);
    const double errors[] = {std::fabs(block[i * count + i] - variances[u]) / variances[u],
                             std::fabs(block[i] - solved[u]) / scale};
    for (const double e : errors) difference = e <= difference ? difference : e;
  }
  record.add("subset", subset.value).add("subset_all", whole.value);
  record.add("subset_nodes", nodes).add("subset_difference", difference);
}

/// Seconds of assembly in a call with the same triplets in random order.
Best shuffledAssembly(const Triplets& t, double limit) {
  std::vector<std::size_t> order(t.value.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::shuffle(order.begin(), order.end(), std::mt19937(1));
  Triplets shuffled{t.n, {}, {}, {}};
  for (const std::size_t k : order) {
    shuffled.row.push_back(t.row[k]);
    shuffled.col.push_back(t.col[k]);
    shuffled.value.push_back(t.value[k]);
  }
  Best best;
  Engine engine;
  std::vector<double> diagonal(static_cast<std::size_t>(t.n));
  compare::repeat(limit, 2, 10, [&] {
    best.add(compare::callEngine(shuffled, 1, engine, diagonal.data()).assembly);
  });
  return best;
}

void writeForPeers(const std::string& path, const Columns& lower,
                   const std::vector<double>& variances) {
  std::ofstream file(path, std::ios::binary);
  const auto write = [&file](const auto* data, std::size_t count) {
    file.write(reinterpret_cast<const char*>(data),
               static_cast<std::streamsize>(count * sizeof *data));
  };
  const std::vector<int> start(lower.start.begin(), lower.start.end());
  const int sizes[] = {lower.cols, start.back()};
  write(sizes, 2);
  write(start.data(), start.size());
  write(lower.row.data(), lower.row.size());
  write(lower.value.data(), lower.value.size());
  write(variances.data(), variances.size());
  if (!file) throw std::runtime_error("cannot write " + path);
}

void compareWithPeers(const std::string& name, const compare::Arguments& arguments) {
  const compare::TestMatrix m = compare::makeMatrix(name);
  Record record("engine");
  record.add("matrix", m.name).add("n", m.A.rowCount);
  if (!m.symmetric) {
    record.add("unfit", "not symmetric").print();
    return;
  }
  const double limit = arguments.number("limit", 3.0);
  const Triplets t = compare::tripletsOf(m.A);
  const Columns lower = korin::sparse::assembleTriplets(
      t.n, t.n, t.row.data(), t.col.data(), t.value.data(), t.row.size(), Part::LowerOfBoth);
  std::vector<Peer> peers = peersFor(lower);
  const auto n = static_cast<std::size_t>(t.n);
  const auto A = zeph::SparseMatrix::fromTriplets(n, n, t.row.data(), t.col.data(), t.value.data(),
                                                  t.value.size());
  addMemory(t, A, lower, peers, record);

  std::vector<double> one(n), two(n), again(n), checked(n);
  BestStages withOne, withTwo;
  Best refactorised, all, checkedOne, checkedTwo;
  double rate = 0.0;
  Engine engine;
  compare::repeat(limit, 3, 40, [&] {
    withTwo.add(compare::callEngine(t, 2, engine, two.data()));
    rate = std::max(rate, compare::kernelRate());
    withOne.add(compare::callEngine(t, 1, engine, one.data()));
    refactorised.add(compare::refactorise(t, 1, engine, again.data()));
    checkedOne.add(callFactor(A, 1, checked.data()));
    checkedTwo.add(callFactor(A, 2, checked.data()));
    for (Peer& peer : peers) {
      if (peer.both.value > kHopeless * all.value && peer.both.value < HUGE_VAL) continue;
      const compare::FactorTimes times = peer.run(lower);
      if (!times.completed) continue;
      peer.order.add(times.order);
      peer.factor.add(times.factor);
      peer.both.add(times.both());
      all.add(times.both());
    }
  });

  const auto& s = engine.symbolic;
  const Index size = nodeSize(s);
  const bool file = name.find(':') == std::string::npos;
  record.add("file", file).add("node", size).add("groups", s.groups()).add("entries", s.entries);
  record.add("stored", s.storage()).add("operations", s.operations).add("kernel", rate);
  record.add("dissected", s.ordering == korin::sparse::Ordering::NestedDissection);
  withOne.addTo(record, "1");
  withTwo.addTo(record, "2");
  record.add("again", refactorised.value);
  record.add("checked_1", checkedOne.value).add("checked_2", checkedTwo.value);
  record.add("shuffled", shuffledAssembly(t, limit / 10.0).value);
  for (const Peer& peer : peers) {
    record.add(peer.name, peer.both.value).add(peer.name + "_order", peer.order.value);
    record.add(peer.name + "_factor", peer.factor.value);
  }
  ZtVector ofCholmod(n);
  zeph_solver::partialInverseChol(m.A, ofCholmod);
  record.add("difference", compare::largestDifference(one.data(), ofCholmod.data, n));
  record.add("tolerance", compare::allowedDifference(m.A, ofCholmod.data));
  record.add("residual", engine.residual);
  record.add("checked_difference", compare::largestDifference(checked.data(), ofCholmod.data, n));
  const auto same = [&](const std::vector<double>& x) {
    return std::memcmp(one.data(), x.data(), n * sizeof(double)) == 0;
  };
  record.add("same_bits", same(two) && same(again));
  if (file && size > 1) addSubset(engine, size, one, limit / 5.0, record);
  const std::string path = arguments.text("export");
  if (!path.empty()) writeForPeers(path, lower, one);
  record.print();
}

void showStages(const std::string& name, const compare::Arguments& arguments) {
  const compare::TestMatrix m = compare::makeMatrix(name);
  const Triplets t = compare::tripletsOf(m.A);
  const int threads = static_cast<int>(arguments.number("threads", 1));
  const bool processorTime = arguments.number("cpu", 0) > 0;
  std::vector<double> diagonal(m.A.rowCount);
  Engine engine;
  BestStages best;
  compare::repeat(arguments.number("limit", 2.0), 1, 30, [&] {
    best.add(compare::callEngine(t, threads, engine, diagonal.data(), processorTime));
  });
  const auto& s = engine.symbolic;
  const auto ms = [](const Best& b) { return 1e3 * b.value; };
  std::printf(
      "%-24s assembly %.2f analysis %.2f place %.2f factor %.2f inverse %.2f total %.2f | "
      "%.1f + %.1f GFLOP/s L %.2fM stored %.2fM groups %d ops %.3g front %.2f MB inverse %.2f MB "
      "residual %.1e\n",
      m.name.c_str(), ms(best.assembly), ms(best.analysis), ms(best.placement), ms(best.factor),
      ms(best.inverse), ms(best.total), 1e-9 * s.operations / best.factor.value,
      2e-9 * s.operations / best.inverse.value, 1e-6 * static_cast<double>(s.entries),
      1e-6 * static_cast<double>(s.storage()), s.groups(), s.operations,
      1e-6 * frontMemory(s, threads), 1e-6 * inverseMemory(s, threads), engine.residual);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const compare::Arguments arguments(argc, argv);
    for (const std::string& name : arguments.positions()) {
      (arguments.number("stages", 0) > 0 ? showStages : compareWithPeers)(name, arguments);
    }
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "compare_engine: %s\n", error.what());
    return 1;
  }
}
