#include "zeph/general/protosparse.h"

#include <utility>

#include "zeph/matrix/merge.h"

namespace zeph {
namespace {

void moveToTriangle(std::vector<Entry>& entries, bool upper) {
  for (Entry& e : entries) {
    if (upper ? e.row > e.col : e.row < e.col) std::swap(e.row, e.col);
  }
}

}  // namespace

// Duplicates are merged here, because the assembly form forgets sums below an absolute bound.
zeph_solver::ProtoSparse assemble(SparseMatrix m, Triangles triangles) {
  const bool symmetric = m.symmetry == Symmetry::Symmetric;
  if (symmetric && triangles != Triangles::Both) {
    moveToTriangle(m.entries, triangles == Triangles::Upper);
  }
  mergeDuplicates(m);
  if (m.symmetry == Symmetry::SkewSymmetric || triangles == Triangles::Both) makeGeneral(m);
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

}  // namespace zeph
