// What a command says: stages and notes on standard error, figures for people or for machines.
#ifndef ZEPH_CLI_CONSOLE_H
#define ZEPH_CLI_CONSOLE_H

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "zeph/checks/progress.h"
#include "zeph/files/json_text.h"

namespace zeph {

/// What all commands can be asked for.
struct Manner {
  bool quiet = false;    ///< no progress and no notes; warnings stay
  bool verbose = false;  ///< notes on how a result came about
  bool json = false;     ///< figures as one JSON object
  bool mute = false;     ///< nothing at all: one of several processes, of which the first speaks
};

/// Shows the current stage on standard error once the work has taken a second, when standard error
/// is a terminal: its name, the share done and the time left, as far as the line has room. Notes
/// are written a line each.
class Console : public Progress {
 public:
  Console();
  ~Console() override;

  Manner manner;

  /// Figures of the result, for --json.
  JsonObject figures;

  /// Begins the display; `manner` is settled by then.
  void start();

  void stage(const char* name) const override;
  void share(double done) const override;
  void note(const std::string& sentence) const override;
  /// A note that --quiet does not silence: the result is to be doubted.
  void warning(const std::string& sentence) const;
  /// A note for --verbose alone.
  void detail(const std::string& sentence) const;
  /// The end without a result.
  void error(const std::string& sentence) const;

  /// Ends the display, so that what is printed next starts on a clean line.
  void finish() const;

 private:
  void show();
  void clear() const;
  std::string line() const;
  void say(const char* colour, const char* word, const std::string& sentence) const;

  using Clock = std::chrono::steady_clock;
  const bool terminal_;
  const bool coloured_;
  Clock::time_point start_ = Clock::now();
  mutable std::mutex mutex_;
  mutable std::condition_variable wake_;
  mutable std::string stage_;
  mutable double share_ = 0.0;
  mutable Clock::time_point stageStart_ = start_;
  mutable bool shown_ = false;  // a stage line stands on the terminal
  mutable bool ended_ = false;
  std::thread display_;
};

/// From now on Ctrl-C, a termination request and a closed terminal stop the program with status 130
/// and leave no half-written file, unless the program was started with that signal ignored. Writing
/// to a pipe that nobody reads fails from now on instead of ending the program at once. With `mute`
/// it stops without a word.
void stopCleanlyOnInterrupt(Progress& progress, bool mute = false);

/// What a stopped program says of its results.
const char* stopSentence();

/// Ends the program as a pipe without a reader usually does, without a word, if that has happened.
void endIfUnread();

}  // namespace zeph

#endif
