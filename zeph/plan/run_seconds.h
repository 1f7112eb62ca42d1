#ifndef ZEPH_PLAN_RUN_SECONDS_H
#define ZEPH_PLAN_RUN_SECONDS_H

#include "zeph/plan/cost_model.h"

namespace zeph {

/// Wall time of a factorisation and of all variances after it, on `threads` threads that have a
/// processor each: the tasks of the engine's schedule are played through, the threads that are left
/// over helping with large fronts. `entriesGiven` are A's as the caller gives them. O(groups +
/// tasks x threads).
StageSeconds runSeconds(const CostModel& model, const korin::sparse::Symbolic& symbolic,
                        double entriesGiven, int threads);

/// The same with the panels in a scratch file, given the times in memory: the processor's time for
/// moving them, and waits where the disk is further behind than the file's window. O(groups).
StageSeconds scratchSeconds(const CostModel& model, const korin::sparse::Symbolic& symbolic,
                            double entriesGiven, const StageSeconds& inMemory);

}  // namespace zeph

#endif
