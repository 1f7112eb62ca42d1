#include "zeph/pose_graph.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <numeric>
#include <string>
#include <utility>

#include "zeph/checks/guarded.h"
#include "zeph/error.h"
#include "zeph/factor/trust.h"
#include "zeph/factor/watch.h"
#include "zeph/jobs/pose_motion.h"
#include "zeph/matrix/requirements.h"

namespace zeph {
namespace {

using std::size_t;

// Levenberg-Marquardt: shares of the diagonal that are added to it.
constexpr double kFirstDamping = 1e-4;
constexpr double kLeastDamping = 1e-9;  // below it the steps are Gauss and Newton's
constexpr double kLargestDamping = 1e12;
constexpr double kDampingFactor = 10.0;
constexpr size_t kEdgesPerPoll = 256;
// Steps this small, relative to the poses, move nothing.
constexpr double kNoStep = 1e-14;

bool finite(const double* values, size_t count) {
  return std::all_of(values, values + count, [](double v) { return std::isfinite(v); });
}

void requireGraph(const PoseGraph& g) {
  const auto fail = [&](const std::string& sentence) {
    throw Error(ErrorKind::Unfit, g.source + ": " + sentence);
  };
  const size_t n = g.poses.size();
  if (g.freedom != 3 && g.freedom != 6) fail("poses have a freedom of 3 or 6");
  if (n == 0) fail("there are no poses");
  if (g.ids.size() != n || g.fixed.size() != n) fail("poses, ids and fixed differ in length");
  for (size_t i = 0; i < n; ++i) {
    if (!finite(g.poses[i].data(), 7)) fail("pose " + std::to_string(g.ids[i]) + " is not finite");
  }
  for (size_t k = 0; k < g.edges.size(); ++k) {
    const PoseEdge& e = g.edges[k];
    const std::string name = "edge " + std::to_string(k);
    if (e.from >= n || e.to >= n || e.from == e.to) fail(name + " does not join two poses");
    if (!finite(e.measurement.data(), 7) || !finite(e.information.data(), 36)) {
      fail(name + " is not finite");
    }
  }
}

/// Every pose has to hang on a fixed one by a chain of edges.
void requireTied(const PoseGraph& g) {
  std::vector<size_t> parent(g.poses.size());
  std::iota(parent.begin(), parent.end(), 0);
  const auto find = [&](size_t i) {
    while (parent[i] != i) i = parent[i] = parent[parent[i]];
    return i;
  };
  for (const PoseEdge& e : g.edges) parent[find(e.from)] = find(e.to);
  std::vector<bool> held(parent.size(), false);
  for (size_t i = 0; i < parent.size(); ++i) {
    if (g.fixed[i]) held[find(i)] = true;
  }
  for (size_t i = 0; i < parent.size(); ++i) {
    if (held[find(i)]) continue;
    throw Error(ErrorKind::Singular,
                g.source + ": no chain of edges ties pose " + std::to_string(g.ids[i]) +
                    " to a fixed pose; add an edge, or a line FIX for one pose of its part",
                static_cast<std::int64_t>(i));
  }
}

/// The places of the poses among the unknowns; -1 for those that are fixed.
std::vector<std::int64_t> firstUnknowns(const PoseGraph& g) {
  std::vector<std::int64_t> first;
  std::int64_t next = 0;
  for (size_t i = 0; i < g.poses.size(); ++i) {
    first.push_back(g.fixed[i] ? -1 : next);
    if (!g.fixed[i]) next += static_cast<std::int64_t>(g.freedom);
  }
  return first;
}

/// visit(edge) for every edge, with an ear to the caller.
template <class Visit>
void forEachEdge(const PoseGraph& g, Watch& watch, const Visit& visit) {
  watch.begin("measuring the edges", static_cast<double>(g.edges.size()));
  const std::function<void()> poll = watch.poll();
  for (size_t k = 0; k < g.edges.size(); ++k) {
    visit(g.edges[k]);
    if (!poll || k % kEdgesPerPoll != 0) continue;
    watch.meter()->add(kEdgesPerPoll);
    poll();
  }
}

double costOf(const PoseGraph& g, Watch& watch) {
  double cost = 0.0;
  forEachEdge(g, watch, [&](const PoseEdge& e) {
    const EdgeTerms t = edgeTerms(g.freedom, g.poses[e.from], g.poses[e.to], e.measurement);
    for (size_t c = 0; c < g.freedom; ++c) {
      for (size_t r = 0; r < g.freedom; ++r) {
        cost += t.residual[r] * e.information[r + c * g.freedom] * t.residual[c];
      }
    }
  });
  return cost;
}

/// c = aᵀ b for d x d matrices, column after column.
std::array<double, 36> transposedTimes(size_t d, const std::array<double, 36>& a,
                                       const std::array<double, 36>& b) {
  std::array<double, 36> c{};
  for (size_t j = 0; j < d; ++j) {
    for (size_t i = 0; i < d; ++i) {
      for (size_t k = 0; k < d; ++k) c[i + j * d] += a[k + i * d] * b[k + j * d];
    }
  }
  return c;
}

/// The normal equations H δ = -b of a graph around its poses. The entries of H come in the same
/// order every time, so that its factor is analysed once.
class NormalSystem {
 public:
  NormalSystem(const PoseGraph& g, Watch& watch) : d_(g.freedom), first_(firstUnknowns(g)) {
    std::int64_t unknowns = 0;
    for (const std::int64_t f : first_) unknowns = std::max(unknowns, f + std::int64_t(d_));
    H.source = "the normal matrix of " + g.source;
    H.symmetry = Symmetry::Symmetric;
    H.rows = H.cols = static_cast<size_t>(unknowns);
    requireSizes(H.source, H.rows, H.cols);
    right.resize(H.rows);
    diagonal_.resize(H.rows);
    linearise(g, watch);
  }

