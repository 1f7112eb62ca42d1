// Storage, sizing, element access and exchange with dense records; the arithmetic is in
// sparsematrix_arithmetic.cpp.
#include "math/containers/sparsematrix.h"

#include <algorithm>
#include <new>
#include <utility>
#include <vector>

#include "math/dense/zt_error.h"

namespace korin {

namespace {

using Node = SparseVector::Entries::Node;

struct Entry {
  unsigned long row;
  unsigned long col;
  double value;
};

// lines[key] gets (i, value) for every entry of the count source lines. Entries that a shrinking
// resize kept beyond the last line have no place.
void appendTransposed(SparseVector* const* lines, unsigned long lineCount,
                      SparseVector* const* source, unsigned long count) {
  for (unsigned long i = 0; i < count; ++i) {
    for (const Node* node = source[i]->list.first(); node != nullptr && node->key < lineCount;
         node = node->next(0)) {
      lines[node->key]->list.append(i, node->value);
    }
  }
}

void zeroLines(SparseVector* const* lines, unsigned long count) {
  for (unsigned long i = 0; i < count; ++i) lines[i]->setZero();
}

// Calls visit(line, key, value) for the stored entries of a block of lines.
template <class Visit>
void visitBlock(SparseVector* const* lines, unsigned long lineFirst, unsigned long lineCount,
                unsigned long keyFirst, unsigned long keyCount, Visit visit) {
  for (unsigned long i = lineFirst; i < lineFirst + lineCount; ++i) {
    for (const Node* node = lines[i]->list.lowerBound(keyFirst);
         node != nullptr && node->key - keyFirst < keyCount; node = node->next(0)) {
      visit(i, node->key, node->value);
    }
  }
}

// this(line, key) = value, where 0.0 means no entry.
void setOrErase(SparseVector& line, unsigned long key, double value) {
  if (value != 0.0) {
    line[key] = value;
  } else {
    line.setSub_zero(key, 1);
  }
}

}  // namespace

// Complete but without data, so that the destructor cleans up after a delegating constructor.
SparseMatrix::SparseMatrix(Shape shape, Allocator* a)
    : allocator(a != nullptr ? a : &defaultAllocator),
      freeMemory(allocator->canFree()),
      hasRowData(false),
      hasColData(false),
      rows(shape.rows),
      cols(shape.cols),
      unused0(0),
      unused1(0),
      rowData(nullptr),
      colData(nullptr) {}

SparseMatrix::SparseMatrix(unsigned long rowCount, unsigned long colCount, bool withRowData,
                           bool withColData, Allocator* a)
    : SparseMatrix(Shape{rowCount, colCount}, a) {
  if (withRowData) allocRowData();
  if (withColData) allocColData();
}

SparseMatrix::SparseMatrix(const SparseMatrix& other)
    : SparseMatrix(other.rows, other.cols, other.hasRowData, other.hasColData, other.allocator) {
  for (unsigned long r = 0; hasRowData && r < rows; ++r) *rowData[r] = *other.rowData[r];
  for (unsigned long c = 0; hasColData && c < cols; ++c) *colData[c] = *other.colData[c];
}

SparseMatrix& SparseMatrix::operator=(const SparseMatrix& other) {
  if (this == &other) return *this;
  const bool takeKinds = !hasRowData && !hasColData;
  SparseMatrix fresh(other.rows, other.cols, takeKinds ? other.hasRowData : hasRowData,
                     takeKinds ? other.hasColData : hasColData, allocator);
  if (fresh.hasRowData) {
    const auto source = SparseMatrixLines::rowsOf(other);
    for (unsigned long r = 0; r < fresh.rows; ++r) *fresh.rowData[r] = source[r];
  }
  if (fresh.hasColData) {
    const auto source = SparseMatrixLines::colsOf(other);
    for (unsigned long c = 0; c < fresh.cols; ++c) *fresh.colData[c] = source[c];
  }
  adopt(fresh);
  return *this;
}

SparseMatrix& SparseMatrix::operator=(const ZtMatrix& dense) {
  SparseMatrix fresh(dense.rows, dense.cols, hasRowData, hasColData, allocator);
  for (unsigned long r = 0; r < dense.rows; ++r) {
    for (unsigned long c = 0; c < dense.cols; ++c) {
      const double value = dense.data[r * dense.stride + c];
      if (value != 0.0) fresh.appendValue(r, c, value);
    }
  }
  adopt(fresh);
  return *this;
}

SparseMatrix::~SparseMatrix() {
  freeRowData();
  freeColData();
}

// Exchanges everything; other is a temporary that takes the old contents away.
void SparseMatrix::adopt(SparseMatrix& other) {
  std::swap(allocator, other.allocator);
  std::swap(freeMemory, other.freeMemory);
  std::swap(hasRowData, other.hasRowData);
  std::swap(hasColData, other.hasColData);
  std::swap(rows, other.rows);
  std::swap(cols, other.cols);
  std::swap(rowData, other.rowData);
  std::swap(colData, other.colData);
}

SparseVector* SparseMatrix::makeLine(unsigned long length) const {
  void* memory = allocator->malloc(sizeof(SparseVector));
  try {
    return new (memory) SparseVector(length, allocator);
  } catch (...) {
    if (freeMemory) allocator->free(memory);
    throw;
  }
}

void SparseMatrix::destroyLine(SparseVector* line) const {
  if (line == nullptr) return;
  line->~SparseVector();
  if (freeMemory) allocator->free(line);
}

// An array for count lines with vectors of the given length from index first on, null before.
SparseVector** SparseMatrix::makeLines(unsigned long first, unsigned long count,
                                       unsigned long length) const {
  void* memory = allocator->malloc(sizeof(SparseVector*) * std::max(count, 1UL));
  auto** lines = static_cast<SparseVector**>(memory);
  std::fill(lines, lines + count, nullptr);
  try {
    for (unsigned long i = first; i < count; ++i) lines[i] = makeLine(length);
  } catch (...) {
    destroyLines(lines, count);
    throw;
  }
  return lines;
}

void SparseMatrix::destroyLines(SparseVector** lines, unsigned long count) const {
  for (unsigned long i = 0; i < count; ++i) destroyLine(lines[i]);
  if (freeMemory) allocator->free(lines);
}

void SparseMatrix::allocRowData() {
  freeRowData();
  rowData = makeLines(0, rows, cols);
  hasRowData = true;
}

void SparseMatrix::allocColData() {
  freeColData();
  colData = makeLines(0, cols, rows);
  hasColData = true;
}

void SparseMatrix::freeRowData() {
  if (!hasRowData) return;
  hasRowData = false;
  destroyLines(rowData, rows);
  rowData = nullptr;
}

void SparseMatrix::freeColData() {
  if (!hasColData) return;
  hasColData = false;
  destroyLines(colData, cols);
  colData = nullptr;
}

void SparseMatrix::rebuildRowData() {
  if (!hasRowData || !hasColData) return;
  zeroRows();
  appendTransposed(rowData, rows, colData, cols);
}

void SparseMatrix::rebuildColData() {
  if (!hasRowData || !hasColData) return;
  zeroCols();
  appendTransposed(colData, cols, rowData, rows);
}

void SparseMatrix::addRowData() {
  if (hasRowData) return;
  allocRowData();
  rebuildRowData();
}

void SparseMatrix::addColData() {
  if (hasColData) return;
  allocColData();
  rebuildColData();
}

// All memory is obtained before anything changes.
void SparseMatrix::resize(unsigned long newRows, unsigned long newCols) {
  const bool both = hasRowData && hasColData;
  SparseVector** freshRows = nullptr;
  SparseVector** freshCols = nullptr;
  try {
    if (hasRowData) freshRows = prepareLines(rowData, rows, newRows, newCols);
    if (hasColData) freshCols = prepareLines(colData, cols, newCols, newRows);
    // Entries kept beyond the last column or row that growing brings back, for the other view.
    if (both && newCols > cols) {
      visitBlock(rowData, 0, std::min(rows, newRows), cols, newCols - cols,
                 [&](unsigned long r, unsigned long c, double v) { (*freshCols[c])[r] = v; });
    }
    if (both && newRows > rows) {
      visitBlock(colData, 0, std::min(cols, newCols), rows, newRows - rows,
                 [&](unsigned long c, unsigned long r, double v) { (*freshRows[r])[c] = v; });
    }
  } catch (...) {
    if (freshRows != nullptr) destroyLines(freshRows, newRows);
    if (freshCols != nullptr) destroyLines(freshCols, newCols);
    throw;
  }
  if (hasRowData) replaceLines(rowData, rows, freshRows, newRows, newCols);
  if (hasColData) replaceLines(colData, cols, freshCols, newCols, newRows);
  rows = newRows;
  cols = newCols;
}

// The lines that a new shape needs beside those that stay, which are null. A line that needs more
// levels for its new length is replaced: its own number is fixed, and access would become linear.
SparseVector** SparseMatrix::prepareLines(SparseVector* const* lines, unsigned long count,
                                          unsigned long newCount, unsigned long newLength) const {
  const unsigned long kept = std::min(count, newCount);
  const unsigned short levels = SparseVector::Entries::levelsFor(newLength);
  SparseVector** fresh = makeLines(kept, newCount, newLength);
  try {
    for (unsigned long i = 0; i < kept; ++i) {
      if (lines[i]->list.maxLevel >= levels) continue;
      fresh[i] = makeLine(newLength);
      *fresh[i] = *lines[i];
    }
  } catch (...) {
    destroyLines(fresh, newCount);
    throw;
  }
  return fresh;
}

void SparseMatrix::replaceLines(SparseVector**& lines, unsigned long& count, SparseVector** fresh,
                                unsigned long newCount, unsigned long newLength) const {
  for (unsigned long i = 0; i < std::min(count, newCount); ++i) {
    if (fresh[i] == nullptr) std::swap(fresh[i], lines[i]);
    fresh[i]->resize(newLength);
  }
  destroyLines(lines, count);
  lines = fresh;
  count = newCount;
}

void SparseMatrix::setZero() {
  zeroRows();
  zeroCols();
}

void SparseMatrix::zeroRows() {
  if (hasRowData) zeroLines(rowData, rows);
}

void SparseMatrix::zeroCols() {
  if (hasColData) zeroLines(colData, cols);
}

void SparseMatrix::setSub_zero(unsigned long rowFirst, unsigned long colFirst,
                               unsigned long rowCount, unsigned long colCount) {
  for (unsigned long k = 0; hasRowData && k < rowCount; ++k) {
    rowData[rowFirst + k]->setSub_zero(colFirst, colCount);
  }
  for (unsigned long k = 0; hasColData && k < colCount; ++k) {
    colData[colFirst + k]->setSub_zero(rowFirst, rowCount);
  }
}

void SparseMatrix::setIdentity(double value) {
  setZero();
  const unsigned long count = std::min(rows, cols);
  for (unsigned long i = 0; i < count; ++i) appendValue(i, i, value);
}

void SparseMatrix::setValue(ZtSize r, ZtSize c, ZtReal v) {
  if (!hasRowData || !hasColData) {
    if (hasRowData) (*rowData[r])[c] = v;
    if (hasColData) (*colData[c])[r] = v;
    return;
  }
  const Node* const held = std::as_const(rowData[r]->list).lowerBound(c);
  const bool isNew = held == nullptr || held->key != c;
  double& inRow = (*rowData[r])[c];
  try {
    (*colData[c])[r] = v;
  } catch (...) {
    if (isNew) rowData[r]->list.eraseRange(c, 1);
    throw;
  }
  inRow = v;
}

ZtReal SparseMatrix::getValue(ZtSize r, ZtSize c) const {
  // Both reads insert an explicit 0.0 when there is no entry, on purpose; with rows and columns
  // into both, so that they stay equal.
  if (hasRowData) {
    if (hasColData && inside(r, c)) (*colData[c])[r];
    return (*rowData[r])[c];
  }
  if (hasColData) return (*colData[c])[r];
  throwError(__PRETTY_FUNCTION__, "no data!");
}

void SparseMatrix::appendValue(ZtSize r, ZtSize c, ZtReal v) {
  if (hasRowData) rowData[r]->list.append(c, v);
  if (!hasColData) return;
  try {
    colData[c]->list.append(r, v);
  } catch (...) {
    if (hasRowData) rowData[r]->list.eraseRange(c, 1);
    throw;
  }
}

void SparseMatrix::forEach(void* context, Callback callback) const {
  if (hasRowData) {
    visitBlock(rowData, 0, rows, 0, cols,
               [&](unsigned long r, unsigned long c, double v) { callback(context, r, c, v); });
  } else if (hasColData) {
    visitBlock(colData, 0, cols, 0, rows,
               [&](unsigned long c, unsigned long r, double v) { callback(context, r, c, v); });
  }
}

// The getters' text speaks of an index, but they only fail without data: indices are trusted, on
// purpose.
void SparseMatrix::getDenseColVector(korin::Vector& dst, ZtSize rowFirst, ZtSize col, ZtSize count,
                                     ZtSize dstFirst) const {
  if (hasColData) {
    colData[col]->getSubVector(dst, dstFirst, count, rowFirst);
  } else if (hasRowData) {
    // The non-const access stores absent entries as explicit zeros, on purpose.
    for (ZtSize k = 0; k < count; ++k) dst[dstFirst + k] = (*rowData[rowFirst + k])[col];
  } else {
    throwError(__PRETTY_FUNCTION__, "index out of range");
  }
}

void SparseMatrix::getDenseRowVector(korin::Vector& dst, ZtSize row, ZtSize colFirst, ZtSize count,
                                     ZtSize dstFirst) const {
  if (hasRowData) {
    rowData[row]->getSubVector(dst, dstFirst, count, colFirst);
  } else if (hasColData) {
    for (ZtSize k = 0; k < count; ++k) dst[dstFirst + k] = (*colData[colFirst + k])[row];
  } else {
    throwError(__PRETTY_FUNCTION__, "index out of range");
  }
}

void SparseMatrix::getDenseSubMatrix(korin::Matrix& dst, ZtSize rowFirst, ZtSize colFirst,
                                     ZtSize rowCount, ZtSize colCount, ZtSize dstRowFirst,
                                     ZtSize dstColFirst) const {
  if (!hasRowData && !hasColData) throwError(__PRETTY_FUNCTION__, "index out of range");
  for (ZtSize k = 0; k < rowCount; ++k) {
    double* target = &dst(dstRowFirst + k, dstColFirst);
    std::fill(target, target + colCount, 0.0);
  }
  const auto store = [&](ZtSize r, ZtSize c, double v) {
    dst(r - rowFirst + dstRowFirst, c - colFirst + dstColFirst) = v;
  };
  if (hasRowData) {
    visitBlock(rowData, rowFirst, rowCount, colFirst, colCount, store);
  } else {
    visitBlock(colData, colFirst, colCount, rowFirst, rowCount,
               [&](ZtSize c, ZtSize r, double v) { store(r, c, v); });
  }
}

void SparseMatrix::setSub_mat(const korin::Matrix& src, ZtSize rowFirst, ZtSize colFirst,
                              ZtSize rowCount, ZtSize colCount, ZtSize srcRowFirst,
                              ZtSize srcColFirst) {
  setSub_zero(rowFirst, colFirst, rowCount, colCount);
  for (ZtSize r = 0; r < rowCount; ++r) {
    for (ZtSize c = 0; c < colCount; ++c) {
      const ZtReal value = src(srcRowFirst + r, srcColFirst + c);
      if (value != 0.0) setValue(rowFirst + r, colFirst + c, value);
    }
  }
}

void SparseMatrix::setSub_mat(const korin::SparseMatrix& src, ZtSize rowFirst, ZtSize colFirst,
                              ZtSize rowCount, ZtSize colCount, ZtSize srcRowFirst,
                              ZtSize srcColFirst) {
  if (!src.hasRowData && !src.hasColData) throwError(__PRETTY_FUNCTION__, "source has no data");
  // Taken out first, because clearing the block may remove what is to be copied.
  std::vector<Entry> entries;
  const auto take = [&](ZtSize r, ZtSize c, double v) {
    entries.push_back({r - srcRowFirst + rowFirst, c - srcColFirst + colFirst, v});
  };
  if (src.hasRowData) {
    visitBlock(src.rowData, srcRowFirst, rowCount, srcColFirst, colCount, take);
  } else {
    visitBlock(src.colData, srcColFirst, colCount, srcRowFirst, rowCount,
               [&](ZtSize c, ZtSize r, double v) { take(r, c, v); });
  }
  setSub_zero(rowFirst, colFirst, rowCount, colCount);
  for (const Entry& entry : entries) setValue(entry.row, entry.col, entry.value);
}

void SparseMatrix::setCol(const ZtVector& v, ZtSize c) {
  if (hasColData) colData[c]->setSubVector(v, 0, rows, 0);
  for (ZtSize r = 0; hasRowData && r < rows; ++r) setOrErase(*rowData[r], c, v.data[r]);
}

void SparseMatrix::setRow(const ZtVector& v, ZtSize r) {
  if (hasRowData) rowData[r]->setSubVector(v, 0, cols, 0);
  for (ZtSize c = 0; hasColData && c < cols; ++c) setOrErase(*colData[c], r, v.data[c]);
}

SparseMatrixLines SparseMatrixLines::rowsOf(const SparseMatrix& m) {
  SparseMatrixLines lines;
  if (m.hasRowData) {
    lines.lines_ = m.rowData;
  } else if (m.hasColData) {
    lines.built_ = std::make_unique<SparseMatrix>(m.rows, m.cols, true, false, nullptr);
    lines.lines_ = lines.built_->rowData;
    appendTransposed(lines.built_->rowData, m.rows, m.colData, m.cols);
  } else {
    m.getValue(0, 0);  // throws "no data!"
  }
  return lines;
}

SparseMatrixLines SparseMatrixLines::colsOf(const SparseMatrix& m) {
  SparseMatrixLines lines;
  if (m.hasColData) {
    lines.lines_ = m.colData;
  } else if (m.hasRowData) {
    lines.built_ = std::make_unique<SparseMatrix>(m.rows, m.cols, false, true, nullptr);
    lines.lines_ = lines.built_->colData;
    appendTransposed(lines.built_->colData, m.cols, m.rowData, m.rows);
  } else {
    m.getValue(0, 0);  // throws "no data!"
  }
  return lines;
}

}  // namespace korin
