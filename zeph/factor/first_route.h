#ifndef ZEPH_FACTOR_FIRST_ROUTE_H
#define ZEPH_FACTOR_FIRST_ROUTE_H

#include <string>

#include "zeph/dense_matrix.h"
#include "zeph/options.h"
#include "zeph/sparse_matrix.h"

namespace zeph {

/// Throws unless A is square, finite, well-formed and not half of a matrix without a word of it.
void requireFactorable(const SparseMatrix& A);

/// "Cholesky", "LU", ...
const char* name(Route route);

/// "minimum degree", ...
const char* name(Ordering ordering);

struct FirstRoute {
  Route route;
  std::string reason;
};

/// The route that Factor tries first when it is left open, for programs that do not want LU to step
/// in where Cholesky fails. Throws as Factor does for what no route takes.
FirstRoute firstRoute(const SparseMatrix& A);

/// Largest ‖Ax-b‖ / (‖A‖ ‖x‖ + ‖b‖) of a column, in largest-entry norms and A's row sums.
double relativeResidual(const SparseMatrix& A, const DenseMatrix& X, const DenseMatrix& B);

}  // namespace zeph

#endif
