// Dense Cholesky factorisation in place, as a member of korin::Matrix.
#include <algorithm>

#include "kernels/triangles/cholesky.h"
#include "math/dense/korin_matrix.h"
#include "math/dense/korin_rows.h"
#include "math/dense/zt_error.h"

namespace korin {

bool Matrix::setCholesky(bool throwOnFailure) {
  const ZtSize n = rows;
  if (kernels::cholesky(n, data, step(*this)) < n) {
    // The upper triangle is left as it is on purpose: only a finished factor clears it.
    if (!throwOnFailure) return false;
    throwError(__PRETTY_FUNCTION__, "matrix not symmetric positive-definite");
  }
  for (ZtSize r = 0; r < n; ++r) std::fill(rowOf(*this, r) + r + 1, rowOf(*this, r) + n, 0.0);
  return true;
}

}  // namespace korin
