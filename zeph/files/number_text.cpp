#include "zeph/files/number_text.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace zeph {
namespace {

constexpr std::size_t kNumberBytes = 64;  // sign, 18 digits, point, exponent and to spare
constexpr std::ptrdiff_t kLongestWord = 40;

}  // namespace

NumberScanner::Result NumberScanner::integer(double& value) {
  if (atEnd()) return Result::Missing;
  const char* first = pastPlus();
  const char* p = first;
  if (p != end_ && *p == '-') ++p;
  const char* digits = p;
  while (p != end_ && isDigit(*p)) ++p;
  if (p == digits || !endsWord(p)) return Result::NotANumber;
  return real(value);
}

// std::from_chars leaves the value alone when it is not representable; strtod says on which side.
NumberScanner::Result NumberScanner::outOfRange(const char* first, const char* last,
                                                double& value) {
  value = std::strtod(std::string(first, last).c_str(), nullptr);
  if (std::isinf(value)) return Result::TooLarge;
  p_ = last;
  return Result::Ok;
}

std::string_view NumberScanner::word() {
  if (atEnd()) return {};
  const char* last = p_;
  while (!endsWord(last)) ++last;
  if (last == p_) ++last;
  return {p_, static_cast<std::size_t>(std::min(last - p_, kLongestWord))};
}

void appendShortest(std::string& out, double value) {
  char text[kNumberBytes];
  out.append(text, std::to_chars(text, text + kNumberBytes, value).ptr);
}

void appendDigits(std::string& out, double value, int significantDigits) {
  char text[kNumberBytes];
  const auto end = std::to_chars(text, text + kNumberBytes, value, std::chars_format::general,
                                 significantDigits);
  out.append(text, end.ptr);
}

void appendIndex(std::string& out, std::uint64_t value) {
  char text[kNumberBytes];
  out.append(text, std::to_chars(text, text + kNumberBytes, value).ptr);
}

std::string toText(double value) {
  std::string text;
  appendShortest(text, value);
  return text;
}

}  // namespace zeph
