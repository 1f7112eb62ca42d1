#include "zeph/files/triplet_csv.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "zeph/error.h"
#include "zeph/files/entry_room.h"
#include "zeph/files/field_reader.h"
#include "zeph/files/line_reader.h"
#include "zeph/files/number_text.h"
#include "zeph/matrix/merge.h"
#include "zeph/matrix/to_dense.h"

namespace zeph {
namespace {

constexpr int kCsvDigits = 18;  // what ProtoSparse::writeToCsv prints
constexpr std::size_t kTypicalEntry =
    16;  // bytes a line; only a first guess at the number of lines

// The form that is written by programs, without detours; false for any other line.
bool plainTriplet(std::string_view line, Entry& e) {
  NumberScanner scan(line);
  std::uint64_t row = 0, col = 0;
  const bool plain = scan.index(row) == NumberScanner::Result::Ok && scan.accept(',') &&
                     scan.index(col) == NumberScanner::Result::Ok && scan.accept(',') &&
                     scan.real(e.value) == NumberScanner::Result::Ok && scan.atEnd() &&
                     std::max(row, col) < kLargestSize;
  e.row = static_cast<std::uint32_t>(row);
  e.col = static_cast<std::uint32_t>(col);
  return plain;
}

Entry tripletOf(const FieldReader& fields, std::string_view line) {
  const std::vector<std::string> words = fields.split(line);
  if (words.size() != 3) {
    throw fields.error("expected \"row,column,value\", found \"" + std::string(line.substr(0, 40)) +
                       "\"" + fields.commaAdvice(words));
  }
  Entry e{};
  e.row = static_cast<std::uint32_t>(fields.index(words[0], "row"));
  e.col = static_cast<std::uint32_t>(fields.index(words[1], "column"));
  e.value = fields.number(words[2]);
  return e;
}

void appendLine(AtomicFile& out, std::string& text, std::uint64_t row, std::uint64_t col,
                double value) {
  appendIndex(text, row);
  text += ',';
  appendIndex(text, col);
  text += ',';
  appendDigits(text, value, kCsvDigits);
  text += '\n';
  out.writeWhenLong(text);
}

}  // namespace

SparseMatrix readTripletCsv(LineReader& in, const ReadOptions& options) {
  SparseMatrix m;
  m.source = in.path();
  m.indexBase = options.oneBased ? 1 : 0;
  m.entries.reserve(in.fileBytes() / kTypicalEntry);
  FieldReader fields(in, options);
  bool zero = false;
  for (std::string_view line; fields.next(line);) {
    Entry e{};
    if (!plainTriplet(line, e)) e = tripletOf(fields, line);
    if (options.oneBased) {
      if (e.row == 0 || e.col == 0) {
        throw in.error("an index is 0, but the indices are said to count from 1");
      }
      --e.row, --e.col;
    }
    if (!std::isfinite(e.value) && !options.allowNonFinite) {
      throw in.error("the value " + toText(e.value) +
                     " is not finite; replace it by a finite number");
    }
    zero = zero || e.row == 0 || e.col == 0;
    growFor(m.entries, in.path(), options.memoryLimit);
    m.entries.push_back(e);
    m.rows = std::max<std::size_t>(m.rows, std::size_t{e.row} + 1);
    m.cols = std::max<std::size_t>(m.cols, std::size_t{e.col} + 1);
  }
  if (!zero && !options.oneBased && m.entries.size() > 1 && options.note) {
    options.note("every index in " + m.source +
                 " is at least 1, so that row 0 and column 0 are empty; if they count from 1, give "
                 "--one-based");
  }
  return m;
}

SparseMatrix readTripletCsv(const std::string& path, const ReadOptions& options) {
  LineReader in(path);
  in.requireText();
  return readTripletCsv(in, options);
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
