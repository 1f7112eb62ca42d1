#include "zeph/plan/run_seconds.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <queue>
#include <utility>
#include <vector>

#include "sparse/symbolic/schedule.h"
#include "sparse/symbolic/tree.h"

namespace zeph {
namespace {

using korin::kernels::Direction;
using korin::kernels::TaskForest;
using korin::sparse::Index;

/// Fronts of more work than this are shared, as in the engine.
constexpr double kSharedFront = 8e6;
/// What of such a front's time threads can share.
constexpr double kSharedWork = 0.95;

/// Time of a task: of what its thread does alone, and of fronts that others may join in.
struct Task {
  double alone = 0.0;
  double shared = 0.0;
};

/// Columns that the engine eliminates at once, and the operations of a step of that from which on
/// it is shared.
constexpr double kChunk = 192.0;
constexpr double kSharedStep = 4e6;

/// The share of a front's operations that others may join in: neither the squares on the diagonal
/// nor small steps.
double sharedShare(double width, double below) {
  double all = 0.0, shared = 0.0;
  for (double left = width; left > 0.0; left -= kChunk) {
    const double columns = std::min(left, kChunk), rest = left + below - columns;
    all += columns * columns * columns / 3.0;
    for (const double step : {columns * columns * rest, columns * rest * rest}) {
      all += step;
      if (step > kSharedStep) shared += step;
    }
  }
  return shared / all;
}

/// How much faster a front is worked on by m threads.
double speed(double m) {
  return 1.0 / (1.0 - kSharedWork + kSharedWork / m);
}

/// Plays the forest through.
class Play {
 public:
  Play(const TaskForest& forest, std::vector<Task> tasks, int threads)
      : forest_(forest),
        tasks_(std::move(tasks)),
        threads_(threads),
        ready_([&forest](int a, int b) {
          return std::make_pair(forest.priority[a], -a) < std::make_pair(forest.priority[b], -b);
        }) {}

  double seconds(Direction direction) {
    const int count = static_cast<int>(tasks_.size());
    waiting_.assign(tasks_.size(), 0);
    next_.assign(tasks_.size(), {});
    for (int t = 0; t < count; ++t) {
      const int parent = forest_.parent[t];
      if (parent < 0) continue;
      const auto [before, after] = direction == Direction::ChildrenFirst
                                       ? std::make_pair(t, parent)
                                       : std::make_pair(parent, t);
      ++waiting_[after];
      next_[before].push_back(after);
    }
    for (int t = 0; t < count; ++t) {
      if (waiting_[t] == 0) ready_.push(t);
    }
    double time = 0.0;
    while (!ready_.empty() || !running_.empty()) time += advance();
    return time;
  }

 private:
  /// To the next moment at which a task, or its part that nobody joins in, is done.
  double advance() {
    while (!ready_.empty() && static_cast<int>(running_.size()) < threads_) {
      running_.push_back(ready_.top());
      ready_.pop();
    }
    const auto joined = std::count_if(running_.begin(), running_.end(),
                                      [this](int t) { return tasks_[t].alone <= 0.0; });
    const double idle = threads_ - static_cast<double>(running_.size());
    const double fast = joined > 0 ? speed(1.0 + idle / static_cast<double>(joined)) : 1.0;
    double step = std::numeric_limits<double>::infinity();
    for (const int t : running_) {
      step = std::min(step, tasks_[t].alone > 0.0 ? tasks_[t].alone : tasks_[t].shared / fast);
    }
    std::vector<int> still;
    for (const int t : running_) {
      Task& task = tasks_[t];
      double& part = task.alone > 0.0 ? task.alone : task.shared;
      const double left = part - step * (task.alone > 0.0 ? 1.0 : fast);
      // What rounding leaves is nothing.
      part = left > 1e-12 * step ? left : 0.0;
      if (task.alone > 0.0 || task.shared > 0.0) {
        still.push_back(t);
        continue;
      }
      for (const int after : next_[t]) {
        if (--waiting_[after] == 0) ready_.push(after);
      }
    }
    running_ = std::move(still);
    return step;
  }

  const TaskForest& forest_;
  std::vector<Task> tasks_;
  const int threads_;
  std::priority_queue<int, std::vector<int>, std::function<bool(int, int)>> ready_;
  std::vector<int> running_, waiting_;
  std::vector<std::vector<int>> next_;
};

/// The heap that update matrices come from which wait for another task: blocks larger than any that
/// was freed are mapped anew and go back to the system when they are used (the GNU C library's
/// dynamic threshold).
class Heap {
 public:
  explicit Heap(const CostModel& model) : model_(model) {}

  /// Seconds that the block of group g takes, of a task with the groups first .. last-1; after
  /// which those of its children are free.
  double waits(const korin::sparse::Symbolic& s, Index g, Index first, Index last) {
    const bool leaf = s.firstDescendant[g] == g;
    const double block = s.parent[g] >= last && !leaf ? bytes(s, g) : 0.0;
    const double seconds = block > threshold_ ? touchSeconds(model_, block) : 0.0;
    korin::sparse::forEachChild(s, g, [&](Index child) {
      if (child < first) threshold_ = std::max(threshold_, std::min(bytes(s, child), kMost));
    });
    return seconds;
  }

 private:
  static constexpr double kMost = 0x1p25;

  static double bytes(const korin::sparse::Symbolic& s, Index g) {
    const double below = s.below(g);
    return sizeof(double) * below * below;
  }

  const CostModel& model_;
  double threshold_ = 0x1p17;
};

}  // namespace

StageSeconds runSeconds(const CostModel& model, const korin::sparse::Symbolic& symbolic,
                        double entriesGiven, int threads) {
  const korin::sparse::Schedule schedule = korin::sparse::makeSchedule(symbolic, threads);
  std::vector<Task> factor(static_cast<std::size_t>(schedule.tasks())), inverse(factor);
  Heap heap(model);
  const double slowed = threads > 1 ? model.sharing : 1.0;
  for (int t = 0; t < schedule.tasks(); ++t) {
    for (Index g = schedule.first[t]; g < schedule.first[t + 1]; ++g) {
      const StageSeconds own = frontSeconds(model, symbolic, g);
      const bool joined = threads > 1 && korin::sparse::frontWork(symbolic, g) > kSharedFront;
      const double share = joined ? sharedShare(symbolic.width(g), symbolic.below(g)) : 0.0;
      factor[t].shared += share * slowed * own.factor;
      factor[t].alone += (1.0 - share) * slowed * own.factor;
      inverse[t].shared += share * slowed * own.inverse;
      inverse[t].alone += (1.0 - share) * slowed * own.inverse;
      if (threads > 1)
        factor[t].alone += heap.waits(symbolic, g, schedule.first[t], schedule.first[t + 1]);
    }
  }
  StageSeconds common = commonSeconds(model, symbolic, entriesGiven, threads);
  // What the inverse does with A's entries and rows is done by whoever has the panel.
  const double pages = pageSeconds(model, symbolic, entriesGiven, threads).inverse;
  common.inverse = pages + slowed * (common.inverse - pages) / threads;
  return {common.factor +
              Play(schedule.forest, std::move(factor), threads).seconds(Direction::ChildrenFirst),
          common.inverse +
              Play(schedule.forest, std::move(inverse), threads).seconds(Direction::ParentsFirst)};
}

}  // namespace zeph
