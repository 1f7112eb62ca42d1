#include "zeph/operations.h"

#include <utility>

#include "zeph/checks/guarded.h"
#include "zeph/matrix/protosparse.h"
#include "zeph/matrix/requirements.h"

namespace zeph {

DenseMatrix multiply(SparseMatrix A, const DenseMatrix& B, const Progress& progress) {
  const std::string source = A.source;
  if (A.cols != B.rows || B.cols == 0) {
    throw Error(ErrorKind::Unfit, "cannot multiply " + A.source + " (" + std::to_string(A.rows) +
                                      " x " + std::to_string(A.cols) + ") by " + B.source + " (" +
                                      std::to_string(B.rows) + " x " + std::to_string(B.cols) +
                                      "); the inner dimensions must agree");
  }
  return guarded(source, [&] {
    requireMemory(source, A.rows, B.cols * sizeof(double));
    progress.begin("multiplying");
    zeph_solver::ProtoSparse p = assemble(std::move(A), Triangles::Both);
    ZtMatrix C(p.rowCount, B.cols, B.cols, nullptr);
    p.multiplyDense(toRecord(B), C);
    return fromRecord(C);
  });
}

}  // namespace zeph
