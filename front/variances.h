#ifndef ZEPH_FRONT_VARIANCES_H
#define ZEPH_FRONT_VARIANCES_H

#include <string>

#include "front/progress.h"
#include "front/sparse_matrix.h"
#include "types/zttypes.h"

namespace zeph {

/// How a square system is factorised.
enum class Route {
  Automatic,  ///< Cholesky when A is symmetric with a usable diagonal, LU otherwise
  Cholesky,   ///< CHOLMOD; for symmetric positive definite A
  Lu,         ///< UMFPACK; for any non-singular A
  LuSolves    ///< UMFPACK with one solve for every variance; slow, for comparison
};

/// "Cholesky", "LU", ...
const char* name(Route route);

/// The route that will be taken and one sentence that says why.
struct RouteChoice {
  Route route = Route::Lu;
  std::string reason;
};

/// Turns Automatic into a route and checks that a forced one can be taken.
/// Throws Error(Unfit) when m is not square, empty or not finite, or when Cholesky is forced on a
/// matrix that is not symmetric.
RouteChoice chooseRoute(const SparseMatrix& m, Route asked);

struct Variances {
  ZtVector diagonal;  ///< diagonal[i] = (A⁻¹)(i, i), all finite
  RouteChoice choice;
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