  void linearise(const PoseGraph& g, Watch& watch) {
    H.entries.clear();
    std::fill(right.begin(), right.end(), 0.0);
    std::fill(diagonal_.begin(), diagonal_.end(), 0.0);
    forEachEdge(g, watch, [&](const PoseEdge& e) { add(e, g.poses[e.from], g.poses[e.to]); });
    for (std::uint32_t i = 0; i < H.rows; ++i) H.entries.push_back({i, i, 0.0});
  }

  /// Adds share times the diagonal to it, in place of what was added before.
  void damp(double share) {
    const size_t first = H.entries.size() - H.rows;
    for (size_t i = 0; i < H.rows; ++i) H.entries[first + i].value = share * diagonal_[i];
  }

  std::vector<double> values() const {
    std::vector<double> v;
    v.reserve(H.entries.size());
    for (const Entry& e : H.entries) v.push_back(e.value);
    return v;
  }

  PoseGraph moved(PoseGraph g, const std::vector<double>& step) const {
    for (size_t i = 0; i < g.poses.size(); ++i) {
      if (first_[i] >= 0) g.poses[i] = zeph::moved(d_, g.poses[i], step.data() + first_[i]);
    }
    return g;
  }

  SparseMatrix H;
  std::vector<double> right;  ///< -Jᵀ Ω e

 private:
  void add(const PoseEdge& e, const Pose& from, const Pose& to) {
    const EdgeTerms t = edgeTerms(d_, from, to, e.measurement);
    const auto weightedFrom = transposedTimes(d_, e.information, t.from);
    const auto weightedTo = transposedTimes(d_, e.information, t.to);
    const std::int64_t a = first_[e.from], b = first_[e.to];
    if (a >= 0) addOwn(a, transposedTimes(d_, t.from, weightedFrom), weightedFrom, t.residual);
    if (b >= 0) addOwn(b, transposedTimes(d_, t.to, weightedTo), weightedTo, t.residual);
    if (a < 0 || b < 0) return;
    const auto block =
        a > b ? transposedTimes(d_, t.from, weightedTo) : transposedTimes(d_, t.to, weightedFrom);
    addBlock(std::max(a, b), std::min(a, b), block, false);
  }

