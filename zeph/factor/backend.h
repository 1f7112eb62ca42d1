#ifndef ZEPH_FACTOR_BACKEND_H
#define ZEPH_FACTOR_BACKEND_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "zeph/dense_matrix.h"
#include "zeph/factor/watch.h"
#include "zeph/report.h"
#include "zeph/sparse_matrix.h"

namespace zeph {

/// The diagonal of an inverse and how far it can be trusted.
struct InverseCheck {
  double identityResidual = 0.0;
  double relativeErrorEstimate = 0.0;
  std::int64_t uncertainVariances = 0, firstUncertain = -1;
  double condition = 0.0;
  std::int64_t worstUnknown = -1;  ///< where the estimate is largest
};

/// How far a result may be off: its estimated relative error, as in Report::lastErrorEstimate, and
/// the unknown where it is largest.
struct Doubt {
  double error = 0.0;
  std::int64_t unknown = -1;
};

/// The larger of two.
inline void raise(Doubt& doubt, double error, std::int64_t unknown) {
  if (error <= doubt.error && doubt.unknown >= 0) return;
  doubt = {error, unknown};
}

struct SolveCheck {
  double backwardError = 0.0;  ///< the largest of a column, componentwise
  Doubt doubt;
};

/// What a route offers to Factor. Arguments are checked: pointers, sizes, indices within the order
/// of the matrix, finite right-hand sides. Functions that are const may run at once on several
/// threads; results that are not finite are thrown as Error(Unfit), whatever is worthless as
/// Error(Singular).
class Backend {
 public:
  virtual ~Backend() = default;

  /// Without what belongs to a call: secondsInverse and the estimates.
  virtual Report report() const = 0;
  virtual void refactorise(const double* values, std::size_t count, Watch& watch) = 0;

  /// In place, `count` columns.
  virtual SolveCheck solve(std::size_t count, double* x, Watch& watch) const = 0;
  virtual InverseCheck variances(double* diagonal, Watch& watch) const = 0;
  virtual Doubt selectedInverse(std::int64_t* colStarts, std::int64_t* rowIndices, double* values,
                                Watch& watch) const = 0;
  /// Beside `there` bytes that the caller has taken for it.
  virtual Doubt covariance(const std::int64_t* rows, const std::int64_t* cols, std::size_t count,
                           double* values, Watch& watch, double there) const = 0;
  virtual Doubt covarianceBlock(const std::int64_t* indices, std::size_t count, double* block,
                                Watch& watch) const = 0;
  /// The errors of the factors are those of an A that is wrong by about kEntryErrors rows[i]
  /// cols[j] in entry (i,j), at random.
  virtual void errorUnits(std::vector<double>& rows, std::vector<double>& cols) const = 0;
  virtual double logDeterminant() const = 0;
  virtual int determinantSign() const = 0;
  /// Of the determinant, not of its logarithm.
  virtual Doubt determinantDoubt(Watch& watch) const = 0;
  /// x holds `count` columns of independent standard normal numbers, and afterwards of N(0, A⁻¹).
  virtual Doubt colour(std::size_t count, double* x, Watch& watch) const = 0;
  virtual double estimateCondition(Watch& watch) const = 0;

  /// The matrix itself where it is known to be symmetric, else one without rows: for the question
  /// why it is singular.
  virtual SparseMatrix symmetricMatrix() const { return {}; }
};

}  // namespace zeph

#endif
