#include "zeph/files/field_reader.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>

#include "zeph/files/number_text.h"

namespace zeph {
namespace {

constexpr std::string_view kBlanks = " \t";

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == text.npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) + 1 - first);
}

bool hasLetter(const std::string& word) {
  return std::any_of(word.begin(), word.end(),
                     [](char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; });
}

// Fortran writes 4.0d0 for 4.0e0.
std::string withPlainExponent(std::string word) {
  std::replace_if(
      word.begin(), word.end(), [](char c) { return c == 'd' || c == 'D'; }, 'e');
  return word;
}

// A word that is a number from one end to the other.
bool parsed(const std::string& word, double& value) {
  NumberScanner scan(word);
  const auto result = scan.real(value);
  if (result == NumberScanner::Result::TooLarge) return true;
  return result == NumberScanner::Result::Ok && scan.atEnd();
}

bool isNumber(const std::string& word) {
  double value = 0.0;
  return parsed(word, value) || parsed(withPlainExponent(word), value);
}

// "1,5": a number once its comma is a point.
bool hasDecimalComma(std::string word) {
  const std::size_t comma = word.find(',');
  if (comma == word.npos) return false;
  word[comma] = '.';
  return isNumber(word);
}

// 'r', 'c' or 'v' for a heading that says what its column holds.
char roleOf(std::string heading) {
  std::transform(heading.begin(), heading.end(), heading.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (heading.compare(0, 3, "row") == 0 || heading == "i" || heading == "r") return 'r';
  if (heading.compare(0, 3, "col") == 0 || heading == "j" || heading == "c") return 'c';
  if (heading.compare(0, 3, "val") == 0 || heading == "v" || heading == "data") return 'v';
  return '?';
}

}  // namespace

bool FieldReader::separated(std::string_view line) {
  return line.find_first_of(";\t,") != line.npos;
}

std::vector<std::string> FieldReader::split(std::string_view line) const {
  line = trimmed(line);
  char separator = ' ';
  for (const char c : {';', '\t', ','}) {
    if (line.find(c) != line.npos) {
      separator = c;
      break;
    }
  }
  std::vector<std::string> words;
  while (true) {
    std::size_t end = line.find(separator);
    if (!line.empty() && (line[0] == '"' || line[0] == '\'')) {
      const std::size_t quote = line.find(line[0], 1);
      if (quote == line.npos) throw error("a quote has no end");
      end = line.find(separator, quote);
    }
    std::string_view word = trimmed(line.substr(0, end));
    if (word.size() >= 2 && (word[0] == '"' || word[0] == '\'') && word.back() == word[0]) {
      word = trimmed(word.substr(1, word.size() - 2));
    }
    words.emplace_back(word);
    if (end == line.npos) break;
    line.remove_prefix(end + 1);
    if (separator == ' ') line = trimmed(line);
  }
  return words;
}

bool FieldReader::isHeading(std::string_view line) const {
  const std::vector<std::string> words = split(line);
  const bool headed = std::all_of(words.begin(), words.end(), [](const std::string& w) {
    return hasLetter(w) && !isNumber(w);
  });
  if (!headed) return false;
  constexpr std::array<char, 3> kOrder = {'r', 'c', 'v'};
  for (std::size_t k = 0; k < words.size() && words.size() == kOrder.size(); ++k) {
    const char role = roleOf(words[k]);
    if (role == '?' || role == kOrder[k]) continue;
    throw error("the columns are headed \"" + std::string(line.substr(0, 40)) +
                "\"; their order must be row, column, value");
  }
  return true;
}

bool FieldReader::next(std::string_view& line) {
  while (in_.next(line)) {
    line = trimmed(line.substr(0, line.find('#')));
    if (line.empty()) continue;
    const bool first = !begun_;
    begun_ = true;
    const char c = line[0];
    const bool maybe = first && !(c >= '0' && c <= '9');
    if (!maybe || !isHeading(line)) return true;
  }
  return false;
}

std::uint64_t FieldReader::index(const std::string& word, const char* what) const {
  NumberScanner scan(word);
  std::uint64_t index = 0;
  double value = 0.0;
  auto result = scan.index(index);
  if (result != NumberScanner::Result::TooLarge &&
      !(result == NumberScanner::Result::Ok && scan.atEnd())) {
    const bool whole = isNumber(word) && parsed(withPlainExponent(word), value) && value >= 0.0 &&
                       value == std::floor(value);
    if (!whole) {
      throw error("expected \"row,column,value\", found \"" + word.substr(0, 40) + "\" as the " +
                  what + " index");
    }
    if (value < static_cast<double>(kLargestSize)) return static_cast<std::uint64_t>(value);
    result = NumberScanner::Result::TooLarge;
  }
  if (result == NumberScanner::Result::TooLarge || index >= kLargestSize) {
    throw error(std::string("the ") + what + " index \"" + word.substr(0, 40) +
                "\" is larger than " + std::to_string(kLargestSize - 1) +
                ", the most that is supported");
  }
  return index;
}

double FieldReader::number(const std::string& word) const {
  double value = 0.0;
  if (word.empty()) throw error("the value is missing");
  if (!parsed(word, value) && !parsed(withPlainExponent(word), value)) {
    if (hasDecimalComma(word)) {
      throw error("the value \"" + word + "\" has a decimal comma; write decimal points, as in " +
                  word.substr(0, word.find(',')) + "." + word.substr(word.find(',') + 1));
    }
    throw error("the value \"" + word.substr(0, 40) + "\" is not a number");
  }
  if (!std::isfinite(value) && !options_.allowNonFinite) {
    throw error("the value \"" + word.substr(0, 40) +
                "\" is not finite; replace it by a finite number");
  }
  return value;
}

std::string FieldReader::commaAdvice(const std::vector<std::string>& words) const {
  const bool numbers = std::all_of(words.begin(), words.end(), isNumber);
  if (words.size() < 4 || words.size() > 6 || !numbers) return {};
  return "; if commas stand for decimal points in it, write points";
}

}  // namespace zeph
