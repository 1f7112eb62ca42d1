#ifndef ZEPH_DISTRIBUTED_SCRATCH_FOLDER_H
#define ZEPH_DISTRIBUTED_SCRATCH_FOLDER_H

#include <sys/types.h>

#include <string>

namespace zeph::distributed {

/// A new folder of this process's own inside another one, removed with all files in it by the
/// destructor, or when the process ends, however that comes about: a shell waits for that and
/// removes it.
class ScratchFolder {
 public:
  /// Throws Error(Output) with the system's reason.
  explicit ScratchFolder(const std::string& inside);
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const std::string& path() const { return path_; }

 private:
  int watch();

  std::string path_;
  pid_t watcher_ = -1;
  /// Nobody writes to it: it is closed with this process, at the latest.
  int alive_ = -1;
};

}  // namespace zeph::distributed

#endif
