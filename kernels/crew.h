#ifndef ZEPH_KERNELS_CREW_H
#define ZEPH_KERNELS_CREW_H

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace korin::kernels {

class Crew;

/// A piece of work that a thread of a crew leaves to whichever thread comes to it first. What it
/// works on stands in a derived class:
///
///   struct Half : Task {
///     explicit Half(...) : Task(&Half::run, rank) {}
///     static void run(Task& task, Crew& crew) noexcept { auto& half = static_cast<Half&>(task); }
///   };
class Task {
 public:
  using Run = void (*)(Task&, Crew&) noexcept;

  /// `rank` bounds how deep threads nest: a task hands off tasks of lower rank only, and joins all
  /// of them before it returns.
  Task(Run run, int rank) : run_(run), rank_(rank) {}
  Task(const Task&) = delete;
  Task& operator=(const Task&) = delete;

 private:
  friend class Crew;
  enum class State { Waiting, Running, Done };

  Run run_;
  int rank_;
  State state_ = State::Waiting;
  Task* before_ = nullptr;  // neighbours in the line of those that wait
  Task* after_ = nullptr;
};

/// The threads of one call and the tasks that wait for them, oldest first. Threads are started when
/// there is work that is worth one, no more of them than there are processors, the caller's
/// included, however many tasks are handed off; all have ended when the crew is destroyed.
///
/// A lack of threads or memory is no error: whoever joins a task runs it. Nothing is thrown. On
/// each stack there are at most as many tasks inside one another as there are ranks.
class Crew {
 public:
  /// `threads` at most, the caller's included.
  explicit Crew(int threads);
  Crew(const Crew&) = delete;
  Crew& operator=(const Crew&) = delete;
  ~Crew();

  /// Lets another thread run `task`, which must stay where it is until `join` returns.
  /// `worthThread` tells whether it takes longer than starting a thread does.
  void handOff(Task& task, bool worthThread);

  /// Returns when `task` is done: runs it, if nobody has begun it, or else others of at most its
  /// rank meanwhile.
  void join(Task& task);

 private:
  void startHelper();
  void help();
  void run(Task& task, std::unique_lock<std::mutex>& lock);
  void wait(std::unique_lock<std::mutex>& lock);
  Task* nextFor(Task& joined) const;

  std::mutex mutex_;
  std::condition_variable changed_;  // a task came, is done, or there will be no more
  Task* first_ = nullptr;
  Task* last_ = nullptr;
  int mostHelpers_;
  int idle_ = 0;  // threads that wait
  bool finished_ = false;
  std::vector<std::thread> helpers_;
};

}  // namespace korin::kernels

#endif
