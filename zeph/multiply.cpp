#include "zeph/operations.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "zeph/checks/guarded.h"
#include "zeph/matrix/protosparse.h"
#include "zeph/matrix/requirements.h"

namespace zeph {

namespace {

// The product takes row-major records; converted in whole, B and C would be held twice.
constexpr std::size_t kColumnsAtOnce = 64;

void multiplyColumns(zeph_solver::ProtoSparse& A, const DenseMatrix& B, std::size_t first,
                     std::size_t count, DenseMatrix& C) {
  ZtMatrix b(B.rows, count, count, nullptr);
  ZtMatrix c(C.rows, count, count, nullptr);
  for (std::size_t k = 0; k < count; ++k) {
    for (std::size_t r = 0; r < B.rows; ++r) b.data[r * b.stride + k] = B(r, first + k);
  }
  A.multiplyDense(b, c);
  for (std::size_t k = 0; k < count; ++k) {
    for (std::size_t r = 0; r < C.rows; ++r) C(r, first + k) = c.data[r * c.stride + k];
  }
}

}  // namespace

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
    auto C = DenseMatrix::zeros(p.rowCount, B.cols);
    for (std::size_t first = 0; first < B.cols; first += kColumnsAtOnce) {
      progress.checkpoint();
      multiplyColumns(p, B, first, std::min(kColumnsAtOnce, B.cols - first), C);
    }
    if (!std::all_of(C.values.begin(), C.values.end(), [](double v) { return std::isfinite(v); })) {
      throw Error(ErrorKind::Unfit, "the product of " + source + " and " + B.source +
                                        " overflows; scale one of them");
    }
    return C;
  });
}

}  // namespace zeph
