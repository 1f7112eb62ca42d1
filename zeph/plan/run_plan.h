// What a run would take, on one machine or several, before it is made.
#ifndef ZEPH_PLAN_RUN_PLAN_H
#define ZEPH_PLAN_RUN_PLAN_H

#include <algorithm>
#include <cstdint>
#include <optional>

#include "zeph/factor/lu_backend.h"
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
/// A is cut as the processes would cut it, and each domain analysed: that takes as long again as
/// ordering and analysing A.
struct DomainsPlan {
  int processes = 1;
  std::int64_t interfaceUnknowns = 0;
  double balance = 1.0;       ///< the largest share of the work over the mean
  double factorBytes = 0.0;   ///< that the process with most holds of the factor
  double bytes = 0.0;         ///< that it needs at its peak, for all variances
  double messageBytes = 0.0;  ///< sent by all of them
  StageSeconds seconds;
};

/// The same run by MUMPS on so many processes: a factorisation, and the diagonal of the inverse by
/// a solve for every unknown, on the path from it to its root.
struct SolvesPlan {
  double operations = 0.0;  ///< of all solves, multiplications and additions in pairs
  StageSeconds seconds;
};

struct RunPlan {
  Report report;  ///< as from plan(), the seconds on the options' threads
  std::optional<LuPlan>
      lu;                  ///< on the LU route, where the build has it; then nothing but inputBytes
  MemoryPlan memory;       ///< panels in memory
  MemoryPlan leastMemory;  ///< the same where threads help one another instead of going apart
  MemoryPlan factorInFile;  ///< panels, and nothing else, in a scratch file
  MemoryPlan besideFile;    ///< the least: all that can be in a scratch file is there
  double panels = 0.0;      ///< bytes of these
  double inputBytes = 0.0;  ///< that A takes meanwhile
  double program = 0.0;     ///< of the process by itself: code, and what libraries hold
  double results = 0.0;     ///< of the variances
  /// That more update matrices wait, and the heap keeps of what the factorisation gave back.
  double unreturned = 0.0;
  /// What the system shows of a process that makes the run and, as the command does, gives up A
  /// when the factor is there.
  double process() const {
    return program + std::max(inputBytes + std::max(memory.analysis, memory.factorisation),
                              memory.inversion + unreturned + results);
  }
  StageSeconds oneThread;
  /// With the panels, and nothing else, in a scratch file: written and read while others are worked
  /// on.
  StageSeconds scratch;
  double scratchBytes = 0.0;           ///< written to it
  std::optional<DomainsPlan> domains;  ///< for two processes and more, where A can be cut
  std::optional<SolvesPlan> solves;    ///< the same
};

/// Orders and analyses A as Factor would, and predicts the rest; on the LU route only bounds. No
/// more threads count than there are processors. Throws what plan() throws.
RunPlan planRun(const SparseMatrix& A, const Options& options, const CostModel& model,
                int processes = 1);

/// Of A, which is symmetric with a positive diagonal and whose compressed graph has so many nodes.
/// Throws std::bad_alloc, also where A's graph is too large to be cut, which the processes would
/// end with.
DomainsPlan planDomains(const CostModel& model, const SparseMatrix& A, double nodes, int processes);
/// A has so many entries in both triangles.
SolvesPlan planSolves(const CostModel& model, const korin::sparse::Symbolic& symbolic,
                      double entriesOfA);

}  // namespace zeph

#endif
