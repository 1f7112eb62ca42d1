#ifndef ZEPH_CHECKS_PROGRESS_H
#define ZEPH_CHECKS_PROGRESS_H

#include <atomic>
#include <string>

#include "zeph/error.h"

namespace zeph {

/// What a long operation tells its caller while it runs, and the flag by which the caller stops it.
///
/// The base class is silent. A program derives from it to print stage names:
///
///     struct Printer : zeph::Progress {
///       void stage(const char* name) const override { std::fprintf(stderr, "%s ...\n", name); }
///     };
///
/// cancel() may be called from a signal handler or another thread. The operation notices it at its
/// next checkpoint, between stages; a factorisation that is under way is not interrupted.
class Progress {
 public:
  Progress() = default;
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  virtual ~Progress() = default;

  /// A stage begins; name is a short phrase such as "factorising".
  virtual void stage(const char* name) const { (void)name; }

  /// How much of the stage is done, 0 to 1.
  virtual void share(double done) const { (void)done; }

  /// One sentence worth telling the user, such as the route chosen and why.
  virtual void note(const std::string& sentence) const { (void)sentence; }

  void cancel() noexcept { cancelled_.store(true, std::memory_order_relaxed); }
  bool cancelled() const noexcept { return cancelled_.load(std::memory_order_relaxed); }

  /// Throws Error(Cancelled) when cancel() was called.
  void checkpoint() const {
    if (cancelled()) throw Error(ErrorKind::Cancelled, "stopped on request; nothing was written");
  }

  /// checkpoint() and stage() in one.
  void begin(const char* name) const {
    checkpoint();
    stage(name);
  }

 private:
  std::atomic<bool> cancelled_{false};
  static_assert(std::atomic<bool>::is_always_lock_free, "cancel() is called from signal handlers");
};

}  // namespace zeph

#endif
