// Products with a transposed factor, made of the kernels and transposition.
#include "math/korin_matrix.h"

namespace korin {

void Matrix::setTransMatMulMat(const ZtMatrix& a, const ZtMatrix& b) {
  Matrix transposed(a.cols, a.rows);
  transposed.setTransposeOf(a);
  setMatMulMat(transposed, b);
}

void Matrix::setABAt(const ZtMatrix& a, const ZtMatrix& b) {
  Matrix ab(a.rows, b.cols);
  ab.setMatMulMat(a, b);
  setMatMulTransMat(ab, a);
}

void Matrix::setAtBA(const ZtMatrix& a, const ZtMatrix& b) {
  Matrix atb(a.cols, b.cols);
  atb.setTransMatMulMat(a, b);
  setMatMulMat(atb, a);
}

}  // namespace korin
