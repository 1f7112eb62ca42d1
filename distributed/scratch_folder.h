#ifndef ZEPH_DISTRIBUTED_SCRATCH_FOLDER_H
#define ZEPH_DISTRIBUTED_SCRATCH_FOLDER_H

#include <string>

namespace zeph::distributed {

/// A new folder of this process's own inside another one, removed with all files in it by the
/// destructor. The files of a process that is stopped by a signal or ends the run are removed by
/// removeAll(); only those of a killed one (SIGKILL) stay.
class ScratchFolder {
 public:
  /// Throws Error(Output) with the system's reason.
  explicit ScratchFolder(const std::string& inside);
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const std::string& path() const { return path_; }

  /// Removes those of all objects alive. May be called from a signal handler, after which the
  /// process ends.
  static void removeAll() noexcept;

  /// From now on SIGINT, SIGTERM and SIGHUP remove them before they do what they did.
  static void removeAllOnSignals();

 private:
  std::string path_;
};

}  // namespace zeph::distributed

#endif
