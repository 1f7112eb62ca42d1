#include "distributed/scratch_folder.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "zeph/error.h"
#include "zeph/factor/scratch_file.h"

namespace zeph::distributed {
namespace {

Error noFiles(const std::string& inside, int reason) {
  return {ErrorKind::Output,
          "no scratch files can be written in " + inside + ": " + std::strerror(reason)};
}

}  // namespace

ScratchFolder::ScratchFolder(const std::string& inside) : path_(inside + "/zeph-XXXXXX") {
  requireScratchFolder(inside);
  if (::mkdtemp(path_.data()) == nullptr) throw noFiles(inside, errno);
  const int reason = watch();
  if (reason == 0) return;
  ::rmdir(path_.c_str());
  throw noFiles(inside, reason);
}

// In a session of its own, so that what is sent to a terminal's or a job's group does not reach it.
int ScratchFolder::watch() {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return errno;
  posix_spawn_file_actions_t files;
  posix_spawnattr_t attributes;
  posix_spawn_file_actions_init(&files);
  posix_spawnattr_init(&attributes);
  posix_spawn_file_actions_adddup2(&files, ends[0], 0);
  posix_spawn_file_actions_addopen(&files, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&files, 2, "/dev/null", O_WRONLY, 0);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
  std::string shell = "sh", option = "-c",
              script = "trap '' HUP INT TERM; read -r nothing; rm -rf -- \"$0\"";
  char* const arguments[] = {shell.data(), option.data(), script.data(), path_.data(), nullptr};
  const int reason = ::posix_spawn(&watcher_, "/bin/sh", &files, &attributes, arguments, environ);
  posix_spawn_file_actions_destroy(&files);
  posix_spawnattr_destroy(&attributes);
  ::close(ends[0]);
  if (reason != 0) ::close(ends[1]);
  if (reason == 0) alive_ = ends[1];
  return reason;
}

ScratchFolder::~ScratchFolder() {
  ::close(alive_);
  while (::waitpid(watcher_, nullptr, 0) < 0 && errno == EINTR) {
  }
}

}  // namespace zeph::distributed
