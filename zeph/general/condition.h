#ifndef ZEPH_GENERAL_CONDITION_H
#define ZEPH_GENERAL_CONDITION_H

#include <cstddef>

#include "types/zttypes.h"
#include "zeph/checks/progress.h"
#include "zeph/error.h"
#include "zeph/factor/inverse_norm.h"
#include "zeph/general/route.h"

namespace zeph {

/// From this condition number on a matrix counts as singular: with rounding errors of 2⁻⁵³ hardly
/// the first digit of a result is certain. Rounding leaves an exactly singular matrix with a tiny
/// pivot instead of a zero one, and this is how it is told.
inline constexpr double kSingularCondition = 1e15;

/// From this condition number on the user hears of it.
inline constexpr double kIllConditioned = 1e11;

/// Largest backward error of a solution that is handed out. A stable factorisation leaves 1e-16 to
/// 1e-13; what is beyond solves another system.
inline constexpr double kLargestBackwardError = 1e-9;

/// Estimate of the condition number ‖S‖₁ ‖S⁻¹‖₁ of the scaled matrix, so that the units of unknowns
/// and equations do not matter.
double estimateCondition(const PreparedMatrix& m, const SolveWith& solve,
                         const SolveWith& solveTransposed);

/// The same for a definite matrix from the diagonal of its scaled inverse: Σ s(i,i) (S⁻¹)(i,i),
/// which is at least ‖S⁻¹‖₂ / 2 and close to it where S is nearly singular.
double conditionFromTrace(const PreparedMatrix& m, const ZtVector& inverseDiagonal);

/// ‖b - S x‖ / (‖S‖ ‖x‖ + ‖b‖) in largest-entry norms: how far from S the matrix is that x solves.
double backwardError(const PreparedMatrix& m, const double* x, const double* b);

/// Largest |b - S x|(i) / (|S| |x| + |b|)(i): the same entry by entry.
double componentwiseError(const PreparedMatrix& m, const double* x, const double* b);

/// Throws unless the error is at most kLargestBackwardError.
void judgeBackwardError(const PreparedMatrix& m, double error);

/// Compares a few entries of the diagonal of S⁻¹ with solves for unit vectors, whose residuals it
/// checks as well. Throws Error(Singular) where they disagree by more than rounding and the
/// condition number explain.
void verifyInverseDiagonal(const PreparedMatrix& m, const SolveWith& solve,
                           const ZtVector& inverseDiagonal, double condition);

/// The error for an A that is no better than a singular one.
Error singularToWorkingPrecision(const PreparedMatrix& m);

/// Throws Error(Singular) at kSingularCondition or when the estimate is not a number; tells
/// progress from kIllConditioned on.
void judgeCondition(const PreparedMatrix& m, double condition, const Progress& progress);

}  // namespace zeph

#endif
