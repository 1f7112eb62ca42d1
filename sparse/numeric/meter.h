#ifndef ZEPH_SPARSE_NUMERIC_METER_H
#define ZEPH_SPARSE_NUMERIC_METER_H

#include <atomic>

namespace korin::sparse {

/// Work between two looks whether to stop: some milliseconds.
inline constexpr double kWorkPerCheckpoint = 1e7;

/// Work done so far, in the unit of `frontWork`, added up by all threads and read by one that shows
/// progress.
class Meter {
 public:
  void add(double work) {
    double before = done_.load(std::memory_order_relaxed);
    while (!done_.compare_exchange_weak(before, before + work, std::memory_order_relaxed)) {
    }
  }
  double done() const { return done_.load(std::memory_order_relaxed); }

 private:
  std::atomic<double> done_{0.0};
};

}  // namespace korin::sparse

#endif
