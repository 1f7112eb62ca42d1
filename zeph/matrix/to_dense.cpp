#include "zeph/matrix/to_dense.h"

#include <string>

#include "zeph/checks/memory.h"

namespace zeph {

DenseMatrix toDense(const SparseMatrix& m, double memoryLimit) {
  requireBytes("a dense matrix of " + std::to_string(m.rows) + " x " + std::to_string(m.cols) +
                   " from " + m.source,
               sizeof(double) * static_cast<double>(m.rows) * static_cast<double>(m.cols),
               memoryLimit);
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
