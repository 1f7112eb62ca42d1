#include "distributed/scratch_folder.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "zeph/error.h"

namespace zeph::distributed {
namespace {

// Names where a signal handler finds them. Few factors are alive at once; of more, the files would
// stay after a signal.
constexpr int kMost = 16;
struct Place {
  std::atomic<bool> taken{false};
  std::atomic<bool> named{false};
  char path[PATH_MAX];
};
Place places[kMost];

// As the kernel gives them: opendir() takes memory, which a signal handler must not.
struct DirectoryEntry {
  std::uint64_t inode;
  std::int64_t offset;
  unsigned short length;
  unsigned char type;
  char name[1];
};

void removeFolder(const char* path) noexcept {
  const int folder = ::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) return;
  alignas(DirectoryEntry) char buffer[4096];
  for (;;) {
    const long bytes = ::syscall(SYS_getdents64, folder, buffer, sizeof buffer);
    if (bytes <= 0) break;
    for (long at = 0; at < bytes;) {
      const auto* entry = reinterpret_cast<const DirectoryEntry*>(buffer + at);
      ::unlinkat(folder, entry->name, 0);
      at += entry->length;
    }
  }
  ::close(folder);
  ::rmdir(path);
}

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};
struct sigaction before[std::size(kSignals)];

extern "C" void onSignal(int signal) {
  ScratchFolder::removeAll();
  for (std::size_t k = 0; k < std::size(kSignals); ++k) {
    if (kSignals[k] != signal) continue;
    ::sigaction(signal, &before[k], nullptr);
    ::raise(signal);  // which is blocked until this handler returns
  }
}

}  // namespace

ScratchFolder::ScratchFolder(const std::string& inside) {
  std::string path = inside + "/zeph-XXXXXX";
  if (path.size() >= PATH_MAX || ::mkdtemp(path.data()) == nullptr) {
    throw Error(ErrorKind::Output,
                "no scratch files can be written in " + inside + ": " +
                    std::strerror(path.size() >= PATH_MAX ? ENAMETOOLONG : errno));
  }
  path_ = path;
  for (Place& place : places) {
    if (place.taken.exchange(true)) continue;
    std::strcpy(place.path, path.c_str());
    place.named = true;
    break;
  }
}

ScratchFolder::~ScratchFolder() {
  removeFolder(path_.c_str());
  for (Place& place : places) {
    if (!place.named || path_ != place.path) continue;
    place.named = false;
    place.taken = false;
  }
}

void ScratchFolder::removeAll() noexcept {
  for (const Place& place : places) {
    if (place.named) removeFolder(place.path);
  }
}

void ScratchFolder::removeAllOnSignals() {
  struct sigaction action = {};
  action.sa_handler = onSignal;
  for (std::size_t k = 0; k < std::size(kSignals); ++k) {
    ::sigaction(kSignals[k], nullptr, &before[k]);
    if (before[k].sa_handler != SIG_IGN) ::sigaction(kSignals[k], &action, nullptr);
  }
}

}  // namespace zeph::distributed
