#include "zeph/matrix/protosparse.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "math/sorting/mtsort.h"
#include "zeph/error.h"
#include "zeph/files/number_text.h"

namespace zeph {
namespace {

using Entries = std::vector<Entry>;

void moveToTriangle(Entries& entries, bool upper) {
  for (Entry& e : entries) {
    if (upper ? e.row > e.col : e.row < e.col) std::swap(e.row, e.col);
  }
}

void appendMirrored(Entries& entries, double sign) {
  std::size_t offDiagonal = 0;
  for (const auto& e : entries) offDiagonal += e.row != e.col;
  const std::size_t stored = entries.size();
  entries.reserve(stored + offDiagonal);
  for (std::size_t k = 0; k < stored; ++k) {
    const Entry e = entries[k];
    if (e.row != e.col) entries.push_back({e.col, e.row, sign * e.value});
  }
}

constexpr int kSortThreads = 32;

std::uint64_t key(const Entry& e) {
  return (std::uint64_t{e.col} << 32) | e.row;
}

void requireCountable(const SparseMatrix& m) {
  if (m.entries.size() <= kLargestSize) return;
  throw Error(ErrorKind::Unfit, m.source + " has " + std::to_string(m.entries.size()) +
                                    " entries; the solvers count no further than " +
                                    std::to_string(kLargestSize));
}

}  // namespace

std::size_t mergeDuplicates(SparseMatrix& m) {
  requireCountable(m);
  Entries& entries = m.entries;
  const auto before = [](const auto& a, const auto& b) { return key(a) < key(b); };
  if (!std::is_sorted(entries.begin(), entries.end(), before)) {
    korin::mtSort(entries.data(), static_cast<int>(entries.size()), kSortThreads);
  }
  std::size_t kept = 0;
  for (const Entry e : entries) {
    if (kept != 0 && key(entries[kept - 1]) == key(e)) {
      entries[kept - 1].value += e.value;
    } else {
      entries[kept++] = e;
    }
  }
  const std::size_t merged = entries.size() - kept;
  entries.resize(kept);
  return merged;
}

void makeGeneral(SparseMatrix& m) {
  mergeDuplicates(m);
  if (m.symmetry == Symmetry::General) return;
  appendMirrored(m.entries, m.symmetry == Symmetry::Symmetric ? 1.0 : -1.0);
  m.symmetry = Symmetry::General;
  mergeDuplicates(m);
}

// Duplicates are merged here, because the assembly form forgets sums below an absolute bound.
zeph_solver::ProtoSparse assemble(SparseMatrix m, Triangles triangles) {
  const bool symmetric = m.symmetry == Symmetry::Symmetric;
  if (symmetric && triangles != Triangles::Both) {
    moveToTriangle(m.entries, triangles == Triangles::Upper);
  }
  mergeDuplicates(m);
  if (symmetric && triangles == Triangles::Both) appendMirrored(m.entries, 1.0);
  if (m.symmetry == Symmetry::SkewSymmetric) appendMirrored(m.entries, -1.0);
  requireCountable(m);
  zeph_solver::ProtoSparse p;
  p.setSize(m.rows, m.cols);
  if (!p.isDense()) {
    p.elements.reserve(m.entries.size());
    for (const Entry& e : m.entries) p.elements.push_back({e.row, e.col, e.value});
    return p;
  }
  p.clear();
  for (const auto& e : m.entries) p.addDenseElement(e.row, e.col, e.value);
  return p;
}

SparseMatrix takeEntries(zeph_solver::ProtoSparse& p, const std::string& source) {
  SparseMatrix m;
  m.source = source;
  m.rows = p.rowCount;
  m.cols = p.colCount;
  if (!p.isDense()) {
    m.entries.reserve(p.elements.size());
    for (const auto& e : p.elements) m.entries.push_back({e.row, e.col, e.value});
    p.elements = {};
    return m;
  }
  for (std::uint32_t c = 0; c < m.cols; ++c) {
    for (std::uint32_t r = 0; r < m.rows; ++r) {
      const double value = p.denseBlock->data[r * p.denseBlock->stride + c];
      if (value != 0.0) m.entries.push_back({r, c, value});
    }
  }
  return m;
}

ZtMatrix toRecord(const DenseMatrix& m) {
  ZtMatrix record(m.rows, m.cols, m.cols, nullptr);
  for (std::size_t c = 0; c < m.cols; ++c) {
    for (std::size_t r = 0; r < m.rows; ++r) record.data[r * record.stride + c] = m(r, c);
  }
  return record;
}

DenseMatrix fromRecord(const ZtMatrix& m) {
  auto dense = DenseMatrix::zeros(m.rows, m.cols);
  for (std::size_t r = 0; r < m.rows; ++r) {
    for (std::size_t c = 0; c < m.cols; ++c) dense(r, c) = m.data[r * m.stride + c];
  }
  return dense;
}

}  // namespace zeph
