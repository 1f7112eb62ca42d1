#include "kernels/team.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <queue>
#include <thread>
#include <utility>

namespace korin::kernels {
namespace {

/// How long the caller's thread may wait before it looks whether it is to stop.
constexpr std::chrono::milliseconds kPollInterval(50);

/// Leaves a task because another one has thrown.
struct Stopped {};

/// A loop that threads share.
struct Loop {
  const std::function<void(int)>* body;
  int count;
  int next = 0;
  int done = 0;
  bool open() const { return next < count; }
};

/// The tasks of a run and what each still waits for. Takes all its memory when it is made: while
/// threads are at work, nothing may fail.
struct Run {
  Run(const TaskForest& tasks, Direction way, const std::function<void(int, int)>& work)
      : forest(tasks),
        direction(way),
        body(work),
        waitsFor(tasks.parent.size(), 0),
        ready(std::less<Ranked>(), roomFor(tasks.parent.size())) {
    const int count = static_cast<int>(tasks.parent.size());
    remaining = count;
    if (direction == Direction::ParentsFirst) {
      children.resize(tasks.parent.size());
      for (int t = 0; t < count; ++t) {
        const int p = tasks.parent[static_cast<std::size_t>(t)];
        if (p >= 0) children[static_cast<std::size_t>(p)].push_back(t);
        waitsFor[static_cast<std::size_t>(t)] = p >= 0;
      }
    } else {
      for (const int p : tasks.parent) {
        if (p >= 0) ++waitsFor[static_cast<std::size_t>(p)];
      }
    }
    for (int t = 0; t < count; ++t) {
      if (waitsFor[static_cast<std::size_t>(t)] == 0) push(t);
    }
  }

  void push(int task) { ready.emplace(forest.priority[static_cast<std::size_t>(task)], task); }

  void release(int task) {
    if (--waitsFor[static_cast<std::size_t>(task)] == 0) push(task);
  }

  /// `task` is done: says whether others can begin.
  bool complete(int task) {
    --remaining;
    const std::size_t before = ready.size();
    if (direction == Direction::ParentsFirst) {
      for (const int child : children[static_cast<std::size_t>(task)]) release(child);
    } else if (const int p = forest.parent[static_cast<std::size_t>(task)]; p >= 0) {
      release(p);
    }
    return ready.size() != before || remaining == 0;
  }

  using Ranked = std::pair<double, int>;

  static std::vector<Ranked> roomFor(std::size_t tasks) {
    std::vector<Ranked> room;
    room.reserve(tasks);
    return room;
  }

  const TaskForest& forest;
  const Direction direction;
  const std::function<void(int, int)>& body;
  std::vector<int> waitsFor;
  std::vector<std::vector<int>> children;
  std::priority_queue<Ranked> ready;
  int remaining;
};

}  // namespace

class Team::State {
 public:
  State(int threads, std::function<void()> poll)
      : threads_(std::max(1, threads)), startable_(threads_ - 1), poll_(std::move(poll)) {}

  ~State() {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      ended_ = true;
    }
    changed_.notify_all();
    for (std::thread& helper : helpers_) helper.join();
  }

  int threads() const { return threads_; }

  void run(const TaskForest& forest, Direction direction,
           const std::function<void(int, int)>& body) {
    Run run(forest, direction, body);
    std::unique_lock<std::mutex> lock(mutex_);
    run_ = &run;
    begin();
    callHelpers(run.ready.size());
    while (run.remaining != 0) {
      if (!workOnce(lock, true, 0)) wait(lock);
    }
    run_ = nullptr;
    if (error_ != nullptr) std::rethrow_exception(std::exchange(error_, nullptr));
  }

  void forEach(int count, const std::function<void(int)>& body) {
    if (threads_ == 1) {
      for (int i = 0; i < count; ++i) {
        body(i);
        if (poll_) poll_();
      }
      return;
    }
    if (count <= 0) return;
    std::unique_lock<std::mutex> lock(mutex_);
    const bool alone = run_ == nullptr;
    if (alone) begin();
    Loop loop{&body, count};
    loops_.push_back(&loop);
    callHelpers(static_cast<std::size_t>(count));
    while (loop.done != count) {
      if (!workOnce(lock, false, 0)) wait(lock);
    }
    loops_.erase(std::find(loops_.begin(), loops_.end(), &loop));
    // A task whose loop was left out must not go on; its exception changes nothing further.
    if (error_ == nullptr) return;
    const std::exception_ptr thrown = error_;
    if (alone) error_ = nullptr;
    std::rethrow_exception(thrown);
  }

