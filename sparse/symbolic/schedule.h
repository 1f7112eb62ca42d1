// How the groups of a factor are dealt out to threads.
#ifndef ZEPH_SPARSE_SYMBOLIC_SCHEDULE_H
#define ZEPH_SPARSE_SYMBOLIC_SCHEDULE_H

#include <vector>

#include "kernels/team.h"
#include "sparse/symbolic/symbolic.h"

namespace korin::sparse {

/// Tasks of consecutive groups: either a single group near a root, whose work threads share, or
/// whole subtrees of the same parent, which one thread works off. No result depends on which.
struct Schedule {
  kernels::TaskForest forest;
  /// Task t has the groups first[t] .. first[t+1]-1; in postorder, like these.
  std::vector<Index> first{0};

  int tasks() const { return static_cast<int>(first.size()) - 1; }
};

/// Lets tasks begin in the order in which one thread works them off, which needs the least memory,
/// instead of those first that most waits for.
void beginInOrder(Schedule& schedule, kernels::Direction direction);

/// Estimated time of a group's front, in operations of the dense kernels. A kept group is only
/// assembled.
double frontWork(const Symbolic& symbolic, Index g);

/// For one thread each tree is a task, small ones together. Throws std::bad_alloc.
Schedule makeSchedule(const Symbolic& symbolic, int threads);

}  // namespace korin::sparse

#endif