  void addOwn(std::int64_t at, const std::array<double, 36>& block,
              const std::array<double, 36>& weighted, const std::array<double, 6>& residual) {
    addBlock(at, at, block, true);
    for (size_t j = 0; j < d_; ++j) {
      const size_t place = static_cast<size_t>(at) + j;
      diagonal_[place] += block[j + j * d_];
      for (size_t k = 0; k < d_; ++k) right[place] -= weighted[k + j * d_] * residual[k];
    }
  }

  void addBlock(std::int64_t row, std::int64_t col, const std::array<double, 36>& block,
                bool lower) {
    for (size_t j = 0; j < d_; ++j) {
      for (size_t i = lower ? j : 0; i < d_; ++i) {
        H.entries.push_back({static_cast<std::uint32_t>(static_cast<size_t>(row) + i),
                             static_cast<std::uint32_t>(static_cast<size_t>(col) + j),
                             block[i + j * d_]});
      }
    }
  }

  size_t d_;
  std::vector<std::int64_t> first_;
  std::vector<double> diagonal_;
};

bool worthless(const std::vector<double>& step, const PoseGraph& g) {
  double largest = 0.0, extent = 1.0;
  for (const double s : step) largest = std::max(largest, std::fabs(s));
  for (const Pose& p : g.poses) extent = std::max({extent, std::fabs(p[0]), std::fabs(p[1])});
  return largest <= kNoStep * extent;
}

/// Factorises with what damping there is and more where that is not definite.
class Descent {
 public:
  Descent(PoseGraphResult& result, const PoseGraphOptions& options)
      : result_(result), options_(options), watch_(options_.solver), system_(result.graph, watch_) {
    options_.solver.route = Route::Cholesky;
  }

  void run() {
    result_.initialCost = result_.cost = costOf(result_.graph, watch_);
    tell();
    while (!result_.converged && result_.iterations < options_.maxIterations) {
      iterate();
      ++result_.iterations;
      tell();
    }
    system_.damp(0.0);
    if (!refactorised()) {
      throw Error(ErrorKind::Singular,
                  result_.graph.source +
                      ": the edges leave a pose free to move; an information matrix without full "
                      "rank is not made up for by other edges");
    }
    result_.factor = factor_;
  }

 private:
  void tell() const {
    if (options_.iterated) options_.iterated(result_.iterations, result_.cost, damping_);
  }

  // One step that lowers the cost, or the end.
  void iterate() {
    for (;; raise()) {
      if (damping_ > kLargestDamping) {
        result_.converged = true;  // no step in the steepest direction lowers the cost
        damping_ = 0.0;
        return;
      }
      system_.damp(damping_);
      if (!refactorised()) continue;
      const std::vector<double> step = factor_->solve(system_.right);
      double promised = 0.0;  // of the quadratic model: bᵀ H⁻¹ b at no damping
      for (size_t i = 0; i < step.size(); ++i) promised += step[i] * system_.right[i];
      if (promised <= options_.tolerance * result_.cost || worthless(step, result_.graph)) {
        result_.converged = damping_ == 0.0;
      }
      PoseGraph next = system_.moved(result_.graph, step);
      const double cost = costOf(next, watch_);
      if (cost < result_.cost) {
        result_.graph = std::move(next);
        result_.cost = cost;
        system_.linearise(result_.graph, watch_);
        damping_ = damping_ > kLeastDamping ? damping_ / kDampingFactor : 0.0;
        return;
      }
      if (result_.converged) return;
    }
  }

  void raise() { damping_ = std::max(kFirstDamping, damping_ * kDampingFactor); }

