#include "zeph/files/line_reader.h"

#include <cstring>

#include "zeph/files/file_kind.h"

namespace zeph {
namespace {

constexpr std::size_t kBufferBytes = std::size_t{1} << 18;  // stays in a second-level cache
constexpr std::size_t kLongestLine = kBufferBytes << 8;     // 64 MiB

constexpr std::size_t kHeadBytes = 4096;

}  // namespace

LineReader::LineReader(const std::string& path) : source_(path), buffer_(kBufferBytes) {
  while (end_ < kHeadBytes) {
    const std::size_t got = source_.read(buffer_.data() + end_, buffer_.size() - end_);
    if (got == 0) break;
    end_ += got;
  }
  if (head().substr(0, kByteOrderMark.size()) == kByteOrderMark) begin_ = kByteOrderMark.size();
}

void LineReader::requireText() const {
  const std::string foreign = foreignKind(head().substr(0, kHeadBytes));
  if (!foreign.empty()) throw Error(ErrorKind::Input, path() + " " + foreign);
}

std::vector<char> LineReader::rest(double memoryLimit) {
  std::vector<char> all(buffer_.begin() + static_cast<std::ptrdiff_t>(begin_),
                        buffer_.begin() + static_cast<std::ptrdiff_t>(end_));
  const std::vector<char> more = readAll(source_, memoryLimit);
  all.insert(all.end(), more.begin(), more.end());
  return all;
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
    throw errorAtLine(path(), lineNumber_ + 1, "the line has no end; this is not a matrix file");
  }
  if (end_ == buffer_.size()) buffer_.resize(2 * buffer_.size());
  const std::size_t got = source_.read(buffer_.data() + end_, buffer_.size() - end_);
  end_ += got;
  if (progress_ != nullptr && *progress_) (*progress_)(source_.share());
  return got > 0;
}

}  // namespace zeph
