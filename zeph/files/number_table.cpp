#include "zeph/files/number_table.h"

#include <cmath>
#include <string>
#include <vector>

#include "zeph/checks/memory.h"
#include "zeph/error.h"
#include "zeph/files/field_reader.h"
#include "zeph/files/number_text.h"
#include "zeph/files/triplet_csv.h"
#include "zeph/matrix/to_dense.h"

namespace zeph {
namespace {

void push(std::vector<double>& values, double value, const LineReader& in,
          const ReadOptions& options) {
  if (values.size() == values.capacity()) {
    const std::size_t next = std::max<std::size_t>(1024, 2 * values.capacity());
    requireBytes("reading " + in.path(), static_cast<double>(next) * sizeof(double),
                 options.memoryLimit);
    values.reserve(next);
  }
  values.push_back(value);
}

// rows[k] is the index of the k-th value: as a column in order.
DenseMatrix column(const std::vector<double>& rows, const std::vector<double>& values,
                   const LineReader& in, const ReadOptions& options) {
  const double base = options.oneBased ? 1.0 : 0.0;
  auto m = DenseMatrix::zeros(values.size(), 1);
  std::vector<bool> seen(values.size(), false);
  for (std::size_t k = 0; k < rows.size(); ++k) {
    const double at = rows[k] - base;
    const auto i = static_cast<std::size_t>(at >= 0.0 ? at : 0.0);
    if (at >= 0.0 && i < values.size() && !seen[i]) {
      seen[i] = true;
      m.values[i] = values[k];
      continue;
    }
    throw Error(ErrorKind::Input,
                "the indices of " + in.path() + " are not " + std::to_string(options.oneBased) +
                    " to " + std::to_string(values.size() - 1 + options.oneBased) +
                    ", each of them once, as " + toText(rows[k]) +
                    " shows; lines \"index,value\" name every value" +
                    (options.oneBased ? "" : ", and with --one-based they count from 1"));
  }
  return m;
}

// Row after row to column after column.
DenseMatrix transposed(const std::vector<double>& values, std::size_t cols) {
  const std::size_t rows = values.size() / cols;
  auto m = DenseMatrix::zeros(rows, cols);
  for (std::size_t r = 0; r < rows; ++r) {
    for (std::size_t c = 0; c < cols; ++c) m(r, c) = values[r * cols + c];
  }
  return m;
}

// What the first line with numbers looks like. The reader is at its beginning, and stays there.
bool startsWithTriplets(const LineReader& in) {
  std::string_view head = in.head();
  while (!head.empty()) {
    const std::size_t end = std::min(head.find('\n'), head.size());
    std::string_view line = head.substr(0, std::min(head.find('#'), end));
    head.remove_prefix(std::min(end + 1, head.size()));
    if (line.find_first_of("0123456789") == line.npos) continue;
    if (!FieldReader::separated(line)) return false;
    const char separator = line.find(';') != line.npos    ? ';'
                           : line.find('\t') != line.npos ? '\t'
                                                          : ',';
    return std::count(line.begin(), line.end(), separator) >= 2;
  }
  return false;
}

}  // namespace

DenseMatrix readNumberTable(LineReader& in, const ReadOptions& options) {
  const bool list = options.format == FileFormat::List;
  if (!list && startsWithTriplets(in)) {
    return toDense(readTripletCsv(in, options), options.memoryLimit);
  }
  FieldReader fields(in, options);
  std::vector<double> values, rows;
  std::size_t cols = 0;
  bool indexed = false;
  for (std::string_view line; fields.next(line);) {
    const std::vector<std::string> words = fields.split(line);
    if (cols == 0) {
      cols = words.size();
      indexed = !list && cols == 2 && FieldReader::separated(line);
    }
    if (words.size() != cols) {
      throw in.error("found " + std::to_string(words.size()) +
                     " numbers where earlier lines have " + std::to_string(cols) + ": \"" +
                     std::string(line.substr(0, 40)) + "\"");
    }
    if (indexed) {
      push(rows, static_cast<double>(fields.index(words[0], "row")), in, options);
      push(values, fields.number(words[1]), in, options);
      continue;
    }
    for (const std::string& word : words) push(values, fields.number(word), in, options);
  }
  if (values.empty()) throw Error(ErrorKind::Input, in.path() + " is empty: it holds no numbers");
  DenseMatrix m = indexed ? column(rows, values, in, options) : transposed(values, cols);
  m.source = in.path();
  return m;
}

void writeNumberTable(AtomicFile& out, const DenseMatrix& m) {
  std::string text;
  for (std::size_t r = 0; r < m.rows; ++r) {
    for (std::size_t c = 0; c < m.cols; ++c) {
      if (c > 0) text += ' ';
      appendShortest(text, m(r, c));
    }
    text += '\n';
    out.writeWhenLong(text);
  }
  out.write(text);
}

}  // namespace zeph
