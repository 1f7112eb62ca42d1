#ifndef ZEPH_DISTRIBUTED_DISTRIBUTED_FACTOR_H
#define ZEPH_DISTRIBUTED_DISTRIBUTED_FACTOR_H

#include <mpi.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "zeph/api.h"
#include "zeph/error.h"
#include "zeph/options.h"
#include "zeph/sparse_matrix.h"

namespace zeph {

namespace distributed {
struct FactorParts;
}

/// Who factorises a matrix that is spread over processes.
enum class Engine {
  Automatic,  ///< Domains for symmetric positive definite matrices, Mumps for all others
  Domains,    ///< our own Cholesky engine: a part of the elimination tree for each process
  Mumps       ///< the library MUMPS, for any matrix that has an inverse
};

/// "automatic", "domains", "mumps"
ZEPH_API const char* name(Engine engine);

/// How Engine::Domains treats the matrix of the unknowns between the domains.
enum class InterfaceMethod {
  Automatic,  ///< Dense; Sparse where it is large and sparse, or alone fits into memory
  Dense,      ///< by ScaLAPACK: the same bits every time
  Sparse      ///< by MUMPS: last digits differ from run to run
};

/// "automatic", "dense", "sparse"
ZEPH_API const char* name(InterfaceMethod method);

/// How a matrix is factorised over processes. The same on all of them, but for `progress`.
struct DistributedOptions {
  Engine engine = Engine::Automatic;  ///< Domains, Mumps, or what fits the matrix

  /// Route::Cholesky refuses a matrix that is not symmetric positive definite, Route::Lu takes any
  /// by the general method; Route::Automatic goes from the one to the other.
  Route route = Route::Automatic;

  int threads = 1;  ///< of each process; 0 for its share of the machine's processors

  /// As in Options. Called on the process with rank 0, between the stages of the work.
  ProgressCall progress;

  /// Bytes that each process may take for the factor and the calls on it; 0 for what its machine
  /// has free, divided among the processes there. A need above it is Error(Memory).
  double memoryLimit = 0.0;

  /// Folder for the factor where it shall not stay in memory; empty to keep it there. Only with
  /// Engine::Mumps. What is written there is removed with the factor, also after errors.
  std::string scratchFolder;

