#include "zeph/files/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "zeph/error.h"

namespace zeph {
namespace {

constexpr std::size_t kBufferBytes = std::size_t{1} << 18;

std::atomic<int> gTemporaries{0};
std::atomic<bool> gStopped{false};

Error cannotWrite(const std::string& path, int reason) {
  const std::string name = path == "-" ? "standard output" : path;
  return Error(ErrorKind::Output, "cannot write " + name + ": " + std::strerror(reason) +
                                      "; choose another output or free the place");
}

std::string resolveLinks(const std::string& path) {
  char* resolved = realpath(path.c_str(), nullptr);
  if (resolved == nullptr) return path;
  std::string result(resolved);
  std::free(resolved);
  return result;
}

}  // namespace

AtomicFile::AtomicFile(std::string path) : path_(std::move(path)), target_(path_) {
  if (path_ == "-") {
    descriptor_ = dup(STDOUT_FILENO);
    if (descriptor_ < 0) throw cannotWrite(path_, errno);
    return;
  }
  if (path_.empty()) throw Error(ErrorKind::Output, "the name of the output file is empty");
  struct stat existing {};
  if (stat(path_.c_str(), &existing) != 0) {
    if (errno != ENOENT) throw cannotWrite(path_, errno);
    openTemporary();
    return;
  }
  if (S_ISDIR(existing.st_mode)) throw cannotWrite(path_, EISDIR);
  if (access(path_.c_str(), W_OK) != 0) throw cannotWrite(path_, errno);
  if (S_ISREG(existing.st_mode)) {
    target_ = resolveLinks(path_);
    openTemporary();
    if (fchmod(descriptor_, existing.st_mode & 07777) != 0) fail();
    return;
  }
  descriptor_ = open(path_.c_str(), O_WRONLY | O_CLOEXEC);
  if (descriptor_ < 0) throw cannotWrite(path_, errno);
}

AtomicFile::~AtomicFile() {
  discard();
}

// The names are tried in turn, because a process that was killed may have left one behind.
void AtomicFile::openTemporary() {
  static std::atomic<unsigned> counter{0};
  do {
    temporary_ =
        target_ + "." + std::to_string(getpid()) + "-" + std::to_string(counter++) + ".tmp";
    descriptor_ = open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  } while (descriptor_ < 0 && errno == EEXIST);
  if (descriptor_ < 0) {
    temporary_.clear();
    throw cannotWrite(path_, errno);
  }
  gTemporaries.fetch_add(1);
}

void AtomicFile::fail() {
  const int reason = errno;
  discard();
  throw cannotWrite(path_, reason);
}

void AtomicFile::write(std::string_view text) {
  buffer_.append(text);
  if (buffer_.size() >= kBufferBytes) flush();
}

void AtomicFile::flush() {
  if (gStopped && !temporary_.empty()) {
    throw Error(ErrorKind::Cancelled, "stopped on request; nothing was written");
  }
  std::string_view rest = buffer_;
  while (!rest.empty()) {
    const ssize_t written = ::write(descriptor_, rest.data(), rest.size());
    if (written < 0) {
      if (errno == EINTR) continue;
      throw cannotWrite(path_, errno);
    }
    rest.remove_prefix(static_cast<std::size_t>(written));
  }
  buffer_.clear();
}

void AtomicFile::commit() {
  flush();
  const int status = close(descriptor_);
  descriptor_ = -1;
  if (status != 0) throw cannotWrite(path_, errno);
  if (temporary_.empty()) return;
  if (rename(temporary_.c_str(), target_.c_str()) != 0) throw cannotWrite(path_, errno);
  temporary_.clear();
  gTemporaries.fetch_sub(1);
}

void AtomicFile::discard() noexcept {
  if (descriptor_ >= 0) close(descriptor_);
  descriptor_ = -1;
  if (temporary_.empty()) return;
  unlink(temporary_.c_str());
  temporary_.clear();
  gTemporaries.fetch_sub(1);
}

void AtomicFile::requireWritable(const std::string& path) {
  AtomicFile probe(path);
}

void AtomicFile::stopAll(bool stop) noexcept {
  gStopped = stop;
}

int AtomicFile::temporariesInUse() noexcept {
  return gTemporaries.load();
}

bool hasEnding(std::string_view name, std::string_view ending) {
  if (name.size() < ending.size()) return false;
  name.remove_prefix(name.size() - ending.size());
  for (std::size_t k = 0; k < ending.size(); ++k) {
    const char c = name[k];
    const char lower = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    if (lower != ending[k]) return false;
  }
  return true;
}

}  // namespace zeph
