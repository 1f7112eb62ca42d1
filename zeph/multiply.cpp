#include "zeph/operations.h"

#include <utility>

#include "zeph/checks/guarded.h"

namespace zeph {

ZtMatrix multiply(SparseMatrix A, const DenseMatrix& B, const Progress& progress) {
  const std::string source = A.source;
  if (A.cols != B.values.rows || B.values.cols == 0) {
    throw Error(ErrorKind::Unfit, "cannot multiply " + A.source + " (" + std::to_string(A.rows) +
                                      " x " + std::to_string(A.cols) + ") by " + B.source + " (" +
                                      std::to_string(B.values.rows) + " x " +
                                      std::to_string(B.values.cols) +
                                      "); the inner dimensions must agree");
  }
  return guarded(source, [&] {
    requireMemory(source, A.rows, B.values.cols * sizeof(double));
    progress.begin("multiplying");
    zeph_solver::ProtoSparse p = assemble(std::move(A), Triangles::Both);
    ZtMatrix C(p.rowCount, B.values.cols, B.values.cols, nullptr);
    p.multiplyDense(B.values, C);
    return C;
  });
}

}  // namespace zeph
