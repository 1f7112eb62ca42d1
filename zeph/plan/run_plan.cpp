#include "zeph/plan/run_plan.h"

#include <algorithm>
#include <memory>
#include <new>
#include <optional>

#include "kernels/processor.h"
#include "sparse/numeric/factorise.h"
#include "zeph/checks/guarded.h"
#include "zeph/factor/plan_structure.h"
#include "zeph/plan/run_seconds.h"

namespace zeph {
namespace {

/// What the analysis takes beside analysisBytes() for each node of the compressed graph, and how
/// much more where nested dissection is tried: from the same least squares.
constexpr double kPerNode = 30.0;
constexpr double kPerDissected = 250.0;

/// Share of the update matrices that the heap of several threads keeps when they are freed: 0.6 to
/// 1.1 on dissected grids in space, whose threads have large ones at the same time, 0.2 to 0.7 on
/// grids in the plane and pose graphs in space.
constexpr double kUnreturned = 0.5;
constexpr double kUnreturnedDissected = 0.9;

double bytesToAnalyse(const Report& r) {
  const auto unknowns = static_cast<double>(r.unknowns), nodes = static_cast<double>(r.groups);
  const double entries = 0.5 * (static_cast<double>(r.entriesOfA) + unknowns);
  const bool dissected = r.ordering == Ordering::NestedDissection;
  return analysisBytes(unknowns, entries) + (kPerNode + (dissected ? kPerDissected : 0.0)) * nodes;
}

/// Of the file that a run writes where only the panels lack room: update matrices and panels of the
/// inverse follow where there is none for them either.
double scratchBytes(const CholeskyBackend& factor) {
  return factor.panelBytes();
}

std::optional<DomainsPlan> plannedDomains(const CostModel& model, const SparseMatrix& A,
                                          double nodes, int processes) {
  try {
    return planDomains(model, A, nodes, processes);
  } catch (const std::bad_alloc&) {
    return std::nullopt;  // the processes would end with it as well
  }
}

}  // namespace

RunPlan planRun(const SparseMatrix& A, const Options& options, const CostModel& model,
                int processes) {
  return guarded(A.source, [&] {
    RunPlan plan;
    const auto entries = static_cast<double>(A.entries.size());
    plan.program = model.program;
    plan.inputBytes = entries * sizeof(Entry);
    const std::unique_ptr<CholeskyBackend> factor = plannedStructure(A, options, plan.report);
    if (factor == nullptr) {
      plan.lu = planLu(A);
      if (plan.lu) plan.report.entriesOfA = static_cast<std::int64_t>(plan.lu->entriesOfA);
      return plan;
    }
    const korin::sparse::Symbolic& s = factor->symbolic();
    const int threads = std::min(plan.report.threads, korin::kernels::availableProcessors());
    const StageSeconds seconds = runSeconds(model, s, entries, threads);
    plan.report.secondsFactorisation = seconds.factor;
    plan.report.secondsInverse = seconds.inverse;
    plan.oneThread = threads == 1 ? seconds : runSeconds(model, s, entries, 1);
    const double analysis = bytesToAnalyse(plan.report);
    const int apart = plan.report.threads;
    plan.memory = {analysis, factor->bytesToFactorise(apart), factor->bytesToInvert(apart)};
    plan.leastMemory = {analysis, factor->bytesToFactorise(1), factor->bytesToInvert(1)};
    const double panelsAtWork =
        korin::sparse::frontMemory(s, apart, {true, korin::sparse::kKeepNothing}) -
        korin::sparse::frontMemory(s, apart);
    plan.factorInFile = {analysis, plan.memory.factorisation - factor->panelBytes() + panelsAtWork,
                         plan.memory.inversion - factor->panelBytes()};
    plan.besideFile = {analysis, factor->bytesToFactoriseInFile(), factor->bytesToInvertInFile()};
    plan.results = sizeof(double) * static_cast<double>(plan.report.unknowns);
    if (threads > 1) {
      const bool dissected = plan.report.ordering == Ordering::NestedDissection;
      plan.unreturned =
          (dissected ? kUnreturnedDissected : kUnreturned) * korin::sparse::frontMemory(s, apart);
    }
    plan.panels = factor->panelBytes();
    plan.scratch = scratchSeconds(model, s, entries, seconds);
    plan.scratchBytes = scratchBytes(*factor);
    if (processes > 1) {
      plan.domains = plannedDomains(model, A, static_cast<double>(plan.report.groups), processes);
      plan.solves = planSolves(model, s, static_cast<double>(plan.report.entriesOfA));
    }
    return plan;
  });
}

}  // namespace zeph
