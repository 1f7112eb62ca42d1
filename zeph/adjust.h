#ifndef ZEPH_ADJUST_H
#define ZEPH_ADJUST_H

#include <cstdint>
#include <memory>
#include <vector>

#include "zeph/api.h"
#include "zeph/factor.h"
#include "zeph/options.h"
#include "zeph/sparse_matrix.h"

namespace zeph {

/// What least squares make of m observations of n unknowns, and how far each of them is checked by
/// the others. All standard deviations are those that follow from the given ones; where the given
/// ones are right only up to a common factor, multiply by √varianceFactor.
struct Adjustment {
  std::vector<double> x;      ///< the unknowns, n
  std::vector<double> sigma;  ///< their standard deviations, √diag (Jᵀ W J)⁻¹

  std::vector<double> residuals;  ///< v = y - J x, m

  /// Standard deviations of the residuals, σᵢ √rᵢ; 0 where rᵢ is.
  std::vector<double> residualSigma;

  /// rᵢ = 1 - hᵢ, the share of an error of observation i that shows in its residual. Exactly 0
  /// where nothing but rounding is left of it: no other observation checks this one. They add up to
  /// the degrees of freedom.
  std::vector<double> redundancy;

  /// hᵢ, the diagonal of J (Jᵀ W J)⁻¹ Jᵀ W. They add up to n.
  std::vector<double> leverage;

  /// vᵢ / (σᵢ √rᵢ), distributed as N(0, 1) for right observations; NaN where rᵢ is 0.
  std::vector<double> normalizedResiduals;

  std::int64_t degreesOfFreedom = 0;  ///< m - n
  double varianceFactor = 0.0;        ///< vᵀ W v / (m - n), about 1; NaN where m = n

  /// The observation with the largest normalised residual, the suspect of a blunder; -1 where no
  /// observation is checked.
  std::int64_t suspect = -1;

  std::shared_ptr<const Factor> factor;  ///< of Jᵀ W J, for covariances of the unknowns
};

/// Adjusts observations y = J x + errors of the given standard deviations by least squares.
///
///     zeph::Adjustment a = zeph::adjust(J, y, sigmas);
///     std::printf("%g ± %g\n", a.x[0], a.sigma[0]);
///
/// J is the sparse design matrix, m x n with m >= n. `sigmas` has m entries, or one that counts for
/// all observations, or none, which means 1. Options::route and its LU values are ignored: normal
/// matrices are positive definite.
/// Throws Error(Unfit) for sizes that do not fit together, for values that are not finite, and for
/// standard deviations that are not positive (row() tells the observation); Error(Singular) where
/// the observations do not determine all unknowns: no point is held fixed, row() is an unknown that
/// can move. Fewer observations than unknowns are Error(Unfit).
/// Cost: one factorisation of Jᵀ W J and its selected inverse; no solve for an observation, since
/// all entries that J (Jᵀ W J)⁻¹ Jᵀ needs lie on the pattern of the factor. Redundancies as data
/// snooping uses them: Baarda, 1968.
ZEPH_API Adjustment adjust(const SparseMatrix& J, const std::vector<double>& y,
                           const std::vector<double>& sigmas = {}, const Options& options = {});

}  // namespace zeph

#endif
