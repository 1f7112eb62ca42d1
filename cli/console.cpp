#include "cli/console.h"

#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "zeph/files/atomic_file.h"

namespace zeph {

namespace {

constexpr std::chrono::seconds kSilence{1};  // shorter work shows nothing
constexpr std::chrono::milliseconds kRefresh{200};
constexpr const char* kClearLine = "\r\033[K";
constexpr double kTellingShare = 0.02;  // before, the time left is a guess
constexpr int kUsualWidth = 80;

constexpr const char* kRed = "\033[1;31m";
constexpr const char* kYellow = "\033[1;33m";
constexpr const char* kPlain = "\033[0m";

Progress* interrupted = nullptr;
volatile sig_atomic_t muted = 0;  // another process says it

volatile sig_atomic_t unread = 0;  // a pipe that was written to has lost its reader

extern "C" void onBrokenPipe(int) {
  unread = 1;  // the write fails as well, so that whoever writes cleans up
}

extern "C" void onInterrupt(int) {
  interrupted->cancel();
  AtomicFile::stopAll();
  // A factorisation cannot be interrupted from outside, so the process ends here, unless a file is
  // being written: then the next write stops the work and the file's owner removes it.
  if (AtomicFile::temporariesInUse() != 0) return;
  if (muted != 0) ::_exit(exitCode(ErrorKind::Cancelled));
  for (const char* piece : {"\nzeph: ", stopSentence(), "\n"}) {
    [[maybe_unused]] const auto written = ::write(STDERR_FILENO, piece, std::strlen(piece));
  }
  ::_exit(exitCode(ErrorKind::Cancelled));
}

// A set NO_COLOR that is not empty asks for none (no-color.org).
bool mayColour() {
  const char* none = std::getenv("NO_COLOR");
  const char* terminal = std::getenv("TERM");
  return (none == nullptr || *none == '\0') &&
         (terminal == nullptr || std::strcmp(terminal, "dumb") != 0);
}

// What COLUMNS says, or the terminal itself.
int terminalWidth() {
  const char* columns = std::getenv("COLUMNS");
  const int told = columns == nullptr ? 0 : std::atoi(columns);
  if (told > 0) return told;
  winsize size{};
  if (::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  return kUsualWidth;
}

std::string duration(double seconds) {
  char text[32];
  if (seconds < 100.0) {
    std::snprintf(text, sizeof text, "%.0f s", seconds);
  } else {
    std::snprintf(text, sizeof text, "%.0f min", seconds / 60.0);
  }
  return text;
}

}  // namespace

Console::Console() : terminal_(::isatty(STDERR_FILENO) != 0), coloured_(terminal_ && mayColour()) {}

Console::~Console() {
  finish();
  if (display_.joinable()) display_.join();
}

void Console::start() {
  if (terminal_ && !manner.quiet && !manner.mute) display_ = std::thread([this] { show(); });
}

void Console::stage(const char* name) const {
  const std::lock_guard lock(mutex_);
  const Clock::time_point now = Clock::now();
  if (manner.verbose && !manner.mute && !stage_.empty()) {
    const double seconds = std::chrono::duration<double>(now - stageStart_).count();
    std::fprintf(stderr, "%szeph: %s took %.3f s\n", shown_ ? kClearLine : "", stage_.c_str(),
                 seconds);
    shown_ = false;
  }
  stage_ = name;
  share_ = 0.0;
  if (std::strcmp(name, "writing") == 0 && ::isatty(STDOUT_FILENO) != 0) clear();
  stageStart_ = now;
}

void Console::share(double done) const {
  const std::lock_guard lock(mutex_);
  share_ = done;
}

void Console::say(const char* colour, const char* word, const std::string& sentence) const {
  if (manner.mute) return;
  const std::lock_guard lock(mutex_);
  const bool painted = coloured_ && *colour != '\0';
  std::fprintf(stderr, "%s%szeph:%s%s %s\n", shown_ ? kClearLine : "", painted ? colour : "", word,
               painted ? kPlain : "", sentence.c_str());
  shown_ = false;
}

void Console::note(const std::string& sentence) const {
  if (!manner.quiet) say("", "", sentence);
}

void Console::warning(const std::string& sentence) const {
  say(kYellow, " warning:", sentence);
}

void Console::detail(const std::string& sentence) const {
  if (manner.verbose) say("", "", sentence);
}

void Console::error(const std::string& sentence) const {
  say(kRed, "", sentence);
}

void Console::finish() const {
  const std::lock_guard lock(mutex_);
  clear();
}

// Nothing is shown any more: what comes next may stand on the same terminal.
void Console::clear() const {
  ended_ = true;
  if (shown_) std::fputs(kClearLine, stderr);
  shown_ = false;
  wake_.notify_all();
}

// The longest of the forms that the terminal has room for.
std::string Console::line() const {
  const double seconds = std::chrono::duration<double>(Clock::now() - stageStart_).count();
  char percent[16] = "";
  if (share_ > 0.0) std::snprintf(percent, sizeof percent, " %.0f %%", 100.0 * share_);
  std::string left;
  if (share_ > kTellingShare) {
    left = ", " + duration(seconds * (1.0 - share_) / share_) + " left";
  }
  const char* comma = *percent == '\0' ? " " : ", ";
  const std::string forms[] = {stage_ + " ..." + percent + comma + duration(seconds) + left,
                               stage_ + percent + left, stage_ + percent};
  const auto width = static_cast<std::size_t>(terminalWidth() - 1);
  for (const std::string& form : forms) {
    if (form.size() <= width) return form;
  }
  return forms[2].substr(0, width);
}

void Console::show() {
  std::unique_lock lock(mutex_);
  wake_.wait_for(lock, kSilence, [this] { return ended_; });
  while (!ended_) {
    if (!stage_.empty()) {
      std::fprintf(stderr, "%s%s", kClearLine, line().c_str());
      std::fflush(stderr);
      shown_ = true;
    }
    wake_.wait_for(lock, kRefresh, [this] { return ended_; });
  }
}

void stopCleanlyOnInterrupt(Progress& progress, bool mute) {
  interrupted = &progress;
  muted = mute ? 1 : 0;
  struct sigaction action = {};
  action.sa_handler = onInterrupt;
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction before = {};
    ::sigaction(signal, nullptr, &before);
    // nohup, and shells that start a program in the background, want it to go on.
    if (before.sa_handler != SIG_IGN) ::sigaction(signal, &action, nullptr);
  }
  action.sa_handler = onBrokenPipe;
  struct sigaction before = {};
  ::sigaction(SIGPIPE, nullptr, &before);
  if (before.sa_handler != SIG_IGN) ::sigaction(SIGPIPE, &action, nullptr);
}

const char* stopSentence() {
  return AtomicFile::anythingWritten() ? "stopped on request after output had been written"
                                       : "stopped on request; nothing was written";
}

void endIfUnread() {
  if (unread == 0) return;
  ::signal(SIGPIPE, SIG_DFL);
  ::raise(SIGPIPE);
}

}  // namespace zeph
