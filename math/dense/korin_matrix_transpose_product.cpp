// Products with a transposed factor, by the ordered kernels.
#include "kernels/products/ordered_product.h"
#include "math/dense/korin_matrix.h"
#include "math/dense/korin_rows.h"

namespace korin {

void Matrix::setTransMatMulMat(const ZtMatrix& a, const ZtMatrix& b) {
  kernels::orderedTransposedProduct(rows, cols, a.rows, a.data, step(a), b.data, step(b), data,
                                    step(*this));
}

void Matrix::setABAt(const ZtMatrix& a, const ZtMatrix& b) {
  Matrix ab(a.rows, b.cols);
  kernels::orderedProduct(a.rows, b.cols, a.cols, a.data, step(a), b.data, step(b), ab.data,
                          step(ab));
  kernels::orderedProductTransposed(rows, cols, b.cols, ab.data, step(ab), a.data, step(a), data,
                                    step(*this));
}

void Matrix::setAtBA(const ZtMatrix& a, const ZtMatrix& b) {
  Matrix atb(a.cols, b.cols);
  atb.setTransMatMulMat(a, b);
  kernels::orderedProduct(rows, cols, b.cols, atb.data, step(atb), a.data, step(a), data,
                          step(*this));
}

}  // namespace korin
