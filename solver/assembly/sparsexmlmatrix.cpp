#include "solver/assembly/sparsexmlmatrix.h"

namespace zeph_solver {

SparseXMLMatrix::SparseXMLMatrix(const ProtoSparse& p) : size{p.rowCount, p.colCount} {
  // In dense mode the list may hold stale elements that are not part of the matrix.
  if (p.isDense()) return;
  indices.reserve(2 * p.elements.size());
  values.reserve(p.elements.size());
  for (const MatrixElement& e : p.elements) {
    indices.push_back(e.row);
    indices.push_back(e.col);
    values.push_back(e.value);
  }
}

void SparseXMLMatrix::toProtoSparse(ProtoSparse& p) const {
  p.clear();
  p.setSize(size[0], size[1]);
  for (std::size_t k = 0; k < values.size(); ++k) {
    p.addElement(indices[2 * k], indices[2 * k + 1], values[k]);
  }
}

}  // namespace zeph_solver
