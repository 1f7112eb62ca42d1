#include <algorithm>
#include <limits>
#include <queue>
#include <utility>
#include <vector>

#include "sparse/inverse/selected_inverse.h"
#include "sparse/numeric/factorise.h"
#include "sparse/symbolic/tree.h"
#include "zeph/plan/run_plan.h"

namespace zeph {
namespace {

using korin::sparse::Index;
using korin::sparse::Symbolic;
using std::size_t;

/// Groups that are taken off the top of the tree at most, for each process.
constexpr int kMostCuts = 64;
/// Bytes a second between processes, and what a message takes by itself: a machine's own memory and
/// a cluster's network are faster, a slow network is not.
constexpr double kNetwork = 1e9;
constexpr double kLatency = 2e-5;
/// MUMPS's solves of sparse right-hand sides against our rate on a large front, and its
/// factorisation against ours: from bench/compare's tables of grids, on one thread.
constexpr double kSolvesRate = 0.5;
constexpr double kFactorRatio = 3.0;

/// Share of their rates that processes reach together on the dense interface.
constexpr double kInterfaceShare = 0.5;

double shared(double seconds, int processes) {
  return processes == 1 ? seconds : seconds / (kInterfaceShare * processes);
}

/// What a subtree adds up to.
struct Subtree {
  double factor = 0.0, inverse = 0.0, panels = 0.0;
  double both() const { return factor + inverse; }
};

std::vector<Subtree> subtrees(const CostModel& model, const Symbolic& s) {
  std::vector<Subtree> all(static_cast<size_t>(s.groups()));
  for (Index g = 0; g < s.groups(); ++g) {
    const StageSeconds own = frontSeconds(model, s, g);
    Subtree& here = all[g];
    here.factor += own.factor;
    here.inverse += own.inverse;
    here.panels += static_cast<double>(s.panelSize(g));
    if (s.parent[g] < 0) continue;
    Subtree& above = all[s.parent[g]];
    above.factor += here.factor;
    above.inverse += here.inverse;
    above.panels += here.panels;
  }
  return all;
}

/// Subtrees dealt out to processes, the largest first, each to the one with least so far.
struct Shares {
  std::vector<Subtree> of;
  double largest = 0.0, mean = 0.0, panels = 0.0;
  double boundary = 0.0;  ///< entries of the boundaries' squares, one triangle
  double widest = 0.0;    ///< rows of the largest boundary

