#ifndef ZEPH_PLAN_STOPWATCH_H
#define ZEPH_PLAN_STOPWATCH_H

#include <ctime>

namespace zeph {

/// Processor time of this thread and wall time since it was made.
class Stopwatch {
 public:
  double seconds() const { return now(CLOCK_THREAD_CPUTIME_ID) - thread_; }
  double ofAllThreads() const { return now(CLOCK_PROCESS_CPUTIME_ID) - process_; }
  double wall() const { return now(CLOCK_MONOTONIC) - wall_; }

 private:
  static double now(clockid_t clock) {
    timespec t{};
    clock_gettime(clock, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
  }

  double thread_ = now(CLOCK_THREAD_CPUTIME_ID);
  double process_ = now(CLOCK_PROCESS_CPUTIME_ID);
  double wall_ = now(CLOCK_MONOTONIC);
};

}  // namespace zeph

#endif
