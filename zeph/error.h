#ifndef ZEPH_ERROR_H
#define ZEPH_ERROR_H

#include <cstdint>
#include <stdexcept>
#include <string>

#include "zeph/api.h"

namespace zeph {

/// What went wrong, in the classes that a caller treats differently (see exitCode).
enum class ErrorKind {
  Usage,                ///< a request that cannot be meant: an unknown file ending, a null pointer
  Input,                ///< a file that is missing, unreadable or malformed
  Unfit,                ///< a matrix or an argument of the wrong shape or form for the operation
  NotPositiveDefinite,  ///< the Cholesky factorisation broke down
  Singular,             ///< the matrix has no inverse to working precision
  Output,               ///< a result or a scratch file that cannot be written
  Memory,               ///< not enough memory
  Cancelled             ///< the caller asked to stop
};

/// The one exception of the library. what() is one sentence for the user: the file, the line or the
/// row and column at fault (counted as in the file, from zero for matrices from memory), the value,
/// and what to do about it.
class ZEPH_API Error : public std::runtime_error {
 public:
  /// `row` is the zero-based row of the matrix at fault, -1 for none.
  Error(ErrorKind kind, const std::string& sentence, std::int64_t row = -1)
      : std::runtime_error(sentence), kind_(kind), row_(row) {}

  /// The class of what went wrong.
  ErrorKind kind() const noexcept { return kind_; }

  /// The row of the matrix at fault, zero-based; -1 where there is none.
  std::int64_t row() const noexcept { return row_; }

 private:
  ErrorKind kind_;
  std::int64_t row_;
};

/// Exit status of a program that ends with this error, and the status of the C interface. 0 is
/// success and 1 the negative answer of a program that was asked a question (`zeph check` on an
/// unfit matrix).
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
