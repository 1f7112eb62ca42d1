#ifndef ZEPH_GENERAL_VARIANCES_H
#define ZEPH_GENERAL_VARIANCES_H

#include "types/zttypes.h"
#include "zeph/checks/progress.h"
#include "zeph/general/route_choice.h"
#include "zeph/sparse_matrix.h"

namespace zeph {

struct Variances {
  ZtVector diagonal;  ///< diagonal[i] = (A⁻¹)(i, i), all finite
  RouteChoice choice;
  double condition = 0.0;  ///< rough estimate of A's condition number, units scaled away
};

/// The diagonal of A⁻¹: for an information matrix A the variances of the estimated quantities.
///
///     zeph::Variances v = zeph::variances(zeph::readSparse("A.mtx"));
///
/// Throws Error(NotPositiveDefinite) or Error(Singular), with the row of the breakdown where it is
/// known; values that are not finite, or of a matrix that is singular to working precision, are
/// never returned. Cost: on the Cholesky and LU routes about one factorisation and its selected
/// inverse; with LuSolves n solves.
Variances variances(SparseMatrix A, Route asked = Route::Automatic,
                    const Progress& progress = Progress());

}  // namespace zeph

#endif
