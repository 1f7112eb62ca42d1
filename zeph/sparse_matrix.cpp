#include "zeph/sparse_matrix.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "math/sorting/mtsort.h"
#include "zeph/error.h"
#include "zeph/files/number_text.h"

namespace zeph {
namespace {

using Entries = std::vector<zeph_solver::MatrixElement>;

void moveToTriangle(Entries& entries, bool upper) {
  for (zeph_solver::MatrixElement& e : entries) {
    if (upper ? e.row > e.col : e.row < e.col) std::swap(e.row, e.col);
  }
}

void appendMirrored(Entries& entries, double sign) {
  std::size_t offDiagonal = 0;
  for (const auto& e : entries) offDiagonal += e.row != e.col;
  const std::size_t stored = entries.size();
  entries.reserve(stored + offDiagonal);
  for (std::size_t k = 0; k < stored; ++k) {
    const zeph_solver::MatrixElement e = entries[k];
    if (e.row != e.col) entries.push_back({e.col, e.row, sign * e.value});
  }
}

constexpr int kSortThreads = 32;

std::uint64_t key(const zeph_solver::MatrixElement& e) {
  return (std::uint64_t{e.col} << 32) | e.row;
}

void requireCountable(const SparseMatrix& m) {
  if (m.entries.size() <= kLargestSize) return;
  throw Error(ErrorKind::Unfit, m.source + " has " + std::to_string(m.entries.size()) +
                                    " entries; the solvers count no further than " +
                                    std::to_string(kLargestSize));
}

ZtMatrix zeroMatrix(const std::string& source, std::size_t rows, std::size_t cols) {
  requireMemory(source, rows, cols * sizeof(double));
  ZtMatrix m(rows, cols, cols, nullptr);
  ZtMatrix_setZero(&m);
  return m;
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
  for (const zeph_solver::MatrixElement e : entries) {
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
    p.elements = std::move(m.entries);
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
    m.entries = std::move(p.elements);
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

DenseMatrix toDense(const SparseMatrix& m) {
  DenseMatrix dense;
  dense.source = m.source;
  dense.values = zeroMatrix(m.source, m.rows, m.cols);
  ZtMatrix& values = dense.values;
  const double mirrorSign = m.symmetry == Symmetry::SkewSymmetric ? -1.0 : 1.0;
  for (const auto& e : m.entries) {
    values.data[e.row * values.stride + e.col] += e.value;
    if (m.symmetry == Symmetry::General || e.row == e.col) continue;
    values.data[e.col * values.stride + e.row] += mirrorSign * e.value;
  }
  return dense;
}

void requireMemory(const std::string& source, std::size_t count, std::size_t bytesEach) {
  const double needed = static_cast<double>(count) * static_cast<double>(bytesEach);
  const double installed =
      static_cast<double>(sysconf(_SC_PHYS_PAGES)) * static_cast<double>(sysconf(_SC_PAGESIZE));
  if (needed <= installed) return;
  throw Error(ErrorKind::Memory, source + " is too large for this: it would take " +
                                     std::to_string(static_cast<long>(needed / 1e9)) +
                                     " GB of memory");
}

std::string position(std::size_t indexBase, std::size_t row, std::size_t col) {
  std::string text = "(";
  text += std::to_string(row + indexBase);
  text += ", ";
  text += std::to_string(col + indexBase);
  return text += ")";
}

void requireSquare(const SparseMatrix& m) {
  if (m.rows == 0 || m.cols == 0) {
    throw Error(ErrorKind::Unfit, m.source + " is empty (" + std::to_string(m.rows) + " x " +
                                      std::to_string(m.cols) + "); there is nothing to factorise");
  }
  if (m.rows == m.cols) return;
  throw Error(ErrorKind::Unfit, m.source + " is " + std::to_string(m.rows) + " x " +
                                    std::to_string(m.cols) +
                                    "; only a square matrix can be factorised");
}

void requireFinite(const SparseMatrix& m) {
  for (const auto& e : m.entries) {
    if (std::isfinite(e.value)) continue;
    throw Error(ErrorKind::Unfit, "the value of entry " + position(m.indexBase, e.row, e.col) +
                                      " of " + m.source + " is " + toText(e.value) +
                                      "; replace it by a finite number");
  }
}

}  // namespace zeph
