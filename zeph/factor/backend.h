#ifndef ZEPH_FACTOR_BACKEND_H
#define ZEPH_FACTOR_BACKEND_H

#include <cstddef>
#include <cstdint>

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

  /// In place, `count` columns. Returns the largest componentwise backward error of a column.
  virtual double solve(std::size_t count, double* x, Watch& watch) const = 0;
  virtual InverseCheck variances(double* diagonal, Watch& watch) const = 0;
  virtual void selectedInverse(std::int64_t* colStarts, std::int64_t* rowIndices, double* values,
                               Watch& watch) const = 0;
  virtual void covariance(const std::int64_t* rows, const std::int64_t* cols, std::size_t count,
                          double* values, Watch& watch) const = 0;
  virtual void covarianceBlock(const std::int64_t* indices, std::size_t count, double* block,
                               Watch& watch) const = 0;
  virtual double logDeterminant() const = 0;
  virtual int determinantSign() const = 0;
  /// x holds `count` columns of independent standard normal numbers, and afterwards of N(0, A⁻¹).
  virtual void colour(std::size_t count, double* x, Watch& watch) const = 0;
  virtual double estimateCondition(Watch& watch) const = 0;

  /// The matrix itself where it is known to be symmetric, else one without rows: for the question
  /// why it is singular.
  virtual SparseMatrix symmetricMatrix() const { return {}; }
};

}  // namespace zeph

#endif
