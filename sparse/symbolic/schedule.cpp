#include "sparse/symbolic/schedule.h"

#include <algorithm>
#include <limits>

namespace korin::sparse {
namespace {

/// Subtrees of up to this share of all work, by the number of threads, stay with one thread.
constexpr double kTasksPerThread = 12.0;
/// Less work than this is not worth a task: a few hundred microseconds.
constexpr double kLeastTask = 4e6;
/// What a front costs beside the operations on its entries: by itself and for each of its rows.
constexpr double kPerFront = 2000.0;
constexpr double kPerRow = 40.0;

}  // namespace

double frontWork(const Symbolic& symbolic, Index g) {
  const double w = symbolic.width(g);
  const double h = symbolic.height(g);
  if (symbolic.isKept(g)) return w * h + kPerFront + kPerRow * h;
  return w * (h * h - h * w + w * w / 3.0) + kPerFront + kPerRow * h;
}

void beginInOrder(Schedule& schedule, kernels::Direction direction) {
  const int step = direction == kernels::Direction::ChildrenFirst ? -1 : 1;
  for (int t = 0; t < schedule.tasks(); ++t) schedule.forest.priority[t] = step * t;
}

Schedule makeSchedule(const Symbolic& symbolic, int threads) {
  const Index groups = symbolic.groups();
  std::vector<double> subtree(static_cast<std::size_t>(groups));
  double total = 0.0;
  for (Index g = 0; g < groups; ++g) {
    const double own = frontWork(symbolic, g);
    total += own;
    subtree[g] += own;
    if (symbolic.parent[g] >= 0) subtree[symbolic.parent[g]] += subtree[g];
  }
  const double largest = threads <= 1 ? std::numeric_limits<double>::infinity()
                                      : std::max(total / (kTasksPerThread * threads), kLeastTask);

  Schedule schedule;
  std::vector<int> taskOf(static_cast<std::size_t>(groups), -1);
  std::vector<Index> above;  // the group that a task waits for, or is waited for by; -1 without one
  double collected = 0.0;
  bool open = false;  // whether the last task may take further subtrees
  for (Index g = 0; g < groups; ++g) {
    const Index parent = symbolic.parent[g];
    const bool whole = subtree[g] <= largest;
    // Below another group of a subtree that stays whole: comes with that one.
    if (whole && parent >= 0 && subtree[parent] <= largest) continue;
    if (whole && open && above.back() == parent && collected + subtree[g] <= largest) {
      schedule.first.back() = g + 1;
      collected += subtree[g];
    } else {
      schedule.first.push_back(g + 1);
      schedule.forest.priority.push_back(0.0);
      above.push_back(parent);
      collected = subtree[g];
      open = whole;
    }
    const int task = schedule.tasks() - 1;
    taskOf[g] = task;
    schedule.forest.priority.back() += subtree[g];
  }
  for (const Index group : above) {
    schedule.forest.parent.push_back(group < 0 ? -1 : taskOf[group]);
  }
  return schedule;
}

}  // namespace korin::sparse
