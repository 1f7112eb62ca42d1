#include "zeph/factor/scratch_file.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <system_error>

#include "zeph/checks/memory.h"
#include "zeph/error.h"

namespace zeph {
namespace {

using std::size_t;

Error scratchError(const std::string& sentence) {
  return {ErrorKind::Output, sentence};
}

// Closes the file unless it is given away.
struct Descriptor {
  int number = -1;
  ~Descriptor() {
    if (number >= 0) close(number);
  }
};

// A file with a name that is taken away at once, for file systems without files that have none.
int openUnlinked(const std::string& folder) {
  std::string name = folder + "/zeph-scratch-XXXXXX";
  const int descriptor = mkostemp(name.data(), O_CLOEXEC);
  if (descriptor < 0) return -1;
  if (unlink(name.c_str()) == 0) return descriptor;
  const int reason = errno;
  close(descriptor);
  errno = reason;
  return -1;
}

int openScratch(const std::string& folder) {
  const int descriptor = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
  if (descriptor >= 0) return descriptor;
  // What file systems and kernels without such files say.
  if (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL && errno != ENOENT) return -1;
  return openUnlinked(folder);
}

void requireBelowFileLimit(const std::string& what, double bytes) {
  rlimit limit{};
  if (getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return;
  const auto most = static_cast<double>(limit.rlim_cur);
  if (bytes <= most) return;
  throw scratchError(what + " needs a scratch file of " + memoryText(bytes) +
                     "; the limit on the size of files (ulimit -f) is " + memoryText(most) +
                     "; raise it");
}

Error diskFull(const std::string& folder, const std::string& what, double bytes, double free) {
  return scratchError(what + " needs " + memoryText(bytes) + " of disk; " + folder + " has " +
                      memoryText(free) + " free; name another folder or free the place");
}

double freeOn(int descriptor) {
  struct statvfs status {};
  if (fstatvfs(descriptor, &status) != 0) return 0.0;
  return static_cast<double>(status.f_bavail) * static_cast<double>(status.f_frsize);
}

}  // namespace

void requireScratchFolder(const std::string& folder) {
  struct stat status {};
  if (stat(folder.c_str(), &status) != 0) {
    const int reason = errno;
    if (reason == ENOENT) throw scratchError("there is no folder " + folder + " for scratch files");
    throwScratchError(folder, reason);
  }
  if (!S_ISDIR(status.st_mode)) {
    throw scratchError(folder + " is no folder; name one for scratch files");
  }
  if (access(folder.c_str(), W_OK | X_OK) != 0) throwScratchError(folder, errno);
  struct statfs kind {};
  if (statfs(folder.c_str(), &kind) != 0) throwScratchError(folder, errno);
  if (kind.f_type == TMPFS_MAGIC || kind.f_type == RAMFS_MAGIC) {
    throw scratchError("the folder " + folder +
                       " for scratch files lies in memory (tmpfs); name one on a disk");
  }
}

void throwScratchError(const std::string& folder, int reason) {
  throw scratchError("cannot keep a scratch file in " + folder + ": " + std::strerror(reason) +
                     "; name another folder or free the place");
}

std::unique_ptr<korin::kernels::PanelFile> makeScratchFile(const std::string& folder, size_t count,
                                                           double beside, const std::string& what,
                                                           const std::function<void()>& poll) {
  const size_t size = count * sizeof(double);
  const double bytes = static_cast<double>(size) + beside;
  requireScratchFolder(folder);
  requireBelowFileLimit(what, bytes);
  Descriptor file{openScratch(folder)};
  if (file.number < 0) throwScratchError(folder, errno);
  // Before the disk is filled up under others.
  const double free = freeOn(file.number);
  if (free < bytes) throw diskFull(folder, what, bytes, free);
  const int reason = korin::kernels::reserveRoom(file.number, 0, size, poll);
  if (reason == ENOSPC || reason == EDQUOT) throw diskFull(folder, what, bytes, free);
  if (reason != 0) throwScratchError(folder, reason);
  try {
    auto panels = std::make_unique<korin::kernels::PanelFile>(file.number, count);
    file.number = -1;
    return panels;
  } catch (const std::system_error& e) {
    if (e.code().value() != ENOMEM) throwScratchError(folder, e.code().value());
    throw Error(ErrorKind::Memory, what + " takes " + memoryText(bytes) +
                                       " of address space, more than the limit (ulimit -v) "
                                       "leaves; raise it");
  }
}

}  // namespace zeph
