#include "solver/partial_inverse_sqrt.h"

#include <algorithm>
#include <limits>

#include "math/dense/korin_matrix.h"
#include "math/dense/korin_vector.h"

namespace zeph_solver {

void partialInverseSqrt(const ZtMatrix& S, ZtVector& diagonal) {
  if (S.rows != S.cols) {
    std::fill_n(diagonal.data, diagonal.size, std::numeric_limits<double>::quiet_NaN());
    return;
  }
  const ZtSize n = S.rows;
  korin::Matrix transposed(n, n);
  transposed.setTransposeOf(S);
  korin::Vector unit(n), y(n), x(n), found(std::min(diagonal.size, n));
  unit.setSub_zero(0, n);
  // Column i of the inverse is S^-1 (S^-T e_i). The whole column is solved for, although only x[i]
  // is kept: an unusable pivot anywhere then shows in every entry after it.
  for (ZtSize i = 0; i < found.size; ++i) {
    unit[i] = 1.0;
    y.setLeftDivideTriL(transposed, unit);
    x.setLeftDivideTriU(S, y);
    found[i] = x[i];
    unit[i] = 0.0;
  }
  // Written last: the diagonal may lie in S.
  std::copy_n(found.data, found.size, diagonal.data);
}

}  // namespace zeph_solver
