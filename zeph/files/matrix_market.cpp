#include "zeph/files/matrix_market.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <utility>

#include "zeph/error.h"
#include "zeph/files/entry_room.h"
#include "zeph/files/line_reader.h"
#include "zeph/files/number_text.h"
#include "zeph/matrix/requirements.h"
#include "zeph/matrix/to_dense.h"

namespace zeph {
namespace {

using Result = NumberScanner::Result;

constexpr std::size_t kShortestEntry = 6;  // "1 1 1\n": bounds what a size line can promise

struct MarketHeader {
  bool coordinate = true;
  bool integer = false;
  Symmetry symmetry = Symmetry::General;
  std::size_t rows = 0;
  std::size_t cols = 0;
  std::uint64_t entries = 0;
  std::size_t sizeLine = 0;
};

std::string inQuotes(std::string_view word) {
  return "\"" + std::string(word) + "\"";
}

// The words of the first line in lower case.
std::array<std::string, 5> headerWords(std::string_view line) {
  std::array<std::string, 5> words;
  std::size_t k = 0;
  bool inWord = false;
  for (const char c : line) {
    const bool blank = c == ' ' || c == '\t';
    if (blank && inWord) ++k;
    inWord = !blank;
    if (k == words.size()) break;
    if (!blank) words[k] += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  }
  return words;
}

void readBanner(LineReader& in, MarketHeader& h) {
  std::string_view line;
  const std::string wanted =
      "expected \"%%MatrixMarket matrix coordinate real general\" or another Matrix Market header";
  if (!in.next(line)) throw Error(ErrorKind::Input, in.path() + " is empty; " + wanted);
  const auto [banner, object, format, field, symmetry] = headerWords(line);
  if (banner != "%%matrixmarket") {
    throw in.error(wanted + ", found " + inQuotes(line.substr(0, 40)) +
                   "; triplets without a header are read from files named .csv or with --format "
                   "csv, plain lists of numbers with --format txt");
  }
  if (object != "matrix") {
    throw in.error("the object " + inQuotes(object) + " is not supported, only \"matrix\"");
  }
  if (format != "coordinate" && format != "array") {
    throw in.error("the format " + inQuotes(format) + " must be \"coordinate\" or \"array\"");
  }
  if (field == "pattern" || field == "complex") {
    throw in.error(field + " matrices are not supported; give the entries real values");
  }
  if (field != "real" && field != "double" && field != "integer") {
    throw in.error("the field " + inQuotes(field) + " must be \"real\" or \"integer\"");
  }
  if (symmetry == "symmetric") {
    h.symmetry = Symmetry::Symmetric;
  } else if (symmetry == "skew-symmetric") {
    h.symmetry = Symmetry::SkewSymmetric;
  } else if (symmetry == "hermitian") {
    throw in.error("Hermitian matrices are not supported; a real one is called symmetric");
  } else if (symmetry != "general") {
    throw in.error("the symmetry " + inQuotes(symmetry) +
                   " must be \"general\", \"symmetric\" or \"skew-symmetric\"");
  }
  h.coordinate = format == "coordinate";
  h.integer = field == "integer";
}

// The next line that is neither blank nor a comment.
bool nextDataLine(LineReader& in, std::string_view& line) {
  while (in.next(line)) {
    NumberScanner scan(line);
    if (!scan.atEnd() && scan.peek() != '%') return true;
  }
  return false;
}

void readSizes(LineReader& in, MarketHeader& h) {
  std::string_view line;
  const std::string wanted =
      h.coordinate ? "the size line \"rows columns entries\"" : "the size line \"rows columns\"";
  if (!nextDataLine(in, line)) {
    throw Error(ErrorKind::Input, in.path() + " ends after line " +
                                      std::to_string(in.lineNumber()) + " without " + wanted);
  }
  NumberScanner scan(line);
  std::uint64_t rows = 0;
  std::uint64_t cols = 0;
  for (std::uint64_t* size : {&rows, &cols, &h.entries}) {
    if (size == &h.entries && !h.coordinate) continue;
    const Result result = scan.index(*size);
    const std::uint64_t most = size == &h.entries ? UINT64_MAX : kLargestSize;
    if (result == Result::TooLarge || (result == Result::Ok && *size > most)) {
      const std::string text = result == Result::Ok ? std::to_string(*size) : inQuotes(scan.word());
      throw in.error("the size " + text + " is larger than " + std::to_string(most) +
                     ", the most that is supported");
    }
    if (result != Result::Ok) {
      throw in.error("expected " + wanted + ", found " + inQuotes(line.substr(0, 60)));
    }
  }
  if (!scan.atEnd()) {
    throw in.error("unexpected " + inQuotes(scan.word()) + " after " + wanted);
  }
  h.rows = rows;
  h.cols = cols;
  h.sizeLine = in.lineNumber();
  if (h.symmetry != Symmetry::General && rows != cols) {
    throw in.error("a symmetric or skew-symmetric matrix must be square, not " +
                   std::to_string(rows) + " x " + std::to_string(cols));
  }
  if (!h.coordinate) {
    const std::uint64_t n = rows;
    h.entries = h.symmetry == Symmetry::General     ? rows * cols
                : h.symmetry == Symmetry::Symmetric ? n * (n + 1) / 2
                : n == 0                            ? 0
                                                    : n * (n - 1) / 2;
  }
}

MarketHeader readHeader(LineReader& in) {
  MarketHeader h;
  readBanner(in, h);
  readSizes(in, h);
  return h;
}

// Scans the value and the end of its line; where describes the entry for messages and is called
// only when there is one.
template <class Where>
double readValue(LineReader& in, NumberScanner& scan, const MarketHeader& h,
                 const ReadOptions& options, const Where& where) {
  double value = 0.0;
  const Result result = h.integer ? scan.integer(value) : scan.real(value);
  if (result == Result::Missing) throw in.error("the value of " + where() + " is missing");
  if (result == Result::NotANumber) {
    throw in.error("the value " + inQuotes(scan.word()) + " of " + where() +
                   (h.integer ? " is not an integer, as the header promises" : " is not a number"));
  }
  if (result == Result::TooLarge && !options.allowNonFinite) {
    throw in.error("the value " + inQuotes(scan.word()) + " of " + where() +
                   " is too large for a double");
  }
  if (result == Result::Ok && !std::isfinite(value) && !options.allowNonFinite) {
    throw in.error("the value of " + where() + " is " + toText(value) +
                   "; replace it by a finite number");
  }
  if (result == Result::TooLarge) return value;
  if (!scan.atEnd()) {
    throw in.error("unexpected " + inQuotes(scan.word()) + " after the value of " + where());
  }
  return value;
}

Error tooFew(const LineReader& in, const MarketHeader& h, std::uint64_t found) {
  return Error(ErrorKind::Input, in.path() + " ends after line " + std::to_string(in.lineNumber()) +
                                     " with " + std::to_string(found) + " of the " +
                                     std::to_string(h.entries) + " entries that line " +
                                     std::to_string(h.sizeLine) +
                                     " promises; the file is cut short or the size line is wrong");
}

Error tooMany(const LineReader& in, const MarketHeader& h) {
  return in.error("there are more than the " + std::to_string(h.entries) + " entries that line " +
                  std::to_string(h.sizeLine) +
                  " promises; correct the size line or remove the rest");
}

// Keeps a symmetric file to one triangle, and a skew-symmetric one off its diagonal.
class TriangleGuard {
 public:
  explicit TriangleGuard(Symmetry symmetry) : symmetry_(symmetry) {}

