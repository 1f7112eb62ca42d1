#include "zeph/plan/run_plan.h"

#include <algorithm>
#include <memory>

#include "kernels/processor.h"
#include "zeph/checks/guarded.h"
#include "zeph/factor/plan_structure.h"
#include "zeph/plan/run_seconds.h"

namespace zeph {
namespace {

/// Bytes that assembly, ordering and analysis take for each entry of a triangle, each unknown, and
/// each node of the compressed graph; and how many more where nested dissection is tried. Least
/// squares over grids, networks, pose graphs and bundles of 10^4 to 10^5 unknowns.
constexpr double kPerEntry = 16.0;
constexpr double kPerUnknown = 85.0;
constexpr double kPerNode = 30.0;
constexpr double kPerDissected = 450.0;

double analysisBytes(const Report& r) {
  const auto unknowns = static_cast<double>(r.unknowns), nodes = static_cast<double>(r.groups);
  const double entries = 0.5 * (static_cast<double>(r.entriesOfA) + unknowns);
  const bool dissected = r.ordering == Ordering::NestedDissection;
  return kPerEntry * entries + kPerUnknown * unknowns +
         (kPerNode + (dissected ? kPerDissected : 0.0)) * nodes;
}

}  // namespace

RunPlan planRun(const SparseMatrix& A, const Options& options, const CostModel& model,
                int processes) {
  return guarded(A.source, [&] {
    RunPlan plan;
    const auto entries = static_cast<double>(A.entries.size());
    plan.inputBytes = entries * sizeof(Entry);
    const std::unique_ptr<CholeskyBackend> factor = plannedStructure(A, options, plan.report);
    if (factor == nullptr) return plan;
    const korin::sparse::Symbolic& s = factor->symbolic();
    const int threads = std::min(plan.report.threads, korin::kernels::availableProcessors());
    const StageSeconds seconds = runSeconds(model, s, entries, threads);
    plan.report.secondsFactorisation = seconds.factor;
    plan.report.secondsInverse = seconds.inverse;
    plan.oneThread = threads == 1 ? seconds : runSeconds(model, s, entries, 1);
    const double analysis = analysisBytes(plan.report);
    plan.memory = {analysis, factor->bytesToFactorise(false), factor->bytesToInvert(false)};
    plan.besideFile = {analysis, factor->bytesToFactorise(true), factor->bytesToInvert(true)};
    plan.panels = factor->panelBytes();
    plan.scratch = {std::max(seconds.factor, plan.panels / model.scratchWrite),
                    std::max(seconds.inverse, plan.panels / model.scratchRead)};
    if (processes > 1) {
      plan.domains = planDomains(model, s, entries, processes);
      plan.solves = planSolves(model, s, processes);
    }
    return plan;
  });
}

}  // namespace zeph
