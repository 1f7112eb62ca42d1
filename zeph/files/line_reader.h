#ifndef ZEPH_FILES_LINE_READER_H
#define ZEPH_FILES_LINE_READER_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "zeph/error.h"

namespace zeph {

/// Input error at a line of a file: "FILE, line N: sentence".
inline Error errorAtLine(const std::string& file, std::size_t line, const std::string& sentence) {
  return Error(ErrorKind::Input, file + ", line " + std::to_string(line) + ": " + sentence);
}

/// Reads a text file line by line through one buffer that grows to the longest line. Line ends are
/// LF or CRLF; the last one may be missing. "-" is standard input.
class LineReader {
 public:
  /// Throws Error(Input) when the file cannot be opened.
  explicit LineReader(const std::string& path);
  ~LineReader();
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  /// The next line without its end, valid until the next call; false at the end of the file.
  bool next(std::string_view& line);

  /// Number of the line that next() returned last, from 1.
  std::size_t lineNumber() const { return lineNumber_; }

  /// Size of a regular file, 0 where it is not known (pipes).
  std::size_t fileBytes() const { return fileBytes_; }

  const std::string& path() const { return path_; }

  /// Error(Input) at the line that next() returned last.
  Error error(const std::string& sentence) const {
    return errorAtLine(path_, lineNumber_, sentence);
  }

 private:
  bool fill();

  std::string path_;
  int descriptor_ = -1;
  std::size_t fileBytes_ = 0;
  std::size_t lineNumber_ = 0;
  std::vector<char> buffer_;
  std::size_t begin_ = 0;  // unread part of the buffer: [begin_, end_)
  std::size_t end_ = 0;
};

}  // namespace zeph

#endif
