#include <vector>

#include "zeph/plan/run_plan.h"

namespace zeph {
namespace {

using korin::sparse::Index;
using korin::sparse::Symbolic;

/// MUMPS's solves of sparse right-hand sides against our rate on a large front, and its
/// factorisation against ours: from bench/compare's tables of grids, on one thread.
constexpr double kSolvesRate = 0.5;
constexpr double kFactorRatio = 3.0;

}  // namespace

SolvesPlan planSolves(const CostModel& model, const Symbolic& s, int processes) {
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
  plan.seconds = {kFactorRatio * factor / processes,
                  plan.operations / (kSolvesRate * rate) / processes};
  return plan;
}

}  // namespace zeph
