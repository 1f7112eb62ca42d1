#include "zeph/files/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <span>
#include <system_error>
#include <utility>

#include "zeph/error.h"

namespace zeph {
namespace {

constexpr std::size_t kOutputBuffer = std::size_t{1} << 18;
constexpr std::size_t kLongText = std::size_t{1} << 16;

constexpr int kMostLinks = 40;  // as the system

std::atomic<int> gTemporaries{0};
std::atomic<bool> gStopped{false};
std::atomic<bool> gWritten{false};

Error cannotWrite(const std::string& path, int reason) {
  const std::string name = path == "-" ? "standard output" : path;
  return Error(ErrorKind::Output, "cannot write " + name + ": " + std::strerror(reason) +
                                      "; choose another output or free the place");
}

void requireNotStopped() {
  if (gStopped) throw Error(ErrorKind::Cancelled, "stopped on request; nothing was written");
}

// Where a write to path ends up: links are followed, also one that points nowhere yet.
std::string resolveLinks(std::string path) {
  std::error_code failure;
  for (int k = 0; k < kMostLinks; ++k) {
    const std::filesystem::path link(path);
    const std::filesystem::path next = std::filesystem::read_symlink(link, failure);
    if (failure) break;
    path = next.is_absolute() ? next.string() : (link.parent_path() / next).string();
  }
  return path;
}

std::string folderOf(const std::string& path) {
  const std::string folder = std::filesystem::path(path).parent_path().string();
  return folder.empty() ? "." : folder;
}

std::string descriptorPath(int descriptor) {
  return "/proc/self/fd/" + std::to_string(descriptor);
}

}  // namespace

AtomicFile::AtomicFile(std::string path, Temporary wanted)
    : path_(std::move(path)), inPlace_(true) {
  try {
    openFor(wanted);
  } catch (...) {
    discard();
    throw;
  }
}

void AtomicFile::openFor(Temporary wanted) {
  if (path_ == "-") {
    descriptor_ = dup(STDOUT_FILENO);
    if (descriptor_ < 0) throw cannotWrite(path_, errno);
    return;
  }
  if (path_.empty()) throw Error(ErrorKind::Output, "the name of the output file is empty");
  target_ = resolveLinks(path_);
  struct stat existing {};
  if (stat(path_.c_str(), &existing) != 0) {
    if (errno != ENOENT) throw cannotWrite(path_, errno);
    openTemporary(wanted);
    return;
  }
  if (S_ISDIR(existing.st_mode)) throw cannotWrite(path_, EISDIR);
  if (access(path_.c_str(), W_OK) != 0) throw cannotWrite(path_, errno);
  if (S_ISREG(existing.st_mode)) {
    openTemporary(wanted);
    if (fchmod(descriptor_, existing.st_mode & 07777) != 0) throw cannotWrite(path_, errno);
    return;
  }
  descriptor_ = open(path_.c_str(), O_WRONLY | O_CLOEXEC);
  if (descriptor_ < 0) throw cannotWrite(path_, errno);
}

AtomicFile::~AtomicFile() {
  discard();
}

// Calls take() with temporary names until one is not taken by a file, such as one that a process
// that was killed has left. The name counts as used before it is: a signal between the two must not
// find it unknown, and one that came before is to be seen here.
template <class Take>
bool AtomicFile::takeName(const Take& take) {
  static std::atomic<unsigned> counter{0};
  do {
    std::string name =
        target_ + "." + std::to_string(getpid()) + "-" + std::to_string(counter++) + ".tmp";
    gTemporaries.fetch_add(1);
    temporary_ = std::move(name);
    if (!gStopped && take()) return true;
    const int reason = errno;
    forgetName();
    requireNotStopped();
    errno = reason;
  } while (errno == EEXIST);
  return false;
}

void AtomicFile::forgetName() noexcept {
  temporary_.clear();
  gTemporaries.fetch_sub(1);
}

// False where the file system has no nameless files, or nothing could name them later.
bool AtomicFile::openNameless() {
  descriptor_ = open(folderOf(target_).c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666);
  if (descriptor_ < 0) return false;
  if (access(descriptorPath(descriptor_).c_str(), F_OK) == 0) return true;
  close(descriptor_);
  descriptor_ = -1;
  return false;
}

void AtomicFile::openTemporary(Temporary wanted) {
  inPlace_ = false;
  if (wanted == Temporary::Nameless && openNameless()) return;
  const bool opened = takeName([this] {
    descriptor_ = open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    return descriptor_ >= 0;
  });
  if (!opened) throw cannotWrite(path_, errno);
}

void AtomicFile::write(std::string_view text) {
  buffer_.append(text);
  if (buffer_.size() >= kOutputBuffer) flush();
}

void AtomicFile::writeWhenLong(std::string& text) {
  if (text.size() < kLongText) return;
  write(text);
  text.clear();
}

void AtomicFile::flush() {
  std::string_view rest = buffer_;
  if (inPlace_ && !rest.empty()) gWritten = true;
  while (!rest.empty()) {
    requireNotStopped();
    const ssize_t written = ::write(descriptor_, rest.data(), rest.size());
    if (written < 0) {
      if (errno == EINTR) continue;
      throw cannotWrite(path_, errno);
    }
    rest.remove_prefix(static_cast<std::size_t>(written));
  }
  buffer_.clear();
}

// Everything that can fail but the renaming.
void AtomicFile::prepare() {
  flush();
  requireNotStopped();
  // A link cannot replace a file, so a nameless file takes a name of its own first.
  if (!inPlace_ && temporary_.empty()) {
    const std::string nameless = descriptorPath(descriptor_);
    const bool named = takeName([&] {
      return linkat(AT_FDCWD, nameless.c_str(), AT_FDCWD, temporary_.c_str(), AT_SYMLINK_FOLLOW) ==
             0;
    });
    if (!named) throw cannotWrite(path_, errno);
  }
  const int status = close(descriptor_);
  descriptor_ = -1;
  if (status != 0) throw cannotWrite(path_, errno);
}

void AtomicFile::rename() {
  if (inPlace_) return;
  if (::rename(temporary_.c_str(), target_.c_str()) != 0) throw cannotWrite(path_, errno);
  gWritten = true;
  forgetName();
}

void AtomicFile::commitAll(AtomicFile* const* list, std::size_t count) {
  const std::span files(list, count);
  // What is written in place cannot be taken back, and so comes last.
  for (const bool inPlace : {false, true}) {
    for (AtomicFile* file : files) {
      if (file != nullptr && file->inPlace_ == inPlace) file->prepare();
    }
  }
  requireNotStopped();
  for (AtomicFile* file : files) {
    if (file != nullptr) file->rename();
  }
}

void AtomicFile::discard() noexcept {
  if (descriptor_ >= 0) close(descriptor_);
  descriptor_ = -1;
  if (temporary_.empty()) return;
  unlink(temporary_.c_str());
  forgetName();
}

void AtomicFile::requireWritable(const std::string& path) {
  struct stat existing {};
  if (path != "-" && stat(path.c_str(), &existing) == 0 && S_ISFIFO(existing.st_mode)) {
    // Opened and closed once, a pipe has ended for its reader.
    if (access(path.c_str(), W_OK) != 0) throw cannotWrite(path, errno);
    return;
  }
  AtomicFile probe(path);
}

bool AtomicFile::same(const std::string& path, const std::string& other) {
  if (path == "-" || other == "-") return path == other;
  std::error_code failure;
  if (std::filesystem::equivalent(path, other, failure)) return true;
  const auto place = [&](const std::string& name) {
    return std::filesystem::weakly_canonical(std::filesystem::absolute(resolveLinks(name)),
                                             failure);
  };
  return place(path) == place(other);
}

void AtomicFile::stopAll(bool stop) noexcept {
  gStopped = stop;
}

int AtomicFile::temporariesInUse() noexcept {
  return gTemporaries.load();
}

bool AtomicFile::anythingWritten() noexcept {
  return gWritten.load();
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