  /// Only for Engine::Domains.
  InterfaceMethod interface = InterfaceMethod::Automatic;
};

/// What a distributed factor is and what it took; the same on all processes.
struct DistributedReport {
  Engine engine = Engine::Automatic;   ///< what was taken; never Automatic
  Route route = Route::Automatic;      ///< Cholesky or Lu
  std::string reason;                  ///< why, as a clause
  int processes = 0;                   ///< that share the work
  int threads = 1;                     ///< of each process
  std::int64_t unknowns = 0;           ///< the order of A
  std::int64_t entriesOfA = 0;         ///< positions of the whole matrix, both triangles
  std::int64_t entriesOfL = 0;         ///< of the factor, over all processes
  std::int64_t interfaceUnknowns = 0;  ///< unknowns that join the parts of the processes; Domains
  double operations = 0.0;             ///< of the factorisation, over all processes
  double bytes = 0.0;                  ///< of the factor on the process that holds most
  double messageBytes = 0.0;           ///< sent so far by all processes, but for MUMPS's own
  double balance = 0.0;          ///< operations of the busiest process over their mean; Domains
  double secondsOrdering = 0.0;  ///< wall time, as all that follow; with symbolic work
  double secondsFactorisation = 0.0;    ///< of the last numbers
  double secondsInverse = 0.0;          ///< of the last variances()
  double conditionEstimate = 0.0;       ///< as in Report
  double identityResidual = 0.0;        ///< as in Report
  double relativeErrorEstimate = 0.0;   ///< as in Report
  std::int64_t uncertainVariances = 0;  ///< as in Report
  std::int64_t firstUncertain = -1;     ///< as in Report
  double backwardError = 0.0;           ///< as in Report
  /// What was taken between the domains; Automatic where there was nothing to take.
  InterfaceMethod interface = InterfaceMethod::Automatic;
  double lastErrorEstimate = 0.0;  ///< as in Report
  std::int64_t worstUnknown = -1;  ///< as in Report
};

/// A factorised square matrix A that is spread over the processes of an MPI communicator, and what
/// can be asked of it. A is the sum of the shares: each process gives the entries that it has, in
/// any division, with indices of the whole matrix; entries at the same place add up, within a share
/// and between them. No process needs to hold all of A.
///
///     MPI_Init(&argc, &argv);
///     zeph::SparseMatrix share = ...;                      // all rows and cols, some entries
///     zeph::DistributedFactor f(MPI_COMM_WORLD, share);
///     std::vector<double> sigma2 = f.variances();          // whole, on every process
///     f.refactorise(newValues);                            // of the share's entries: numbers only
///
/// Members are collective unless they say otherwise, the destructor too: all processes call them
/// with the same arguments, and all return, or throw the same zeph::Error, whose sentence names the
/// rank where it arose if not all processes failed alike. Kinds of errors as for zeph::Factor. A
/// process on which memory runs out in the midst of a message ends the run (MPI_Abort). The same
/// shares on the same number of processes give the same bits, for every number of threads, with
/// Engine::Domains and InterfaceMethod::Dense.
class ZEPH_API DistributedFactor {
 public:
  /// Checks the shares, assembles, orders and factorises. rows, cols, symmetry and triangular are
  /// the same in all shares; a share may be empty. `comm` is duplicated. Must be destroyed before
  /// MPI_Finalize, on all processes.
  DistributedFactor(MPI_Comm comm, const SparseMatrix& share,
                    const DistributedOptions& options = {});
  ~DistributedFactor();
  /// Moves; `other` can then only be destroyed or assigned to.
  DistributedFactor(DistributedFactor&& other) noexcept;
  /// Moves; `other` can then only be destroyed or assigned to.
  DistributedFactor& operator=(DistributedFactor&& other) noexcept;

  /// The order of A. Not collective.
  std::size_t rows() const;

  /// The diagonal of A⁻¹, whole on every process. Sets what report() says of its errors; throws
  /// Error(Singular) where the estimated relative error exceeds kLargestRelativeError.
  std::vector<double> variances() const;

  /// values[k] = A⁻¹(rows[k], cols[k]), on every process. With Engine::Domains entries on the
  /// pattern of A, others are Error(Unfit); with Engine::Mumps any.
  std::vector<double> covariance(const std::vector<std::int64_t>& rows,
                                 const std::vector<std::int64_t>& cols) const;

  /// Solves A x = b; b and x are whole on every process. Refined until the backward error is a few
  /// ε or does not fall any more.
  std::vector<double> solve(const std::vector<double>& b) const;

  /// log |det A|, the natural logarithm. Error(Singular) where no digit of det A is certain.
  double logDeterminant() const;
  /// The sign of det A: 1 or -1.
  int determinantSign() const;

  /// New values for the same shares: each process gives those of its share, in the order of its
  /// entries; no ordering, no symbolic work, and only values travel. The engine, the route and what
  /// lies between the domains stay; a matrix that was symmetric has to be so again. The checks are
  /// those of Factor::refactorise(), and an error tells the rank that a value came from. A count of
  /// values on any process that is not that of its entries changes nothing. If anything else is
  /// thrown, the factor has no numbers: everything but rows(), report(), warnings(), which has none
  /// then, and refactorise() throws Error(Unfit) until it succeeds, on all processes.
  void refactorise(const double* values, std::size_t count);
  /// The same, from a vector.
  void refactorise(const std::vector<double>& values);

  /// Estimate of the condition number as of Factor::estimateCondition(): some ten solves.
  double estimateCondition() const;

  /// Sentences on the last result, as those of Factor::warnings(). None, as a rule. Not collective.
  std::vector<std::string> warnings() const;

  /// What the factor is and what it took. Not collective.
  DistributedReport report() const;

 private:
  friend struct distributed::FactorParts;
  class Impl;
  explicit DistributedFactor(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

}  // namespace zeph

#endif
