#include "zeph/matrix/record.h"

namespace zeph {

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
