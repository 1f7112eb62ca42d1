#ifndef ZEPH_ERROR_H
#define ZEPH_ERROR_H

#include <cstddef>
#include <stdexcept>
#include <string>

namespace zeph {

/// What went wrong, in the classes that a caller treats differently (see exitCode).
enum class ErrorKind {
  Usage,                ///< a request that cannot be meant: an unknown file ending, a bad name
  Input,                ///< a file that is missing, unreadable or malformed
  Unfit,                ///< a matrix of the wrong shape or form for the operation
  NotPositiveDefinite,  ///< the Cholesky factorisation broke down
  Singular,             ///< the matrix has no inverse to working precision
  Output,               ///< a result that cannot be written
  Memory,               ///< not enough memory
  Cancelled             ///< the caller asked to stop
};

/// The one exception of the checked layer. what() is one sentence for the user: the file, the line
/// or the row and column at fault as they stand in the file, the value, and what to do about it.
class Error : public std::runtime_error {
 public:
  Error(ErrorKind kind, const std::string& sentence) : std::runtime_error(sentence), kind_(kind) {}

  ErrorKind kind() const noexcept { return kind_; }

 private:
  ErrorKind kind_;
};

/// Input error at a line of a file: "FILE, line N: sentence".
inline Error errorAtLine(const std::string& file, std::size_t line, const std::string& sentence) {
  return Error(ErrorKind::Input, file + ", line " + std::to_string(line) + ": " + sentence);
}

/// Exit status of a program that ends with this error. 0 is success and 1 the negative answer of a
/// program that was asked a question (`zeph check` on an unfit matrix).
constexpr int exitCode(ErrorKind kind) noexcept {
  switch (kind) {
    case ErrorKind::Usage:
      return 2;
    case ErrorKind::Input:
      return 3;
    case ErrorKind::Unfit:
      return 4;
    case ErrorKind::NotPositiveDefinite:
      return 5;
    case ErrorKind::Singular:
      return 6;
    case ErrorKind::Output:
      return 7;
    case ErrorKind::Memory:
      return 8;
    case ErrorKind::Cancelled:
      return 130;
  }
  return 70;
}

}  // namespace zeph

#endif
