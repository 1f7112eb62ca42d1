// Stage names and elapsed time on a terminal, and a clean stop on Ctrl-C.
#ifndef ZEPH_CLI_TERMINAL_PROGRESS_H
#define ZEPH_CLI_TERMINAL_PROGRESS_H

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "zeph/checks/progress.h"

namespace zeph {

/// Shows the current stage on standard error once the work has taken a second, when standard error
/// is a terminal. Notes are always written, a line each.
class TerminalProgress : public Progress {
 public:
  TerminalProgress();
  ~TerminalProgress() override;

  void stage(const char* name) const override;
  void note(const std::string& sentence) const override;

  /// Ends the display, so that what is printed next starts on a clean line.
  void finish() const;

 private:
  void show();

  using Clock = std::chrono::steady_clock;
  const bool terminal_;
  const Clock::time_point start_ = Clock::now();
  mutable std::mutex mutex_;
  mutable std::condition_variable wake_;
  mutable std::string stage_;
  mutable Clock::time_point stageStart_ = start_;
  mutable bool shown_ = false;  // a stage line stands on the terminal
  mutable bool ended_ = false;
  std::thread display_;
};

/// From now on Ctrl-C, a termination request and a closed terminal stop the program with status 130
/// and leave no half-written file, unless the program was started with that signal ignored.
void stopCleanlyOnInterrupt(Progress& progress);

}  // namespace zeph

#endif
