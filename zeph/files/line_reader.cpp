#include "zeph/files/line_reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace zeph {
namespace {

constexpr std::size_t kBufferBytes = std::size_t{1} << 18;  // stays in a second-level cache
constexpr std::size_t kLongestLine = kBufferBytes << 8;     // 64 MiB

Error cannotRead(const std::string& path) {
  const std::string name = path == "-" ? "standard input" : path;
  return Error(ErrorKind::Input, "cannot read " + name + ": " + std::strerror(errno));
}

}  // namespace

LineReader::LineReader(const std::string& path) : path_(path), buffer_(kBufferBytes) {
  descriptor_ = path == "-" ? dup(STDIN_FILENO) : open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor_ < 0) throw cannotRead(path);
  struct stat status {};
  if (fstat(descriptor_, &status) == 0 && S_ISREG(status.st_mode)) {
    fileBytes_ = static_cast<std::size_t>(status.st_size);
  }
}

LineReader::~LineReader() {
  close(descriptor_);
}

bool LineReader::next(std::string_view& line) {
  std::size_t searched = begin_;
  const char* newline = nullptr;
  while (true) {
    newline =
        static_cast<const char*>(std::memchr(buffer_.data() + searched, '\n', end_ - searched));
    if (newline != nullptr) break;
    const std::size_t pending = end_ - begin_;
    if (!fill()) break;
    searched = begin_ + pending;
  }
  const char* first = buffer_.data() + begin_;
  const char* last = newline != nullptr ? newline : buffer_.data() + end_;
  if (newline == nullptr && first == last) return false;
  begin_ = static_cast<std::size_t>(last - buffer_.data()) + (newline != nullptr ? 1 : 0);
  if (last != first && last[-1] == '\r') --last;
  line = std::string_view(first, static_cast<std::size_t>(last - first));
  ++lineNumber_;
  return true;
}

// Moves the unread part to the front and reads behind it; false at the end of the file.
bool LineReader::fill() {
  std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
  end_ -= begin_;
  begin_ = 0;
  if (end_ == kLongestLine) {
    throw errorAtLine(path_, lineNumber_ + 1, "the line has no end; this is not a matrix file");
  }
  if (end_ == buffer_.size()) buffer_.resize(2 * buffer_.size());
  while (true) {
    const ssize_t got = read(descriptor_, buffer_.data() + end_, buffer_.size() - end_);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) throw cannotRead(path_);
    end_ += static_cast<std::size_t>(got);
    return got > 0;
  }
}

}  // namespace zeph
