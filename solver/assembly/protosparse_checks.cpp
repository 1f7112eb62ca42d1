// Checks of a ProtoSparse before factorising, and its text export.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>

#include "math/dense/korin_vector.h"
#include "solver/assembly/element_count.h"
#include "solver/assembly/protosparse.h"

namespace zeph_solver {

namespace {

// Finite and of magnitude above 2^-52; NaN and the infinities fail one of the comparisons.
bool isSignificant(double v) {
  const double magnitude = std::fabs(v);
  return magnitude > kDoubleEpsilon && magnitude <= std::numeric_limits<double>::max();
}

void appendUnmarked(const std::vector<unsigned char>& marked, std::vector<int>& out) {
  for (std::size_t i = 0; i < marked.size(); ++i) {
    if (!marked[i]) out.push_back(static_cast<int>(i));
  }
}

// Text file of "row,col,value" lines, written through one large buffer. Errors are swallowed.
class TripletFile {
 public:
  explicit TripletFile(const char* name) : file_(std::fopen(name, "w")) {}
  ~TripletFile() {
    if (!file_) return;
    flush();
    std::fclose(file_);
  }
  TripletFile(const TripletFile&) = delete;
  TripletFile& operator=(const TripletFile&) = delete;

  bool isOpen() const { return file_ != nullptr; }

  // The characters of "%lu,%lu,%.18g\n" in the C locale, whatever locale the host has set.
  void write(std::uint64_t row, std::uint64_t col, double value) {
    if (buffer_.size() - used_ < kMaxLine) flush();
    char* const end = buffer_.data() + buffer_.size();
    char* at = std::to_chars(buffer_.data() + used_, end, row).ptr;
    *at++ = ',';
    at = std::to_chars(at, end, col).ptr;
    *at++ = ',';
    at = std::to_chars(at, end, value, std::chars_format::general, kDigits).ptr;
    *at++ = '\n';
    used_ = static_cast<std::size_t>(at - buffer_.data());
  }

 private:
  static constexpr int kDigits = 18;
  // Two 20-digit indices and a value of at most 25 characters, with separators.
  static constexpr std::size_t kMaxLine = 80;
  static constexpr std::size_t kBufferSize = std::size_t{1} << 18;

  void flush() {
    std::fwrite(buffer_.data(), 1, used_, file_);
    used_ = 0;
  }

  // Before the file: running out of memory must not leave it open.
  std::vector<char> buffer_ = std::vector<char>(kBufferSize);
  std::FILE* file_;
  std::size_t used_ = 0;
};

}  // namespace

void ProtoSparse::getDiagonal(ZtVector& d) const {
  ZtVector_assign(&d, std::min(rowCount, colCount), nullptr);
  if (denseBlock) {
    korin::Vector(d.size, d, 0).setDiag(*denseBlock);
    return;
  }
  ZtVector_setZero(&d);
  for (const MatrixElement& e : elements) {
    if (e.row == e.col && e.row < d.size) d.data[e.row] += e.value;
  }
}

unsigned int ProtoSparse::invalidDiagIndex() const {
  ZtVector d;
  getDiagonal(d);
  for (std::uint64_t i = 0; i < colCount; ++i) {
    // A matrix with more columns than rows has no diagonal entry there; that counts as 0.
    if (i >= d.size || !isSignificant(d.data[i])) return static_cast<unsigned int>(i);
  }
  return kNoIndex;
}

bool ProtoSparse::isValid() const {
  return invalidDiagIndex() == kNoIndex;
}

unsigned int ProtoSparse::getInvalidIndex() const {
  if (!denseBlock) {
    for (std::size_t k = 0; k < elements.size(); ++k) {
      if (!std::isfinite(elements[k].value)) return static_cast<unsigned int>(k);
    }
    return kNoIndex;
  }
  for (std::size_t r = 0; r < denseBlock->rows; ++r) {
    for (std::size_t c = 0; c < denseBlock->cols; ++c) {
      if (!std::isfinite((*denseBlock)(r, c))) return static_cast<unsigned int>(r * colCount + c);
    }
  }
  return kNoIndex;
}

bool ProtoSparse::isCompletelyValid(std::size_t& row, std::size_t& col) const {
  const unsigned int diagonal = invalidDiagIndex();
  if (diagonal != kNoIndex) {
    row = col = diagonal;
    return false;
  }
  if (!denseBlock) {
    const unsigned int k = getInvalidIndex();
    if (k == kNoIndex) return true;
    row = elements[k].row;
    col = elements[k].col;
    return false;
  }
  for (std::size_t r = 0; r < rowCount; ++r) {
    for (std::size_t c = 0; c < colCount; ++c) {
      if (std::isfinite((*denseBlock)(r, c))) continue;
      row = r;
      col = c;
      return false;
    }
  }
  return true;
}

void ProtoSparse::getEmptyRowsAndCols(std::vector<int>& emptyRows,
                                      std::vector<int>& emptyCols) const {
  requireWorkspace(rowCount);
  requireWorkspace(colCount);
  std::vector<unsigned char> rowUsed(rowCount);
  std::vector<unsigned char> colUsed(colCount);
  const auto mark = [&](std::size_t row, std::size_t col, double value) {
    if (isSignificant(value) && row < rowCount && col < colCount) rowUsed[row] = colUsed[col] = 1;
  };
  if (denseBlock) {
    for (std::size_t r = 0; r < denseBlock->rows; ++r) {
      for (std::size_t c = 0; c < denseBlock->cols; ++c) mark(r, c, (*denseBlock)(r, c));
    }
  } else {
    compress();
    for (const MatrixElement& e : elements) mark(e.row, e.col, e.value);
  }
  // Both before either is filled: they may be one list.
  emptyRows.clear();
  emptyCols.clear();
  appendUnmarked(rowUsed, emptyRows);
  appendUnmarked(colUsed, emptyCols);
}

void ProtoSparse::writeToCsv(const ZtString& fileName) const {
  TripletFile file(fileName.c_str());
  if (!file.isOpen()) return;
  if (!denseBlock) {
    compress();
    for (const MatrixElement& e : elements) file.write(e.row, e.col, e.value);
    return;
  }
  for (std::size_t r = 0; r < rowCount; ++r) {
    for (std::size_t c = 0; c < colCount; ++c) file.write(r, c, (*denseBlock)(r, c));
  }
}

}  // namespace zeph_solver