  void check(const LineReader& in, std::uint64_t row, std::uint64_t col, double value) {
    if (symmetry_ == Symmetry::General) return;
    if (row == col) {
      if (symmetry_ == Symmetry::SkewSymmetric && value != 0.0) {
        throw in.error("entry " + position(0, row, col) +
                       " of a skew-symmetric matrix lies on its diagonal, which is zero");
      }
      return;
    }
    const Side side = row > col ? Side::Below : Side::Above;
    if (side_ == Side::None) side_ = side;
    if (side == side_) return;
    throw in.error("entry " + position(0, row, col) + " lies " +
                   (side == Side::Above ? "above" : "below") +
                   " the diagonal, earlier ones on the other side; a symmetric file stores one "
                   "triangle only");
  }

 private:
  enum class Side { None, Below, Above };
  Symmetry symmetry_;
  Side side_ = Side::None;
};

std::uint64_t readEntryIndex(LineReader& in, NumberScanner& scan, std::size_t limit,
                             const char* what) {
  std::uint64_t index = 0;
  const Result result = scan.index(index);
  if (result == Result::Ok && index >= 1 && index <= limit) return index;
  if (result == Result::Missing || result == Result::NotANumber) {
    throw in.error("expected \"row column value\", found " + inQuotes(scan.word()) + " as the " +
                   what + " index");
  }
  const std::string text = result == Result::Ok ? std::to_string(index) : std::string(scan.word());
  throw in.error(std::string("the ") + what + " index " + text + " is outside 1 to " +
                 std::to_string(limit));
}

std::vector<Entry> readCoordinates(LineReader& in, const MarketHeader& h,
                                   const ReadOptions& options) {
  std::vector<Entry> entries;
  entries.reserve(std::min<std::size_t>(h.entries, in.fileBytes() / kShortestEntry));
  TriangleGuard guard(h.symmetry);
  std::string_view line;
  while (in.next(line)) {
    NumberScanner scan(line);
    if (scan.atEnd() || scan.peek() == '%') continue;
    if (entries.size() == h.entries) throw tooMany(in, h);
    const std::uint64_t row = readEntryIndex(in, scan, h.rows, "row");
    const std::uint64_t col = readEntryIndex(in, scan, h.cols, "column");
    const double value =
        readValue(in, scan, h, options, [&] { return "entry " + position(0, row, col); });
    guard.check(in, row, col, value);
    growFor(entries, in.path(), options.memoryLimit, h.entries);
    entries.push_back(
        {static_cast<std::uint32_t>(row - 1), static_cast<std::uint32_t>(col - 1), value});
  }
  if (entries.size() < h.entries) throw tooFew(in, h, entries.size());
  return entries;
}

// Calls use(row, col, value) for every entry of an array, column by column; of a symmetric array
// the file holds the lower triangle, of a skew-symmetric one what lies below the diagonal.
template <class Use>
void readArray(LineReader& in, const MarketHeader& h, const ReadOptions& options, const Use& use) {
  const std::size_t skip = h.symmetry == Symmetry::SkewSymmetric ? 1 : 0;
  const auto firstRow = [&](std::size_t c) {
    return h.symmetry == Symmetry::General ? 0 : c + skip;
  };
  std::size_t col = 0;
  std::size_t row = firstRow(0);
  std::uint64_t found = 0;
  std::string_view line;
  while (nextDataLine(in, line)) {
    if (found == h.entries) throw tooMany(in, h);
    NumberScanner scan(line);
    use(row, col,
        readValue(in, scan, h, options, [&] { return "entry " + position(1, row, col); }));
    ++found;
    if (++row == h.rows) row = firstRow(++col);
  }
  if (found < h.entries) throw tooFew(in, h, found);
}

SparseMatrix describe(const std::string& path, const MarketHeader& h) {
  SparseMatrix m;
  m.source = path;
  m.indexBase = 1;
  m.rows = h.rows;
  m.cols = h.cols;
  m.symmetry = h.symmetry;
  return m;
}

void readDenseArray(LineReader& in, const MarketHeader& h, const ReadOptions& options,
                    DenseMatrix& dense) {
  // An array that cannot be complete is read for its error before memory is taken for it.
  if (in.fileBytes() != 0 && h.entries > in.fileBytes()) {
    readArray(in, h, options, [](std::size_t, std::size_t, double) {});
  }
  dense = toDense(describe(in.path(), h), options.memoryLimit);
  const double mirrorSign = h.symmetry == Symmetry::SkewSymmetric ? -1.0 : 1.0;
  readArray(in, h, options, [&](std::size_t row, std::size_t col, double value) {
    dense(row, col) = value;
    if (h.symmetry == Symmetry::General || row == col) return;
    dense(col, row) = mirrorSign * value;
  });
}

const char* symmetryWord(Symmetry symmetry) {
  switch (symmetry) {
    case Symmetry::Symmetric:
      return "symmetric";
    case Symmetry::SkewSymmetric:
      return "skew-symmetric";
    case Symmetry::General:
      break;
  }
  return "general";
}

}  // namespace

SparseMatrix readMatrixMarket(LineReader& in, const ReadOptions& options) {
  const MarketHeader h = readHeader(in);
  SparseMatrix m = describe(in.path(), h);
  if (h.coordinate) {
    m.entries = readCoordinates(in, h, options);
    return m;
  }
  readArray(in, h, options, [&](std::size_t row, std::size_t col, double value) {
    if (value == 0.0) return;
    growFor(m.entries, in.path(), options.memoryLimit, h.entries);
    m.entries.push_back({static_cast<std::uint32_t>(row), static_cast<std::uint32_t>(col), value});
  });
  return m;
}

bool readMatrixMarketAsStored(LineReader& in, SparseMatrix& sparse, DenseMatrix& dense,
                              const ReadOptions& options) {
  const MarketHeader h = readHeader(in);
  if (h.coordinate) {
    sparse = describe(in.path(), h);
    sparse.entries = readCoordinates(in, h, options);
    return false;
  }
  readDenseArray(in, h, options, dense);
  return true;
}

DenseMatrix readMatrixMarketDense(LineReader& in, const ReadOptions& options) {
  SparseMatrix sparse;
  DenseMatrix dense;
  if (!readMatrixMarketAsStored(in, sparse, dense, options))
    return toDense(sparse, options.memoryLimit);
  return dense;
}

SparseMatrix readMatrixMarket(const std::string& path, const ReadOptions& options) {
  LineReader in(path);
  in.requireText();
  return readMatrixMarket(in, options);
}

DenseMatrix readMatrixMarketDense(const std::string& path, const ReadOptions& options) {
  LineReader in(path);
  in.requireText();
  return readMatrixMarketDense(in, options);
}

void writeMatrixMarket(AtomicFile& out, const SparseMatrix& m) {
  std::string text = std::string("%%MatrixMarket matrix coordinate real ") +
                     symmetryWord(m.symmetry) + "\n" + std::to_string(m.rows) + " " +
                     std::to_string(m.cols) + " " + std::to_string(m.entries.size()) + "\n";
  for (Entry e : m.entries) {
    if (m.symmetry != Symmetry::General && e.row < e.col) {
      std::swap(e.row, e.col);
      if (m.symmetry == Symmetry::SkewSymmetric) e.value = -e.value;
    }
    appendIndex(text, e.row + std::uint64_t{1});
    text += ' ';
    appendIndex(text, e.col + std::uint64_t{1});
    text += ' ';
    appendShortest(text, e.value);
    text += '\n';
    out.writeWhenLong(text);
  }
  out.write(text);
}

void writeMatrixMarket(AtomicFile& out, const DenseMatrix& m) {
  std::string text = "%%MatrixMarket matrix array real general\n" + std::to_string(m.rows) + " " +
                     std::to_string(m.cols) + "\n";
  for (const double value : m.values) {
    appendShortest(text, value);
    text += '\n';
    out.writeWhenLong(text);
  }
  out.write(text);
}

}  // namespace zeph
