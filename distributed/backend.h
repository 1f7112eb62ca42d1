#ifndef ZEPH_DISTRIBUTED_BACKEND_H
#define ZEPH_DISTRIBUTED_BACKEND_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "distributed/assembly.h"
#include "distributed/communication.h"
#include "distributed/distributed_factor.h"
#include "zeph/factor/backend.h"

namespace zeph::distributed {

/// What an engine offers to DistributedFactor. All functions but report, logDeterminant and
/// determinantSign are collective, with the same checked arguments on all processes, and throw the
/// same Error on all of them. Vectors are whole on every process, with the same bits.
class DistributedBackend {
 public:
  virtual ~DistributedBackend() = default;

  /// Without what belongs to a call: messageBytes, secondsInverse and the estimates.
  virtual DistributedReport report() const = 0;

  /// A has new values on the same pattern; no ordering, no symbolic work. Where it throws, nothing
  /// but report() and this may be called.
  virtual void refactorise() = 0;

  /// The diagonal of A⁻¹, and how far it can be trusted. Throws Error(Singular) only where it is
  /// not finite; the estimate is judged by the caller.
  virtual InverseCheck variances(double* diagonal) const = 0;
  virtual Doubt covariance(const std::int64_t* rows, const std::int64_t* cols, std::size_t count,
                           double* values) const = 0;
  /// In place, one right-hand side; the caller refines. `transposed` solves Aᵀ x = b.
  virtual void solve(double* x, bool transposed) const = 0;
  /// Of a solution with that backward error.
  virtual Doubt solutionDoubt(double backwardError) const = 0;
  /// Of the determinant, not of its logarithm.
  virtual Doubt determinantDoubt() const = 0;
  virtual double logDeterminant() const = 0;
  virtual int determinantSign() const = 0;
};

/// Announces a stage to the caller of the library, on rank 0. Collective: throws on all processes
/// when the caller wants to stop.
void beginStage(const Communicator& comm, const DistributedOptions& options, const char* stage,
                double share = 0.0);

/// Throws Error(Memory) where this process cannot take `bytes`, by the limit of the options or,
/// where they have none, because all processes of its machine together have less. `what` completes
/// "its part of ...". Not collective: to be called within Communicator::together.
void requireRoom(const Communicator& comm, const DistributedOptions& options,
                 const std::string& what, double bytes);

/// Our own Cholesky engine, for a symmetric A with a positive diagonal. Error(NotPositiveDefinite)
/// with its row where it breaks down. The references outlive the backend.
std::unique_ptr<DistributedBackend> makeDomainsBackend(const Communicator& comm, const Assembled& A,
                                                       const DistributedOptions& options);

/// MUMPS: as for definite matrices where `definite`, which needs a symmetric A with a positive
/// diagonal and throws Error(NotPositiveDefinite) where it is not; else for all others.
std::unique_ptr<DistributedBackend> makeMumpsBackend(const Communicator& comm, const Assembled& A,
                                                     bool definite,
                                                     const DistributedOptions& options);

}  // namespace zeph::distributed

#endif
