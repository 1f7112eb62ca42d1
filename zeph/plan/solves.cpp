#include <vector>

#include "zeph/plan/run_plan.h"

namespace zeph {
namespace {

using korin::sparse::Index;
using korin::sparse::Symbolic;

/// Seconds of MUMPS on two processes of an EPYC, least squares over grids, networks, pose graphs, a
/// bundle and a band of 2*10^3 to 6*10^4 unknowns: its factorisation for each unknown and entry of
/// A, beside ours; its solves for each unknown, entry of L and entry of A (whose places it computes
/// for the check), beside operations at this share of our rate on a large front. Two processes
/// factorise 1.3 times as fast as one and take 1.3 times as long for the solves; more were not
/// measured.
constexpr double kFactorUnknown = 1.2e-6;
constexpr double kFactorEntryOfA = 1.3e-8;
constexpr double kFactorRatio = 1.6;
constexpr double kSolvesUnknown = 6.8e-6;
constexpr double kSolvesEntryOfL = 5e-8;
constexpr double kSolvesEntryOfA = 1.6e-7;
constexpr double kSolvesRate = 0.52;

}  // namespace

SolvesPlan planSolves(const CostModel& model, const Symbolic& s, double entriesOfA) {
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
  const double n = s.n;
  plan.seconds.factor = kFactorUnknown * n + kFactorEntryOfA * entriesOfA + kFactorRatio * factor;
  plan.seconds.inverse = kSolvesUnknown * n + kSolvesEntryOfL * static_cast<double>(s.entries) +
                         kSolvesEntryOfA * entriesOfA + plan.operations / (kSolvesRate * rate);
  return plan;
}

}  // namespace zeph
