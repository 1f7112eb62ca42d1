#ifndef ZEPH_FILES_NUMBER_TEXT_H
#define ZEPH_FILES_NUMBER_TEXT_H

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace zeph {

/// Scans one line of numbers from left to right. Locale-free; a plus sign in front of a number is
/// accepted. Needs no terminator.
class NumberScanner {
 public:
  enum class Result { Ok, Missing, NotANumber, TooLarge };

  explicit NumberScanner(std::string_view line)
      : p_(line.data()), end_(line.data() + line.size()) {}

  /// Passes over blanks; true when nothing is left.
  bool atEnd() {
    while (p_ != end_ && isBlank(*p_)) ++p_;
    return p_ == end_;
  }

  /// Next character without passing over it. Only when not atEnd().
  char peek() const { return *p_; }

  /// Passes over blanks, one c, and reports whether it was there.
  bool accept(char c) {
    if (atEnd() || *p_ != c) return false;
    ++p_;
    return true;
  }

  /// Decimal digits; a number beyond 64 bits is TooLarge.
  Result index(std::uint64_t& value);

  /// A decimal number, "inf" or "nan", rounded to the nearest double. Numbers below the smallest
  /// denormal are 0; numbers above the largest double are infinite and TooLarge.
  Result real(double& value);

  /// Decimal digits with a sign, as a double.
  Result integer(double& value);

  /// The word at the scanner, for messages; at most 40 characters of it.
  std::string_view word();

 private:
  static bool isBlank(char c) { return c == ' ' || c == '\t'; }
  static bool isDigit(char c) { return c >= '0' && c <= '9'; }
  bool endsWord(const char* p) const { return p == end_ || isBlank(*p) || *p == ','; }
  const char* pastPlus() const { return p_ + 1 < end_ && *p_ == '+' && p_[1] != '-' ? p_ + 1 : p_; }
  Result outOfRange(const char* first, const char* last, double& value);

  const char* p_;
  const char* end_;
};

inline NumberScanner::Result NumberScanner::index(std::uint64_t& value) {
  if (atEnd()) return Result::Missing;
  const char* p = pastPlus();
  const auto [last, status] = std::from_chars(p, end_, value);
  if (status == std::errc::result_out_of_range) return Result::TooLarge;
  if (status != std::errc() || !endsWord(last)) return Result::NotANumber;
  p_ = last;
  return Result::Ok;
}

inline NumberScanner::Result NumberScanner::real(double& value) {
  if (atEnd()) return Result::Missing;
  const char* p = pastPlus();
  const auto [last, status] = std::from_chars(p, end_, value);
  if (!endsWord(last) || last == p) return Result::NotANumber;
  if (status == std::errc::result_out_of_range) return outOfRange(p, last, value);
  p_ = last;
  return Result::Ok;
}

/// Appends the shortest text that reads back to the same bits.
void appendShortest(std::string& out, double value);

/// Appends what printf("%.*g") prints.
void appendDigits(std::string& out, double value, int significantDigits);

void appendIndex(std::string& out, std::uint64_t value);

/// The shortest text that reads back to the same bits.
std::string toText(double value);

}  // namespace zeph

#endif
