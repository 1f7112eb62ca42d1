#ifndef ZEPH_FACTOR_H
#define ZEPH_FACTOR_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "zeph/api.h"
#include "zeph/dense_matrix.h"
#include "zeph/error.h"
#include "zeph/options.h"
#include "zeph/report.h"
#include "zeph/sparse_matrix.h"

namespace zeph {

/// A factorised square matrix A, kept, and what can be asked of it.
///
///     zeph::Factor f(A);                              // orders, analyses, factorises
///     std::vector<double> sigma2 = f.variances();     // the diagonal of A⁻¹
///     std::vector<double> x = f.solve(b);
///     f.refactorise(newValues);                       // same pattern: numbers only
///
/// Symmetric positive definite matrices take the Cholesky route, all others LU. All indices are
/// zero-based. Functions that are const may be called from several threads at once on one Factor;
/// the bits of their results depend neither on that nor on Options::threads.
///
/// Every function throws zeph::Error: Unfit for arguments of the wrong size or with values that are
/// not finite, and for results that overflow; Singular where no digit of a result could be trusted;
/// Memory before or when memory runs out; Cancelled on request. What it was called on then is as it
/// was before (but see refactorise), and can be asked again.
class ZEPH_API Factor {
 public:
  /// Checks A completely, chooses the route, factorises. With Route::Automatic a symmetric matrix
  /// with a positive diagonal whose Cholesky factorisation breaks down is factorised by LU, and
  /// report() says so; with Route::Cholesky that is Error(NotPositiveDefinite) with its row.
  /// Error(Singular) for a matrix that has no inverse to working precision.
  explicit Factor(const SparseMatrix& A, const Options& options = {});
  ~Factor();

  /// Moves; `other` can then only be destroyed or assigned to. Factors are not copied.
  Factor(Factor&& other) noexcept;
  /// Moves; `other` can then only be destroyed or assigned to.
  Factor& operator=(Factor&& other) noexcept;

  /// The order of A.
  std::size_t rows() const;

  /// Solves A X = B for `count` right-hand sides, column after column, rows() values each. B and X
  /// may be the same array. Cost: four operations for each entry of the factor and right-hand side,
  /// and one product with A, from which backwardError of report() comes; columns where it is above
  /// 8 ε are refined, which costs the same again once or twice.
  void solve(const double* b, double* x, std::size_t count = 1) const;
  /// The same for one right-hand side of rows() values.
  std::vector<double> solve(const std::vector<double>& b) const;
  /// The same for a B of rows() rows.
  DenseMatrix solve(const DenseMatrix& B) const;

  /// The diagonal of A⁻¹, count = rows() values. Cost: about twice the factorisation. Sets
  /// identityResidual, relativeErrorEstimate and conditionEstimate of report(); throws
  /// Error(Singular) where the estimated relative error exceeds kLargestRelativeError.
  void variances(double* diagonal, std::size_t count) const;
  /// The same, as a vector.
  std::vector<double> variances() const;

  /// Those of some unknowns, in the order asked for; few of them cost a small part of all.
  std::vector<double> variances(const std::vector<std::int64_t>& indices) const;

  /// Every entry of A⁻¹ on the pattern of the Cholesky factor, both triangles, column after column
  /// with rows ascending. Not on the LU route: Error(Unfit).
  SparseMatrix selectedInverse() const;

  /// The same as compressed columns. With rowIndices or values null, only colStarts (rows() + 1
  /// entries) is filled, the last of which says how long the other arrays have to be.
  void selectedInverse(std::int64_t* colStarts, std::int64_t* rowIndices, double* values) const;

  /// values[k] = A⁻¹(rows[k], cols[k]), for any entries. Those on the pattern of the factor come
  /// from the part of the selected inverse that they need, others from solves, which are shared.
  void covariance(const std::int64_t* rows, const std::int64_t* cols, std::size_t count,
                  double* values) const;
  /// The same; `rows` and `cols` are of one length.
  std::vector<double> covariance(const std::vector<std::int64_t>& rows,
                                 const std::vector<std::int64_t>& cols) const;

  /// The rows and columns `indices` of A⁻¹. Cost and memory grow with the paths from the unknowns
  /// to the root of the elimination tree, not with the whole factor.
  DenseMatrix covarianceBlock(const std::vector<std::int64_t>& indices) const;

  /// log |det A|, the natural logarithm. Costs next to nothing beside its estimate of error.
  double logDeterminant() const;
  /// The sign of det A: 1 or -1.
  int determinantSign() const;

  /// trace(A⁻¹ B) = Σ A⁻¹(i,j) B(j,i) for a sparse B of A's size; no inverse is kept beyond what
  /// the entries of B need.
  double traceOfInverseTimes(const SparseMatrix& B) const;

  /// `count` columns distributed as N(0, A⁻¹), for definite A. The same numbers for the same seed,
  /// whatever `count` (columns come one after the other) and the number of threads: SplitMix64
  /// (Steele, Lea, Flood 2014), Marsaglia's polar method. Not on the LU route: Error(Unfit).
  DenseMatrix sample(std::size_t count, std::uint64_t seed) const;

  /// New values for the same pattern, in the order of the entries that the factor was made from; no
  /// ordering, no symbolic work. The route stays. A count of values that is not that of the entries
  /// changes nothing. If anything else is thrown, the factor has no numbers: everything but rows(),
  /// report() and refactorise() then throws Error(Unfit) until it succeeds.
  void refactorise(const double* values, std::size_t count);
  /// The same, from a vector.
  void refactorise(const std::vector<double>& values);

  /// Estimate of the condition number ‖S‖₁ ‖S⁻¹‖₁ of the matrix scaled to a diagonal near one
  /// (Hager 1984, Higham 1988): a few solves.
  double estimateCondition() const;

  /// What the factor is and what it took; a copy, which later calls do not change.
  Report report() const;

  /// Sentences on the last result, for whoever uses it: that its estimated relative error
  /// (lastErrorEstimate of report()) exceeds kDoubtfulError and which unknown is concerned; that
  /// entries cancel to nearly nothing. None, as a rule. For results but variances of all unknowns
  /// and selected inverses the first call after a factorisation draws a sample for it, which serves
  /// all later calls; traces take six solves more.
  std::vector<std::string> warnings() const;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

/// Estimated relative error of a variance from which on results are refused as Error(Singular).
inline constexpr double kLargestRelativeError = 1e-2;

/// Estimated relative error above which results come with a warning: Factor::warnings().
inline constexpr double kDoubtfulError = 1e-6;

/// What Factor(A, options) would take: A is checked, ordered and analysed, nothing is factorised.
/// The seconds of factorisation and inverse are predicted from the structure, at rates usual for
/// the processor's level; no file is read for them.
ZEPH_API Report plan(const SparseMatrix& A, const Options& options = {});

/// Jᵀ W J of a design matrix J (any shape) and the weights of its rows, as a symmetric matrix with
/// the lower triangle stored. Throws Error(Unfit) where `weights` has not J.rows entries, or one
/// that is negative or not finite. Cost: the sum over J's rows of their squared lengths.
ZEPH_API SparseMatrix normalEquations(const SparseMatrix& J, const std::vector<double>& weights);

}  // namespace zeph

#endif
