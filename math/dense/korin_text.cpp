// Text forms of korin::Matrix and korin::Vector: plain text of 16 digits, display tables, streams.
#include <locale.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <ostream>

#include "math/dense/korin_matrix.h"
#include "math/dense/korin_rows.h"
#include "math/dense/korin_vector.h"

namespace korin {

namespace {

// While it lives this thread prints and scans numbers as in C, whatever locale the host has set.
class ClassicNumbers {
 public:
  ClassicNumbers() : before_(uselocale(newlocale(LC_ALL_MASK, "C", nullptr))) {}
  ClassicNumbers(const ClassicNumbers&) = delete;
  ClassicNumbers& operator=(const ClassicNumbers&) = delete;
  ~ClassicNumbers() { freelocale(uselocale(before_)); }

 private:
  locale_t before_;
};

// Room for one number in any of the formats, and for a header.
constexpr ZtSize kPieceSize = 128;

// Formats printf-style pieces one after the other: into a buffer, at the end of a string, or, with
// neither, only counting them.
class Writer {
 public:
  explicit Writer(char* out) : out_(out) {}
  explicit Writer(std::string& text) : text_(&text) {}

  template <typename... Args>
  void print(const char* format, Args... args) {
    char piece[kPieceSize];
    const auto count = static_cast<ZtSize>(std::snprintf(piece, kPieceSize, format, args...));
    if (out_ != nullptr) std::memcpy(out_ + length_, piece, count + 1);
    if (text_ != nullptr) text_->append(piece, count);
    length_ += count;
  }

  void printElements(const char* format, const ZtReal* x, ZtSize count) {
    for (ZtSize c = 0; c < count; ++c) print(format, x[c]);
  }

  ZtSize length() const { return length_; }

 private:
  char* out_ = nullptr;
  std::string* text_ = nullptr;
  ClassicNumbers classic_;
  ZtSize length_ = 0;
};

ZtSize writeMatrix(Writer&& writer, const ZtMatrix& m) {
  writer.print("%d,%d: ", static_cast<int>(m.rows), static_cast<int>(m.cols));
  for (ZtSize r = 0; r < m.rows; ++r) writer.printElements("%.16g ", rowOf(m, r), m.cols);
  return writer.length();
}

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

// Scans like sscanf at an advancing position of a text. A stream over the text, because sscanf
// itself measures the whole remaining text at every call, which makes reading quadratic.
class Scanner {
 public:
  explicit Scanner(const char* text)
      : stream_(fmemopen(const_cast<char*>(text), std::strlen(text), "r")) {}

  // Reads counts by a format with as many "%ld" and a closing "%n". False if a number or the text
  // before the "%n" is missing, or a count is not a non-negative int.
  template <typename... Counts>
  bool readCounts(const char* format, Counts*... counts) {
    int consumed = -1;
    if (stream_ == nullptr) return false;
    const int read = std::fscanf(stream_.get(), format, counts..., &consumed);
    if (read != static_cast<int>(sizeof...(counts)) || consumed < 0) return false;
    position_ += static_cast<ZtSize>(consumed);
    return ((*counts >= 0 && *counts <= INT_MAX) && ...);
  }

  // Reads elements row by row; false at the first that is missing.
  bool readElements(ZtMatrix& target) {
    if (target.cols == 0) return true;  // a text may claim any number of rows
    for (ZtSize r = 0; r < target.rows; ++r) {
      for (ZtSize c = 0; c < target.cols; ++c) {
        int consumed = 0;
        if (std::fscanf(stream_.get(), "%lf%n", rowOf(target, r) + c, &consumed) != 1) return false;
        position_ += static_cast<ZtSize>(consumed);
      }
    }
    return true;
  }

  ZtSize position() const { return position_; }

 private:
  ClassicNumbers classic_;
  std::unique_ptr<std::FILE, CloseFile> stream_;
  ZtSize position_ = 0;
};

// Code page 437: the corners and the side of a box.
struct Brackets {
  char open;
  char close;
};

Brackets bracketsOf(ZtSize row, ZtSize rows) {
  if (rows == 1) return {'[', ']'};
  if (row == 0) return {'\xDA', '\xBF'};
  if (row == rows - 1) return {'\xC0', '\xD9'};
  return {'\xB3', '\xB3'};
}

// Numbers are padded to the digits of the last row number when there are up to 10, up to 100 or
// more rows.
const char* rowNumberFormat(ZtSize rows) {
  if (rows <= 10) return "%.1d ";
  if (rows <= 100) return "%.2d ";
  return "%.3d ";
}

}  // namespace

ZtSize Matrix::writeToString(char* out) const {
  return writeMatrix(Writer(out), *this);
}

ZtSize Matrix::writeToString(std::string& out) const {
  return writeMatrix(Writer(out), *this);
}

ZtSize Matrix::readFromString(const char* text) {
  Scanner scanner(text);
  long readRows = 0;
  long readCols = 0;
  if (!scanner.readCounts("%ld,%ld:%n", &readRows, &readCols)) return 0;
  try {
    ZtMatrix_assign(this, static_cast<ZtSize>(readRows), static_cast<ZtSize>(readCols),
                    static_cast<ZtSize>(readCols), nullptr, 0);
  } catch (const std::bad_alloc&) {
    return 0;
  }
  return scanner.readElements(*this) ? scanner.position() : 0;
}

ZtSize Matrix::readFromString(const std::string& text) {
  return readFromString(text.c_str());
}

void Matrix::display(char* out) const {
  Writer writer(out);
  writer.print("Matrix %d,%d:\n", static_cast<int>(rows), static_cast<int>(cols));
  for (ZtSize r = 0; r < rows; ++r) {
    const Brackets brackets = bracketsOf(r, rows);
    writer.print(rowNumberFormat(rows), static_cast<int>(r));
    writer.print("%c ", brackets.open);
    writer.printElements("%8.7g ", rowOf(*this, r), cols);
    writer.print("%c\n", brackets.close);
  }
}

ZtSize Vector::writeToString(char* out) const {
  Writer writer(out);
  writer.print("%d: ", static_cast<int>(size));
  writer.printElements("%.16g ", data, size);
  return writer.length();
}

ZtSize Vector::readFromString(const char* text) {
  Scanner scanner(text);
  long readSize = 0;
  if (!scanner.readCounts("%ld:%n", &readSize)) return 0;
  try {
    ZtVector_assign(this, static_cast<ZtSize>(readSize), nullptr);
  } catch (const std::bad_alloc&) {
    return 0;
  }
  Matrix elements = asRow(*this);
  return scanner.readElements(elements) ? scanner.position() : 0;
}

ZtSize Vector::readFromString(const std::string& text) {
  return readFromString(text.c_str());
}

void Vector::display(char* out) const {
  Writer writer(out);
  writer.print("Vector %d: [ ", static_cast<int>(size));
  writer.printElements("%.7g ", data, size);
  writer.print("%c\n", ']');
}

}  // namespace korin

static void streamElements(std::ostream& out, const ZtReal* x, ZtSize count) {
  for (ZtSize c = 0; c < count; ++c) out << " " << x[c];
  out << " )";
}

std::ostream& operator<<(std::ostream& out, const ZtMatrix& m) {
  out << "[" << m.rows << "," << m.cols << "]{";
  for (ZtSize r = 0; r < m.rows; ++r) {
    out << "\n(";
    streamElements(out, korin::rowOf(m, r), m.cols);
  }
  return out << "}";
}

std::ostream& operator<<(std::ostream& out, const ZtVector& v) {
  out << "[" << v.size << "](";
  streamElements(out, v.data, v.size);
  return out;
}
