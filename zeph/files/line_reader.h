#ifndef ZEPH_FILES_LINE_READER_H
#define ZEPH_FILES_LINE_READER_H

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "zeph/error.h"
#include "zeph/files/byte_source.h"

namespace zeph {

/// Input error at a line of a file: "FILE, line N: sentence".
inline Error errorAtLine(const std::string& file, std::size_t line, const std::string& sentence) {
  return Error(ErrorKind::Input, file + ", line " + std::to_string(line) + ": " + sentence);
}

/// Reads a text file line by line through one buffer that grows to the longest line. Line ends are
/// LF or CRLF; the last one may be missing, and so may a byte order mark. "-" is standard input;
/// what is compressed with gzip is read as what is in it.
class LineReader {
 public:
  /// Throws Error(Input) when the file cannot be opened.
  explicit LineReader(const std::string& path);

  /// From now on progress(share of the file that has been read) is called with every buffer read.
  /// It must outlive the reading.
  void tell(const std::function<void(double)>& progress) { progress_ = &progress; }

  /// The beginning of the file, before the first next(): at least a few hundred bytes, unless it
  /// is shorter.
  std::string_view head() const { return {buffer_.data() + begin_, end_ - begin_}; }

  /// Throws Error(Input) that says what the file is where it is no text.
  void requireText() const;

  /// Everything from the beginning, for readers of bytes, instead of lines. Throws Error(Memory)
  /// beyond the limit, 0 being what there is.
  std::vector<char> rest(double memoryLimit);

  /// The next line without its end, valid until the next call; false at the end of the file.
  bool next(std::string_view& line);

  /// Number of the line that next() returned last, from 1.
  std::size_t lineNumber() const { return lineNumber_; }

  /// Size of a regular file, 0 where it is not known (pipes, compressed files).
  std::size_t fileBytes() const { return source_.bytes(); }

  /// As messages call the file.
  const std::string& path() const { return source_.name(); }

  /// Error(Input) at the line that next() returned last.
  Error error(const std::string& sentence) const {
    return errorAtLine(path(), lineNumber_, sentence);
  }

 private:
  bool fill();

  ByteSource source_;
  const std::function<void(double)>* progress_ = nullptr;
  std::size_t lineNumber_ = 0;
  std::vector<char> buffer_;
  std::size_t begin_ = 0;  // unread part of the buffer: [begin_, end_)
  std::size_t end_ = 0;
};

}  // namespace zeph

#endif
