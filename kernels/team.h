// Threads that work on one computation together: tasks of a forest, and loops inside a task.
#ifndef ZEPH_KERNELS_TEAM_H
#define ZEPH_KERNELS_TEAM_H

#include <functional>
#include <memory>
#include <vector>

namespace korin::kernels {

/// A forest of tasks. Tasks are numbered so that parents come after their children.
struct TaskForest {
  /// -1 for a root.
  std::vector<int> parent;
  /// Of the tasks that can be run, the one with the largest number here is.
  std::vector<double> priority;
};

enum class Direction { ChildrenFirst, ParentsFirst };

/// The calling thread and the helpers it gets. Helpers are started when there is work for them and
/// end with the team, so a program that forks between two calls of ours has no threads of ours.
///
/// What is computed must not depend on who computes it: the team promises no order but that of the
/// forest. When a task or a loop's body throws, what has not begun is left out, and the first
/// exception comes out of `run` or, outside of a run, of `forEach`.
class Team {
 public:
  /// `threads` of them at most, the caller's included. `poll`, where given, is called on the
  /// caller's thread now and then, at the latest between two bodies and every 50 ms; it may throw.
  explicit Team(int threads, std::function<void()> poll = {});
  ~Team();
  Team(const Team&) = delete;
  Team& operator=(const Team&) = delete;

  int threads() const;

  /// Runs body(task, thread) for all tasks, 0 <= thread < threads(); two calls with the same thread
  /// number never overlap.
  void run(const TaskForest& forest, Direction direction,
           const std::function<void(int task, int thread)>& body);

  /// Runs body(i) for 0 <= i < count, in any order and on any threads, and returns when all are
  /// done. May be called inside a task, but not inside a body.
  void forEach(int count, const std::function<void(int)>& body);

  /// To be called by long tasks and bodies now and then: polls on the caller's thread, and throws
  /// on every thread once something else has thrown.
  void checkpoint();

 private:
  class State;
  std::unique_ptr<State> state_;
};

}  // namespace korin::kernels

#endif
