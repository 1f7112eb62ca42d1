#include "zeph/files/triplet_csv.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "zeph/error.h"
#include "zeph/files/line_reader.h"
#include "zeph/files/number_text.h"
#include "zeph/matrix/merge.h"
#include "zeph/matrix/to_dense.h"

namespace zeph {
namespace {

constexpr int kCsvDigits = 18;  // what ProtoSparse::writeToCsv prints
constexpr std::size_t kWriteChunk = std::size_t{1} << 16;
constexpr std::size_t kTypicalEntry =
    16;  // bytes a line; only a first guess at the number of lines

std::uint32_t readIndex(LineReader& in, NumberScanner& scan, const char* what) {
  std::uint64_t index = 0;
  const auto result = scan.index(index);
  if (result == NumberScanner::Result::TooLarge || index >= kLargestSize) {
    throw in.error(std::string("the ") + what + " index is larger than " +
                   std::to_string(kLargestSize - 1) + ", the most that is supported");
  }
  if (result != NumberScanner::Result::Ok) {
    throw in.error("expected \"row,column,value\", found \"" + std::string(scan.word()) +
                   "\" as the " + what + " index");
  }
  if (!scan.accept(','))
    throw in.error(std::string("expected a comma after the ") + what + " index");
  return static_cast<std::uint32_t>(index);
}

double readValue(LineReader& in, NumberScanner& scan, const ReadOptions& options) {
  double value = 0.0;
  const std::string word(scan.word());
  const auto result = scan.real(value);
  if (result == NumberScanner::Result::Missing) throw in.error("the value is missing");
  if (result == NumberScanner::Result::NotANumber) {
    throw in.error("the value \"" + word + "\" is not a number");
  }
  if (!std::isfinite(value) && !options.allowNonFinite) {
    throw in.error("the value \"" + word + "\" is not finite; replace it by a finite number");
  }
  if (result == NumberScanner::Result::Ok && !scan.atEnd()) {
    throw in.error("unexpected \"" + std::string(scan.word()) + "\" after the value");
  }
  return value;
}

void appendLine(AtomicFile& out, std::string& text, std::uint64_t row, std::uint64_t col,
                double value) {
  appendIndex(text, row);
  text += ',';
  appendIndex(text, col);
  text += ',';
  appendDigits(text, value, kCsvDigits);
  text += '\n';
  if (text.size() < kWriteChunk) return;
  out.write(text);
  text.clear();
}

}  // namespace

SparseMatrix readTripletCsv(const std::string& path, const ReadOptions& options) {
  LineReader in(path);
  SparseMatrix m;
  m.source = path;
  m.indexBase = 0;
  m.entries.reserve(in.fileBytes() / kTypicalEntry);
  std::string_view line;
  while (in.next(line)) {
    NumberScanner scan(line);
    if (scan.atEnd()) continue;
    const std::uint32_t row = readIndex(in, scan, "row");
    const std::uint32_t col = readIndex(in, scan, "column");
    m.entries.push_back({row, col, readValue(in, scan, options)});
    m.rows = std::max<std::size_t>(m.rows, std::size_t{row} + 1);
    m.cols = std::max<std::size_t>(m.cols, std::size_t{col} + 1);
  }
  return m;
}

void writeTripletCsv(AtomicFile& out, const DenseMatrix& m) {
  std::string text;
  for (std::size_t r = 0; r < m.rows; ++r) {
    for (std::size_t c = 0; c < m.cols; ++c) appendLine(out, text, r, c, m(r, c));
  }
  out.write(text);
}

void writeTripletCsv(AtomicFile& out, SparseMatrix m) {
  makeGeneral(m);
  if (m.rows == 1 || m.cols == 1) return writeTripletCsv(out, toDense(m));
  std::string text;
  for (const Entry& e : m.entries) appendLine(out, text, e.row, e.col, e.value);
  out.write(text);
}

}  // namespace zeph
