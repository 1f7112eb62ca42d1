// What a run would take, on one machine or several, before it is made.
#ifndef ZEPH_PLAN_RUN_PLAN_H
#define ZEPH_PLAN_RUN_PLAN_H

#include <algorithm>
#include <cstdint>
#include <optional>

#include "zeph/options.h"
#include "zeph/plan/cost_model.h"
#include "zeph/report.h"
#include "zeph/sparse_matrix.h"

namespace zeph {

/// Bytes beside A as the caller has it. Those of the factorisation and of all variances after it
/// are what Factor asks for before it takes them (see Options::memoryLimit).
struct MemoryPlan {
  double analysis = 0.0;       ///< an estimate; what the ordering libraries take
  double factorisation = 0.0;  ///< the factor, and the update matrices that wait at one time
  double inversion = 0.0;      ///< the factor, and the longest path of the inverse
  double peak() const { return std::max({analysis, factorisation, inversion}); }
};

/// The same run with A's unknowns dealt out to processes, each of which eliminates its own before
/// what is left, the interface, is dealt with densely by all of them together.
///
/// An estimate, made before anybody cuts A: the top of the elimination tree is taken off, group by
/// group, until the subtrees below can be dealt out evenly; what is taken off is the interface.
struct DomainsPlan {
  int processes = 1;
  std::int64_t interfaceUnknowns = 0;
  double balance = 1.0;       ///< the largest share of the work over the mean
  double bytes = 0.0;         ///< of the largest process
  double messageBytes = 0.0;  ///< sent by all of them
  StageSeconds seconds;
};

/// The same run by MUMPS on so many processes, which share its work evenly at best: a
/// factorisation, and the diagonal of the inverse by a solve for every unknown, on the path from it
/// to its root.
struct SolvesPlan {
  double operations = 0.0;  ///< of all solves, multiplications and additions in pairs
  StageSeconds seconds;
};

struct RunPlan {
  Report report;            ///< as from plan(), the seconds on the options' threads
  MemoryPlan memory;        ///< panels in memory
  MemoryPlan besideFile;    ///< panels in a scratch file
  double panels = 0.0;      ///< bytes of these
  double inputBytes = 0.0;  ///< that A takes meanwhile
  StageSeconds oneThread;
  /// With the panels in a scratch file: written and read while others are worked on, so that the
  /// slower of disk and processor decides.
  StageSeconds scratch;
  std::optional<DomainsPlan> domains;  ///< for two processes and more
  std::optional<SolvesPlan> solves;    ///< the same
};

/// Orders and analyses A as Factor would, and predicts the rest; on the LU route only what is known
/// before. No more threads count than there are processors. Throws what plan() throws.
RunPlan planRun(const SparseMatrix& A, const Options& options, const CostModel& model,
                int processes = 1);

/// The estimates of a structure whose A has so many entries.
DomainsPlan planDomains(const CostModel& model, const korin::sparse::Symbolic& symbolic,
                        double entriesGiven, int processes);
SolvesPlan planSolves(const CostModel& model, const korin::sparse::Symbolic& symbolic,
                      int processes);

}  // namespace zeph

#endif
