#ifndef ZEPH_FACTOR_WATCH_H
#define ZEPH_FACTOR_WATCH_H

#include <algorithm>
#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "kernels/processor.h"
#include "sparse/numeric/meter.h"
#include "zeph/error.h"
#include "zeph/options.h"

namespace zeph {

/// Progress of one call: the stage it is in, the share done, and the caller's wish to stop.
class Watch {
 public:
  /// `options` must outlive it.
  explicit Watch(const Options& options) : options_(options) {}

  /// A stage begins that the meter will show as `work` when it is done.
  void begin(const char* stage, double work) {
    stage_ = stage;
    work_ = work;
    meter_.emplace();
    tell(0.0);
  }

  korin::sparse::Meter* meter() { return &*meter_; }

  /// For teams of threads: tells the caller from time to time. Throws what the caller throws, and
  /// Error(Cancelled) when it says no.
  std::function<void()> poll() {
    if (!options_.progress) return {};
    return [this] {
      if (Clock::now() - told_ < kInterval) return;
      tell(work_ > 0.0 ? std::min(1.0, meter_->done() / work_) : 0.0);
    };
  }

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::milliseconds kInterval{20};

  void tell(double share) {
    if (!options_.progress) return;
    told_ = Clock::now();
    if (options_.progress(stage_, share)) return;
    throw Error(ErrorKind::Cancelled, "stopped on request while " + std::string(stage_));
  }

  const Options& options_;
  const char* stage_ = "";
  double work_ = 0.0;
  std::optional<korin::sparse::Meter> meter_;
  Clock::time_point told_{};
};

/// The threads that the options ask for.
inline int threadCount(const Options& options) {
  return options.threads > 0 ? options.threads : korin::kernels::availableProcessors();
}

/// Seconds since it was made.
class StopWatch {
 public:
  double seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  }

 private:
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace zeph

#endif
