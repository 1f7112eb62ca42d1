#include "zeph/files/rutherford_boeing.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "zeph/files/entry_room.h"
#include "zeph/files/number_text.h"

namespace zeph {
namespace {

using std::size_t;
using std::string_view;

/// "(4E20.12)": how many numbers a line holds, and how wide each is.
struct Format {
  size_t count = 1, width = 0;
};

Format parsedFormat(const LineReader& in, string_view text) {
  const auto fail = [&] {
    return in.error("expected Fortran formats such as (10I8), found \"" +
                    std::string(text.substr(0, 40)) + "\"");
  };
  const auto numberAt = [&](size_t at) {
    size_t value = 0;
    std::from_chars(text.data() + at, text.data() + text.size(), value);
    return value;
  };
  const size_t letter = text.find_first_of("IiEeDdFfGg");
  if (letter == text.npos) throw fail();
  size_t first = letter;
  while (first > 0 && text[first - 1] >= '0' && text[first - 1] <= '9') --first;
  Format f;
  if (first < letter) f.count = numberAt(first);
  f.width = numberAt(letter + 1);
  constexpr size_t kMost = 1000;
  if (f.count == 0 || f.width == 0 || f.count > kMost || f.width > kMost) throw fail();
  return f;
}

std::vector<std::string> wordsOf(string_view line) {
  std::vector<std::string> words;
  for (NumberScanner scan(line); !scan.atEnd();) {
    const size_t from = line.find_first_not_of(" \t");
    const size_t end = std::min(line.find_first_of(" \t", from), line.size());
    words.emplace_back(line.substr(from, end - from));
    line.remove_prefix(end);
    scan = NumberScanner(line);
  }
  return words;
}

/// Numbers of fixed width, line after line. Writers that miscount their width leave blanks between
/// the numbers instead; where there are as many words as numbers, words they are.
class Fields {
 public:
  Fields(LineReader& in, Format format, std::uint64_t total)
      : in_(in), format_(format), left_(total) {}

  std::string next() {
    if (at_ == here_.size()) nextLine();
    return here_[at_++];
  }

 private:
  void nextLine() {
    string_view line;
    if (!in_.next(line)) {
      throw Error(ErrorKind::Input, in_.path() + " ends after line " +
                                        std::to_string(in_.lineNumber()) +
                                        " before all its entries; it is cut short");
    }
    const auto count = static_cast<size_t>(std::min<std::uint64_t>(left_, format_.count));
    left_ -= count;
    at_ = 0;
    here_ = wordsOf(line);
    if (here_.size() == count) return;
    here_.clear();
    for (size_t k = 0; k < count; ++k) {
      const size_t from = k * format_.width;
      const std::vector<std::string> word =
          wordsOf(from < line.size() ? line.substr(from, format_.width) : string_view());
      if (word.size() != 1) throw in_.error("a number is missing");
      here_.push_back(word[0]);
    }
  }

