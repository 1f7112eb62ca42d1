// When results of a Cholesky factor are handed out, and what is thrown where they are not.
#ifndef ZEPH_FACTOR_TRUST_H
#define ZEPH_FACTOR_TRUST_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "zeph/error.h"

namespace zeph {

/// A pivot that keeps no more than this share of its diagonal entry has no digit left: rounding
/// leaves an exactly singular matrix with such a pivot instead of a zero one.
inline constexpr double kSingularPivotShare = 1e-15;

/// Factors whose pivots all keep more than this share are handed on without a look at the condition
/// number.
inline constexpr double kHarmlessPivotShare = 1e-9;

/// From this condition number on no digit of a solution is certain.
inline constexpr double kWorthlessCondition = 1e15;

/// Bound of the relative error of variances from the identity residual.
double relativeErrorEstimate(double identityResidual);

Error notPositiveDefinite(const std::string& source, std::size_t indexBase, std::int64_t row);
Error singular(const std::string& source);

}  // namespace zeph

#endif
