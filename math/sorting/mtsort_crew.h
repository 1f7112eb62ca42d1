#ifndef ZEPH_MATH_SORTING_MTSORT_CREW_H
#define ZEPH_MATH_SORTING_MTSORT_CREW_H

#include <sched.h>

#include <algorithm>
#include <array>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace korin {
namespace mtsort {

/// The processors that this thread may run on. (std::thread::hardware_concurrency reads a file and
/// ignores that a process may be confined to some of them.)
inline int availableProcessors() {
  cpu_set_t processors;
  if (sched_getaffinity(0, sizeof processors, &processors) != 0) return 1;
  return CPU_COUNT(&processors);
}

/// Starting and ending a thread takes as long as sorting a few thousand elements.
constexpr std::ptrdiff_t kWorthThread = 4096;

/// A range that one thread has handed off to be sorted by another one.
template <typename T>
struct HandOff {
  enum class State { Waiting, Running, Done };

  T* a = nullptr;
  std::ptrdiff_t n = 0;
  int threads = 0;  ///< the budget for this range
  int failures = 0;
  State state = State::Waiting;
  HandOff* next = nullptr;  ///< the one handed off after this one, while both wait
};

/// The threads of one call of mtSort and the ranges that wait for them, oldest first. Threads are
/// started when there is work for them that takes longer than starting one, no more of them than
/// there are processors, the caller's included, however many ranges are handed off.
template <typename T>
class Crew {
 public:
  using Range = HandOff<T>;

  /// `sort(range, crew)` sorts a range and may hand off parts of it.
  Crew(void (*sort)(const Range&, Crew&), int threads)
      : sort_(sort), mostHelpers_(std::min(threads, availableProcessors()) - 1) {}
  Crew(const Crew&) = delete;
  Crew& operator=(const Crew&) = delete;
  ~Crew() {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      finished_ = true;
    }
    changed_.notify_all();
    for (std::thread& helper : helpers_) helper.join();
  }

  /// Lets another thread sort `range`, which must stay where it is until `join` returns.
  void handOff(Range& range) {
    const std::lock_guard<std::mutex> lock(mutex_);
    (first_ != nullptr ? last_->next : first_) = &range;
    last_ = &range;
    if (idle_ > 0) {
      changed_.notify_all();
    } else if (range.n >= kWorthThread && static_cast<int>(helpers_.size()) < mostHelpers_) {
      startHelper();
    }
  }

  /// Returns when `range` is sorted; until then this thread sorts ranges that nobody has begun.
  void join(const Range& range) {
    std::unique_lock<std::mutex> lock(mutex_);
    while (range.state != Range::State::Done) {
      if (first_ != nullptr) {
        sortFirst(lock);
      } else {
        changed_.wait(lock);
      }
    }
  }

 private:
  /// A lack of threads or memory is no error: whoever joins a range sorts it.
  void startHelper() {
    try {
      helpers_.emplace_back([this] { help(); });
    } catch (const std::exception&) {
      mostHelpers_ = 0;
    }
  }

  void help() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!finished_) {
      if (first_ != nullptr) {
        sortFirst(lock);
      } else {
        ++idle_;
        changed_.wait(lock);
        --idle_;
      }
    }
  }

  void sortFirst(std::unique_lock<std::mutex>& lock) {
    Range& range = *first_;
    first_ = range.next;
    range.state = Range::State::Running;
    lock.unlock();
    try {
      sort_(range, *this);
    } catch (...) {
      // On purpose: what a range throws is not passed on.
    }
    lock.lock();
    range.state = Range::State::Done;
    changed_.notify_all();
  }

  void (*const sort_)(const Range&, Crew&);
  std::mutex mutex_;
  std::condition_variable changed_;  ///< a range came, is done, or there will be no more
  Range* first_ = nullptr;
  Range* last_ = nullptr;
  int mostHelpers_;
  int idle_ = 0;
  bool finished_ = false;
  std::vector<std::thread> helpers_;
};

/// The ranges that one call has handed off. They are joined in that order when the call ends.
template <typename T>
class HandOffs {
 public:
  explicit HandOffs(Crew<T>& crew) : crew_(crew) {}
  HandOffs(const HandOffs&) = delete;
  HandOffs& operator=(const HandOffs&) = delete;
  ~HandOffs() {
    for (std::size_t i = 0; i < count_; ++i) crew_.join(ranges_[i]);
  }

  void add(T* a, std::ptrdiff_t n, int threads, int failures) {
    HandOff<T>& range = ranges_[count_++];
    range.a = a;
    range.n = n;
    range.threads = threads;
    range.failures = failures;
    crew_.handOff(range);
  }

 private:
  // Every hand-off halves the budget, an int.
  static constexpr std::size_t kMost = 31;

  Crew<T>& crew_;
  std::size_t count_ = 0;
  std::array<HandOff<T>, kMost> ranges_;
};

}  // namespace mtsort
}  // namespace korin

#endif
