#ifndef ZEPH_GENERAL_SOLVE_H
#define ZEPH_GENERAL_SOLVE_H

#include "zeph/checks/progress.h"
#include "zeph/dense_matrix.h"
#include "zeph/general/route_choice.h"
#include "zeph/sparse_matrix.h"

namespace zeph {

struct Solution {
  DenseMatrix X;  ///< A's columns x B's columns, all finite
  RouteChoice choice;
  double condition = 0.0;  ///< rough estimate of A's condition number, units scaled away
  /// Largest ‖Ax-b‖ / (‖A‖ ‖x‖ + ‖b‖) of a column in largest-entry norms, rows and columns of A
  /// scaled to the same size; 0 for B = 0.
  double relativeResidual = 0.0;
};

/// Solves A X = B for all columns of B with one factorisation. Route::LuSolves means Lu here.
/// Throws Error(Unfit) when B has not A's height, and as variances() does.
Solution solve(SparseMatrix A, const DenseMatrix& B, Route asked = Route::Automatic,
               const Progress& progress = Progress());

}  // namespace zeph

#endif
