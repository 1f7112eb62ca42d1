// What became of a factorisation: the solver itself reports nothing. For the floors above this one:
// the shared library does not export it.
#ifndef ZEPH_SOLVER_SUITESPARSE_FACTORISATION_STATUS_H
#define ZEPH_SOLVER_SUITESPARSE_FACTORISATION_STATUS_H

#include "solver/solver.h"

namespace zeph_solver {

struct FactorisationStatus {
  /// There is a factor, and a solve with it is meaningful.
  bool ok = false;
  /// Cholesky route only: every pivot is positive.
  bool positiveDefinite = false;
  /// A pivot is exactly zero, or no factor could be made.
  bool singular = true;
  /// The factorisation ended for want of memory or of 32-bit indices; nothing is known about A.
  bool exhausted = false;
  /// Index in A of the first row and column whose pivot failed (Cholesky: not positive; LU: zero),
  /// or -1.
  int failedColumn = -1;
  /// A rough estimate from the pivots alone (ratio of the smallest to the largest; squared for a
  /// Cholesky factor). Zero when singular; below 1e-16 hardly a digit of a solution is right.
  double reciprocalCondition = 0.0;
};

/// Reads the status off an existing factorisation. Cost: one pass over the pivots.
FactorisationStatus factorisationStatus(const Factorisation& f);

}  // namespace zeph_solver

#endif