  LineReader& in_;
  Format format_;
  std::uint64_t left_;
  std::vector<std::string> here_;
  size_t at_ = 0;
};

std::uint64_t whole(const LineReader& in, string_view word, std::uint64_t low, std::uint64_t high) {
  std::uint64_t value = 0;
  const auto [end, status] = std::from_chars(word.data(), word.data() + word.size(), value);
  if (status == std::errc() && end == word.data() + word.size() && value >= low && value <= high) {
    return value;
  }
  throw in.error("expected a whole number from " + std::to_string(low) + " to " +
                 std::to_string(high) + ", found \"" + std::string(word) + "\"");
}

double real(const LineReader& in, std::string word, const ReadOptions& options) {
  std::replace_if(
      word.begin(), word.end(), [](char c) { return c == 'd' || c == 'D'; }, 'e');
  NumberScanner scan(word);
  double value = 0.0;
  const auto result = scan.real(value);
  if (result == NumberScanner::Result::NotANumber || !scan.atEnd()) {
    throw in.error("the value \"" + word + "\" is not a number");
  }
  if (!std::isfinite(value) && !options.allowNonFinite) {
    throw in.error("the value \"" + word + "\" is not finite; replace it by a finite number");
  }
  return value;
}

string_view headerLine(LineReader& in, string_view& line) {
  if (!in.next(line)) {
    throw Error(ErrorKind::Input, in.path() + " ends within its header; it is cut short");
  }
  return line;
}

struct BoeingHeader {
  std::string type;
  size_t rows = 0, cols = 0;
  std::uint64_t entries = 0;
  Format pointers, indices, values;
};

BoeingHeader readCards(LineReader& in) {
  BoeingHeader h;
  string_view line;
  headerLine(in, line);
  const std::vector<std::string> cards = wordsOf(headerLine(in, line));
  // Harwell-Boeing counts the lines of right-hand sides as well, and describes them on a line.
  const bool rightSides = cards.size() > 4 && cards[4] != "0";
  const std::vector<std::string> sizes = wordsOf(headerLine(in, line));
  if (sizes.size() < 4) throw in.error("expected the type, rows, columns and entries of a matrix");
  for (const char c : sizes[0]) {
    h.type += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  }
  h.rows = whole(in, sizes[1], 0, kLargestSize);
  h.cols = whole(in, sizes[2], 0, kLargestSize);
  h.entries = whole(in, sizes[3], 0, UINT64_MAX / 2);
  const bool readable = h.type.size() == 3 && (h.type[0] == 'R' || h.type[0] == 'I') &&
                        std::string("USZR").find(h.type[1]) != std::string::npos &&
                        h.type[2] == 'A';
  if (!readable) {
    throw in.error("matrices of the type \"" + h.type +
                   "\" are not read; real assembled ones are (RUA, RSA, RZA, RRA)");
  }
  headerLine(in, line);
  const std::string formats(line);
  const auto part = [&](size_t from, size_t length) {
    return parsedFormat(
        in, from < formats.size() ? string_view(formats).substr(from, length) : string_view());
  };
  h.pointers = part(0, 16);
  h.indices = part(16, 16);
  h.values = part(32, 20);
  if (rightSides) headerLine(in, line);
  return h;
}

}  // namespace

SparseMatrix readRutherfordBoeing(LineReader& in, const ReadOptions& options) {
  const BoeingHeader h = readCards(in);
  SparseMatrix m;
  m.source = in.path();
  m.indexBase = 1;
  m.rows = h.rows;
  m.cols = h.cols;
  if (h.type[1] == 'S') m.symmetry = Symmetry::Symmetric;
  if (h.type[1] == 'Z') m.symmetry = Symmetry::SkewSymmetric;
  if (m.symmetry != Symmetry::General && h.rows != h.cols) {
    throw in.error("a symmetric matrix must be square");
  }
  std::vector<std::uint64_t> starts;
  requireBytes("reading " + in.path(), 8.0 * static_cast<double>(h.cols), options.memoryLimit);
  Fields pointers(in, h.pointers, h.cols + 1);
  for (size_t c = 0; c <= h.cols; ++c) {
    starts.push_back(whole(in, pointers.next(), c == 0 ? 1 : starts.back(), h.entries + 1));
  }
  if (starts[0] != 1 || starts.back() != h.entries + 1) {
    throw in.error("the column pointers do not lead from 1 to the number of entries");
  }
  Fields indices(in, h.indices, h.entries);
  for (size_t c = 0; c < h.cols; ++c) {
    for (std::uint64_t k = starts[c]; k < starts[c + 1]; ++k) {
      const std::uint64_t row = whole(in, indices.next(), 1, h.rows);
      if (m.symmetry != Symmetry::General && row < c + 1) {
        throw in.error("row " + std::to_string(row) + " of column " + std::to_string(c + 1) +
                       " lies above the diagonal; a symmetric file stores what lies below");
      }
      growFor(m.entries, m.source, options.memoryLimit, h.entries);
      m.entries.push_back(
          {static_cast<std::uint32_t>(row - 1), static_cast<std::uint32_t>(c), 0.0});
    }
  }
  Fields values(in, h.values, h.entries);
  for (Entry& e : m.entries) e.value = real(in, values.next(), options);
  return m;
}

}  // namespace zeph