  bool refactorised() {
    try {
      if (factor_ == nullptr) {
        factor_ = std::make_shared<Factor>(system_.H, options_.solver);
      } else {
        factor_->refactorise(system_.values());
      }
      return true;
    } catch (const Error& e) {
      if (e.kind() != ErrorKind::NotPositiveDefinite && e.kind() != ErrorKind::Singular) throw;
      return false;
    }
  }

  PoseGraphResult& result_;
  PoseGraphOptions options_;
  Watch watch_;
  NormalSystem system_;
  std::shared_ptr<Factor> factor_;
  double damping_ = 0.0;
};

/// All entries of the blocks of pairs of poses, as many as freedom² a pair.
std::vector<DenseMatrix> blocks(const PoseGraphResult& r,
                                const std::vector<std::pair<size_t, size_t>>& pairs) {
  const size_t d = r.graph.freedom;
  const std::vector<std::int64_t> first = firstUnknowns(r.graph);
  const auto free = [&](const std::pair<size_t, size_t>& p) {
    return first[p.first] >= 0 && first[p.second] >= 0;
  };
  std::vector<std::int64_t> rows, cols;
  for (const auto& p : pairs) {
    for (size_t k = 0; free(p) && k < d * d; ++k) {
      rows.push_back(first[p.first] + static_cast<std::int64_t>(k % d));
      cols.push_back(first[p.second] + static_cast<std::int64_t>(k / d));
    }
  }
  const std::vector<double> z =
      rows.empty() ? std::vector<double>() : r.factor->covariance(rows, cols);
  std::vector<DenseMatrix> result;
  auto next = z.begin();
  for (const auto& p : pairs) {
    result.push_back(DenseMatrix::zeros(d, d));
    if (!free(p)) continue;
    std::copy_n(next, d * d, result.back().values.begin());
    next += static_cast<std::ptrdiff_t>(d * d);
  }
  return result;
}

}  // namespace

DenseMatrix PoseGraphResult::covariance(size_t i, size_t j) const {
  for (const size_t k : {i, j}) {
    if (k < graph.poses.size()) continue;
    throw Error(ErrorKind::Unfit, "there is no pose with index " + std::to_string(k) + "; " +
                                      graph.source + " has " + std::to_string(graph.poses.size()));
  }
  return guarded(graph.source, [&] { return std::move(blocks(*this, {{i, j}})[0]); });
}

std::vector<DenseMatrix> PoseGraphResult::covariances() const {
  return guarded(graph.source, [&] {
    std::vector<std::pair<size_t, size_t>> pairs;
    for (size_t i = 0; i < graph.poses.size(); ++i) pairs.emplace_back(i, i);
    return blocks(*this, pairs);
  });
}

std::vector<std::string> PoseGraphResult::warnings() const {
  return guarded(graph.source, [&]() -> std::vector<std::string> {
    if (factor == nullptr) return {};
    const Report r = factor->report();
    if (!(r.lastErrorEstimate > kDoubtfulError)) return {};
    const std::vector<std::int64_t> first = firstUnknowns(graph);
    const auto freedom = static_cast<std::int64_t>(graph.freedom);
    const auto at = std::find(first.begin(), first.end(), r.worstUnknown / freedom * freedom);
    const std::int64_t id = graph.ids[static_cast<size_t>(at - first.begin())];
    return {doubtSentence("the covariances", r.lastErrorEstimate,
                          "pose " + std::to_string(id) + " of " + graph.source)};
  });
}

PoseGraphResult optimise(PoseGraph graph, const PoseGraphOptions& options) {
  PoseGraphResult result;
  result.graph = std::move(graph);
  guarded(result.graph.source, [&] {
    requireGraph(result.graph);
    requireTied(result.graph);
    const auto& fixed = result.graph.fixed;
    if (std::find(fixed.begin(), fixed.end(), false) == fixed.end()) {
      Watch watch(options.solver);
      result.initialCost = result.cost = costOf(result.graph, watch);
      result.converged = true;
      return;
    }
    Descent(result, options).run();
  });
  return result;
}

}  // namespace zeph