  Shares(const Symbolic& s, const std::vector<Subtree>& all, std::vector<Index> roots,
         int processes)
      : of(static_cast<size_t>(processes)) {
    std::sort(roots.begin(), roots.end(),
              [&](Index a, Index b) { return all[a].both() > all[b].both(); });
    const auto heavier = [this](size_t a, size_t b) { return of[a].both() > of[b].both(); };
    std::priority_queue<size_t, std::vector<size_t>, decltype(heavier)> least(heavier);
    for (size_t p = 0; p < of.size(); ++p) least.push(p);
    for (const Index g : roots) {
      const size_t p = least.top();
      Subtree& share = of[p];
      least.pop();
      share.factor += all[g].factor;
      share.inverse += all[g].inverse;
      share.panels += all[g].panels;
      least.push(p);
      const double below = s.below(g);
      boundary += 0.5 * below * (below + 1.0);
      widest = std::max(widest, below);
    }
    for (const Subtree& share : of) {
      largest = std::max(largest, share.both());
      mean += share.both() / processes;
      panels = std::max(panels, share.panels);
    }
  }
};

DomainsPlan evaluated(const CostModel& model, const Symbolic& s, const Shares& shares,
                      double interface, double everywhere, int processes) {
  DomainsPlan plan;
  plan.processes = processes;
  plan.interfaceUnknowns = static_cast<std::int64_t>(interface);
  plan.balance = shares.mean > 0.0 ? shares.largest / shares.mean : 1.0;
  // Schur complements go to where the interface lies, and blocks of its inverse back.
  plan.messageBytes = 2.0 * sizeof(double) * shares.boundary;
  const double message = plan.messageBytes / 2.0 / kNetwork / processes + kLatency * processes;
  const auto worst = std::max_element(shares.of.begin(), shares.of.end(),
                                      [](auto& a, auto& b) { return a.both() < b.both(); });
  plan.seconds = {worst->factor + message, worst->inverse + message};
  if (interface > 0.0) {
    plan.seconds.factor += shared(model.factor.seconds(interface, 0.0), processes);
    plan.seconds.inverse += shared(model.inverse.seconds(interface, 0.0), processes);
  }
  // The panels, a share of what else one process has, its square of the boundary, and its part of
  // the interface and of the interface's inverse.
  const double share = shares.panels / std::max(1.0, static_cast<double>(s.storage()));
  plan.bytes =
      share * everywhere + sizeof(double) * (shares.panels + shares.widest * shares.widest +
                                             2.0 * interface * interface / processes);
  return plan;
}

}  // namespace

DomainsPlan planDomains(const CostModel& model, const Symbolic& s, double entriesGiven,
                        int processes) {
  const std::vector<Subtree> all = subtrees(model, s);
  const StageSeconds common = commonSeconds(model, s, entriesGiven, 1);
  // Beside the panels, a process has its share of what a single one has.
  const double beside =
      std::max(korin::sparse::frontMemory(s, 1), korin::sparse::inverseMemory(s, 1)) +
      (sizeof(double) + sizeof(Index)) * entriesGiven +
      sizeof(Index) * 2.0 * static_cast<double>(s.rows.size());
  // A heap of the subtrees that are left, the heaviest first.
  const auto lighter = [&](Index a, Index b) { return all[a].both() < all[b].both(); };
  std::vector<Index> roots;
  for (Index g = 0; g < s.groups(); ++g) {
    if (s.parent[g] < 0) roots.push_back(g);
  }
  std::make_heap(roots.begin(), roots.end(), lighter);
  const auto total = [](const StageSeconds& t) { return t.factor + t.inverse; };
  DomainsPlan best;
  best.seconds.factor = std::numeric_limits<double>::infinity();
  double interface = 0.0;
  int looked = 0;
  for (int cuts = 0; !roots.empty(); ++cuts) {
    // Each step is looked at first, later ones at ever larger distances.
    if (cuts == 0 || cuts > looked + looked / 16) {
      looked = cuts;
      const DomainsPlan here =
          evaluated(model, s, Shares(s, all, roots, processes), interface, beside, processes);
      if (total(here.seconds) < total(best.seconds)) best = here;
      // From here on the interface alone takes longer than all of it did.
      const double alone = model.factor.seconds(std::max(1.0, interface), 0.0);
      if (shared(alone, processes) > total(best.seconds)) break;
    }
    if (cuts > kMostCuts * processes) break;
    std::pop_heap(roots.begin(), roots.end(), lighter);
    const Index top = roots.back();
    roots.pop_back();
    interface += s.width(top);
    korin::sparse::forEachChild(s, top, [&](Index child) {
      roots.push_back(child);
      std::push_heap(roots.begin(), roots.end(), lighter);
    });
  }
  best.seconds.factor += common.factor / processes;
  best.seconds.inverse += common.inverse / processes;
  return best;
}

SolvesPlan planSolves(const CostModel& model, const Symbolic& s, int processes) {
  constexpr double kWidth = 256.0, kBelow = 1024.0;
  const double rate = kWidth * kBelow * kBelow / model.factor.seconds(kWidth, kBelow);
  SolvesPlan plan;
  std::vector<double> path(static_cast<size_t>(s.groups()));
  double factor = 0.0;
  for (Index g = s.groups(); g-- > 0;) {
    path[g] = static_cast<double>(s.panelSize(g)) + (s.parent[g] >= 0 ? path[s.parent[g]] : 0.0);
    // Forwards and backwards, for each unknown of the group.
    plan.operations += 2.0 * s.width(g) * path[g];
    factor += frontSeconds(model, s, g).factor;
  }
  plan.seconds = {kFactorRatio * factor / processes,
                  plan.operations / (kSolvesRate * rate) / processes};
  return plan;
}

}  // namespace zeph