  void checkpoint() {
    if (stopped_.load(std::memory_order_relaxed)) throw Stopped();
    poll();
  }

 private:
  void begin() {
    owner_ = std::this_thread::get_id();
    error_ = nullptr;
    stopped_ = false;
  }

  /// Helpers that sleep are woken, others started, if `count` pieces of work are there. That no
  /// more can be started is no error: the work is done by fewer.
  void callHelpers(std::size_t count) {
    if (threads_ == 1 || count < 1) return;
    changed_.notify_all();
    while (static_cast<std::size_t>(idle_) + static_cast<std::size_t>(starting_) < count &&
           static_cast<int>(helpers_.size()) < startable_) {
      try {
        const int number = static_cast<int>(helpers_.size()) + 1;
        helpers_.emplace_back([this, number] { help(number); });
        ++starting_;
      } catch (const std::exception&) {
        startable_ = static_cast<int>(helpers_.size());
      }
    }
  }

  void help(int number) {
    std::unique_lock<std::mutex> lock(mutex_);
    --starting_;
    while (!ended_) {
      if (workOnce(lock, true, number)) continue;
      ++idle_;
      changed_.wait(lock);
      --idle_;
    }
  }

  /// Does one piece of work if there is one. Loops come first: a task waits for each.
  bool workOnce(std::unique_lock<std::mutex>& lock, bool tasksToo, int number) {
    for (Loop* loop : loops_) {
      if (!loop->open()) continue;
      const int i = loop->next++;
      perform(lock, [&] { (*loop->body)(i); });
      if (++loop->done == loop->count) changed_.notify_all();
      return true;
    }
    Run* const run = run_;
    if (!tasksToo || run == nullptr || run->ready.empty()) return false;
    const int task = run->ready.top().second;
    run->ready.pop();
    perform(lock, [&] { run->body(task, number); });
    if (run->complete(task)) {
      callHelpers(run->ready.size());
      changed_.notify_all();
    }
    return true;
  }

  template <class Work>
  void perform(std::unique_lock<std::mutex>& lock, const Work& work) {
    if (error_ != nullptr) return;
    lock.unlock();
    std::exception_ptr thrown;
    try {
      work();
      poll();
    } catch (...) {
      thrown = std::current_exception();
    }
    lock.lock();
    if (thrown != nullptr && error_ == nullptr) {
      error_ = thrown;
      stopped_ = true;
    }
  }

  /// On a helper's thread, or on one that came in through a task, nothing: the caller's polls.
  void poll() {
    if (poll_ && std::this_thread::get_id() == owner_) poll_();
  }

  void wait(std::unique_lock<std::mutex>& lock) {
    if (!poll_ || std::this_thread::get_id() != owner_) return changed_.wait(lock);
    if (changed_.wait_for(lock, kPollInterval) == std::cv_status::timeout) perform(lock, [] {});
  }

  const int threads_;
  /// Helpers that there are at most.
  int startable_;
  const std::function<void()> poll_;
  std::mutex mutex_;
  /// Work has come or a piece of it that others wait for is done.
  std::condition_variable changed_;
  std::vector<Loop*> loops_;
  Run* run_ = nullptr;
  std::exception_ptr error_;
  std::atomic<bool> stopped_{false};
  std::thread::id owner_ = std::this_thread::get_id();
  int idle_ = 0;
  int starting_ = 0;
  bool ended_ = false;
  std::vector<std::thread> helpers_;
};

Team::Team(int threads, std::function<void()> poll)
    : state_(std::make_unique<State>(threads, std::move(poll))) {}

Team::~Team() = default;

int Team::threads() const {
  return state_->threads();
}

void Team::run(const TaskForest& forest, Direction direction,
               const std::function<void(int, int)>& body) {
  state_->run(forest, direction, body);
}

void Team::forEach(int count, const std::function<void(int)>& body) {
  state_->forEach(count, body);
}

void Team::checkpoint() {
  state_->checkpoint();
}

}  // namespace korin::kernels
