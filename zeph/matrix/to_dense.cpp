#include "zeph/matrix/to_dense.h"

#include "zeph/matrix/requirements.h"

namespace zeph {

DenseMatrix toDense(const SparseMatrix& m) {
  requireMemory(m.source, m.rows, m.cols * sizeof(double));
  auto dense = DenseMatrix::zeros(m.rows, m.cols);
  dense.source = m.source;
  const double mirrorSign = m.symmetry == Symmetry::SkewSymmetric ? -1.0 : 1.0;
  for (const Entry& e : m.entries) {
    dense(e.row, e.col) += e.value;
    if (m.symmetry == Symmetry::General || e.row == e.col) continue;
    dense(e.col, e.row) += mirrorSign * e.value;
  }
  return dense;
}

}  // namespace zeph
