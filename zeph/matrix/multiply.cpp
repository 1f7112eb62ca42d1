#include "zeph/matrix/multiply.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "kernels/triplets/triplet_bands.h"
#include "kernels/triplets/triplet_product.h"
#include "zeph/checks/guarded.h"
#include "zeph/checks/memory.h"
#include "zeph/matrix/merge.h"

namespace zeph {

namespace {

// The kernels take row-major blocks; converted in whole, B and C would be held twice.
constexpr std::size_t kColumnsAtOnce = 64;
static_assert(sizeof(Entry) == 16, "the kernels read triplets of 16 bytes");

void multiplyColumns(const SparseMatrix& A, const DenseMatrix& B, std::size_t first,
                     std::size_t count, DenseMatrix& C) {
  std::vector<double> b(B.rows * count), c(C.rows * count, 0.0);
  for (std::size_t k = 0; k < count; ++k) {
    for (std::size_t r = 0; r < B.rows; ++r) b[r * count + k] = B(r, first + k);
  }
  const Entry* list = A.entries.data();
  const std::size_t stored = A.entries.size();
  if (korin::kernels::bandsPay(list, stored, C.rows, count)) {
    korin::kernels::addTripletProductInBands(list, stored, b.data(), count, c.data(), count, C.rows,
                                             count);
  } else {
    korin::kernels::addTripletProduct(list, stored, b.data(), count, c.data(), count, count);
  }
  for (std::size_t k = 0; k < count; ++k) {
    for (std::size_t r = 0; r < C.rows; ++r) C(r, first + k) = c[r * count + k];
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
    const double cols = static_cast<double>(B.cols), rows = static_cast<double>(A.rows);
    const double together = std::min(cols, double{kColumnsAtOnce});
    requireBytes("multiplying " + source + " by " + B.source,
                 sizeof(double) * (rows * cols + together * (rows + static_cast<double>(A.cols))),
                 0.0);
    progress.begin("multiplying");
    makeGeneral(A);
    auto C = DenseMatrix::zeros(A.rows, B.cols);
    for (std::size_t first = 0; first < B.cols; first += kColumnsAtOnce) {
      progress.checkpoint();
      multiplyColumns(A, B, first, std::min(kColumnsAtOnce, B.cols - first), C);
    }
    if (!std::all_of(C.values.begin(), C.values.end(), [](double v) { return std::isfinite(v); })) {
      throw Error(ErrorKind::Unfit, "the product of " + source + " and " + B.source +
                                        " overflows; scale one of them");
    }
    return C;
  });
}

}  // namespace zeph
