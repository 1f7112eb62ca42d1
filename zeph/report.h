#ifndef ZEPH_REPORT_H
#define ZEPH_REPORT_H

#include <cstdint>
#include <string>

#include "zeph/options.h"

namespace zeph {

/// What a factor is and what it took. From plan(), predictions instead of measurements.
struct Report {
  Route route = Route::Automatic;           ///< what was taken; never Automatic
  std::string reason;                       ///< why, as a clause
  Ordering ordering = Ordering::Automatic;  ///< what was taken; stays Automatic on the LU route
  std::int64_t unknowns = 0;                ///< the order of A
  std::int64_t groups = 0;  ///< nodes after unknowns with equal neighbourhoods are taken together
  std::int64_t entriesOfA = 0;        ///< positions of the whole matrix, both triangles
  std::int64_t entriesOfL = 0;        ///< of the Cholesky factor, or of L and U together
  double operations = 0.0;            ///< multiplications and additions of the factorisation
  double bytes = 0.0;                 ///< of memory that the factor takes; calls take more
  double scratchBytes = 0.0;          ///< of the file that holds its panels, if there is one
  double secondsOrdering = 0.0;       ///< wall time, as all that follow
  double secondsAnalysis = 0.0;       ///< assembly and symbolic work, ordering left out
  double secondsFactorisation = 0.0;  ///< of the last factorisation or refactorisation
  double secondsInverse = 0.0;        ///< of the last variances() of all unknowns
  int threads = 1;                    ///< that the Cholesky route works on

  /// Condition number of A, units scaled away; 0 until estimated, by variances() of all unknowns or
  /// Factor::estimateCondition().
  double conditionEstimate = 0.0;

  /// max over j of |Σ a(j,k) z(k,j) - 1|, where z are the entries of A⁻¹ that variances() computed:
  /// as large as the relative error of the variances to within a small factor. 0 until variances()
  /// of all unknowns was called.
  double identityResidual = 0.0;

  /// Largest relative error that any variance of the last variances() may have. On the Cholesky
  /// route from all these deviations, with a measured safety factor. On the LU route, where the
  /// entries for them are not computed, from the norms of the rows and columns of A⁻¹ and the sums
  /// that L and U were made of; entries that cancel to nearly nothing are left out of it and
  /// counted by uncertainVariances. 0 until then.
  double relativeErrorEstimate = 0.0;

  /// Diagonal entries of the inverse on the LU route whose own relative error may exceed
  /// kLargestRelativeError because they cancel within their row and column, which are known well:
  /// as the zeros of saddle points, they have no certain digits, and are as good as zero.
  std::int64_t uncertainVariances = 0;

  /// The zero-based row of the first of these, or -1.
  std::int64_t firstUncertain = -1;

  /// Largest |Ax - b|(i) / (|A| |x| + |b|)(i) over the rows and right-hand sides of the last
  /// solve(): how far, relatively, the entries of the system that x solves exactly are from the
  /// given ones. 0 until then.
  double backwardError = 0.0;

  /// Estimated relative error of the last result of any kind but report()'s own figures, and the
  /// zero-based unknown that it is largest at; 0 and -1 until then. Of variances and selected
  /// inverses it is relativeErrorEstimate; of other entries the error beside √(z(i,i) z(j,j)), by
  /// LU beside the largest entry of the column where i ≠ j; of solutions the error beside the
  /// largest unknown, units scaled away; of log-determinants that of the determinant; at most 1: no
  /// digit is certain. See Factor::warnings() for what an estimate takes.
  double lastErrorEstimate = 0.0;
  std::int64_t worstUnknown = -1;  ///< see lastErrorEstimate
};

}  // namespace zeph

#endif
