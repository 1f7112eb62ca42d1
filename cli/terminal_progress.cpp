#include "cli/terminal_progress.h"

#include <signal.h>
#include <unistd.h>

#include <cstdio>

#include "zeph/files/atomic_file.h"

namespace zeph {

namespace {

constexpr std::chrono::seconds kSilence{1};  // shorter work shows nothing
constexpr std::chrono::milliseconds kRefresh{200};
constexpr const char* kClearLine = "\r\033[K";

Progress* interrupted = nullptr;

extern "C" void onInterrupt(int) {
  interrupted->cancel();
  AtomicFile::stopAll();
  // A factorisation cannot be interrupted from outside, so the process ends here, unless a file is
  // being written: then the next write stops the work and the file's owner removes it.
  if (AtomicFile::temporariesInUse() != 0) return;
  constexpr char kMessage[] = "\nzeph: stopped on request; nothing was written\n";
  [[maybe_unused]] const auto written = ::write(STDERR_FILENO, kMessage, sizeof kMessage - 1);
  ::_exit(exitCode(ErrorKind::Cancelled));
}

}  // namespace

TerminalProgress::TerminalProgress() : terminal_(::isatty(STDERR_FILENO) != 0) {
  if (terminal_) display_ = std::thread([this] { show(); });
}

TerminalProgress::~TerminalProgress() {
  finish();
  if (display_.joinable()) display_.join();
}

void TerminalProgress::stage(const char* name) const {
  const std::lock_guard lock(mutex_);
  stage_ = name;
  stageStart_ = Clock::now();
}

void TerminalProgress::note(const std::string& sentence) const {
  const std::lock_guard lock(mutex_);
  std::fprintf(stderr, "%szeph: %s\n", shown_ ? kClearLine : "", sentence.c_str());
  shown_ = false;
}

void TerminalProgress::finish() const {
  {
    const std::lock_guard lock(mutex_);
    ended_ = true;
    if (shown_) std::fputs(kClearLine, stderr);
    shown_ = false;
  }
  wake_.notify_all();
}

void TerminalProgress::show() {
  std::unique_lock lock(mutex_);
  wake_.wait_for(lock, kSilence, [this] { return ended_; });
  while (!ended_) {
    if (!stage_.empty()) {
      const double seconds = std::chrono::duration<double>(Clock::now() - stageStart_).count();
      std::fprintf(stderr, "%s%s ... %.1f s", kClearLine, stage_.c_str(), seconds);
      std::fflush(stderr);
      shown_ = true;
    }
    wake_.wait_for(lock, kRefresh, [this] { return ended_; });
  }
}

void stopCleanlyOnInterrupt(Progress& progress) {
  interrupted = &progress;
  struct sigaction action = {};
  action.sa_handler = onInterrupt;
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction before = {};
    ::sigaction(signal, nullptr, &before);
    // nohup, and shells that start a program in the background, want it to go on.
    if (before.sa_handler != SIG_IGN) ::sigaction(signal, &action, nullptr);
  }
}

}  // namespace zeph
