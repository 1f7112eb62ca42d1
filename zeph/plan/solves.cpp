#include <vector>

#include "zeph/plan/run_plan.h"

namespace zeph {
namespace {

using korin::sparse::Index;
using korin::sparse::Symbolic;

/// Seconds of MUMPS on an EPYC, least squares over grids, networks, pose graphs, a bundle and a
/// band of 10^3 to 6*10^4 unknowns: its factorisation for each unknown, beside ours; its solves for
/// each unknown, entry of L and entry of A (whose places it computes for the check), beside
/// operations at this share of our rate on a large front.
constexpr double kFactorUnknown = 3e-6;
constexpr double kFactorRatio = 1.0;
constexpr double kSolvesUnknown = 2.2e-6;
constexpr double kSolvesEntryOfL = 1e-7;
constexpr double kSolvesEntryOfA = 6e-8;
constexpr double kSolvesRate = 0.32;
/// What each further process adds to the speed of one, with two.
constexpr double kGain = 0.6;

}  // namespace

SolvesPlan planSolves(const CostModel& model, const Symbolic& s, double entriesOfA, int processes) {
  constexpr double kWidth = 256.0, kBelow = 1024.0;
  const double rate = kWidth * kBelow * kBelow / model.factor.seconds(kWidth, kBelow);
  SolvesPlan plan;
  std::vector<double> path(static_cast<std::size_t>(s.groups()));
  double factor = 0.0;
  for (Index g = s.groups(); g-- > 0;) {
    path[g] = static_cast<double>(s.panelSize(g)) + (s.parent[g] >= 0 ? path[s.parent[g]] : 0.0);
    // Forwards and backwards, for each unknown of the group.
    plan.operations += 2.0 * s.width(g) * path[g];
    factor += frontSeconds(model, s, g).factor;
  }
  const double n = s.n, speed = 1.0 + kGain * (processes - 1);
  const double solves = kSolvesUnknown * n + kSolvesEntryOfL * static_cast<double>(s.entries) +
                        kSolvesEntryOfA * entriesOfA + plan.operations / (kSolvesRate * rate);
  plan.seconds = {(kFactorUnknown * n + kFactorRatio * factor) / speed, solves / speed};
  return plan;
}

}  // namespace zeph
