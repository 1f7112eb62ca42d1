#ifndef ZEPH_CHECKS_CONDITION_H
#define ZEPH_CHECKS_CONDITION_H

#include "solver/solver.h"
#include "types/zttypes.h"
#include "zeph/checks/route.h"
#include "zeph/error.h"
#include "zeph/progress.h"

namespace zeph {

/// From this condition number on a matrix counts as singular: with rounding errors of 2⁻⁵³ hardly
/// the first digit of a result is certain. Rounding leaves an exactly singular matrix with a tiny
/// pivot instead of a zero one, and this is how it is told.
inline constexpr double kSingularCondition = 1e15;

/// From this condition number on the user hears of it.
inline constexpr double kIllConditioned = 1e11;

/// Estimate of the condition number of A, scaled so that the units of unknowns and equations do not
/// matter, from the diagonal of its inverse. Cholesky: Σ a(i,i) (A⁻¹)(i,i), the trace of the scaled
/// inverse, is at least 1/λ_min and close to it where A is nearly singular. LU: the same sum with
/// the row and column scales instead of the diagonal, which may miss a singular A with an inverse
/// of small diagonal. One pass over the entries.
double conditionFromInverse(const PreparedMatrix& m, const ZtVector& inverseDiagonal);

/// The same from a factorisation: the length of the scaled inverse times a random vector, which is
/// close to 1/σ_min unless the vector is all but orthogonal to the worst direction. One solve.
double conditionFromSolve(const PreparedMatrix& m, zeph_solver::Solver& solver,
                          zeph_solver::Factorisation& f);

/// The error for an A that is no better than a singular one.
Error singularToWorkingPrecision(const PreparedMatrix& m);

/// Throws Error(Singular) at kSingularCondition or when the estimate is not a number; tells
/// progress from kIllConditioned on.
void judgeCondition(const PreparedMatrix& m, double condition, const Progress& progress);

}  // namespace zeph

#endif
