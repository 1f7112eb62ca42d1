#ifndef ZEPH_DISTRIBUTED_FACTOR_PARTS_H
#define ZEPH_DISTRIBUTED_FACTOR_PARTS_H

#include "distributed/assembly.h"
#include "distributed/communication.h"
#include "distributed/distributed_factor.h"

namespace zeph::distributed {

/// What a DistributedFactor is made of, for the command. Lives no longer than the factor.
struct FactorParts {
  /// As the constructor; with `firm` a symmetric matrix with a positive diagonal is not sent to LU
  /// where its Cholesky factorisation breaks down: that is Error(NotPositiveDefinite).
  static DistributedFactor make(MPI_Comm comm, const SparseMatrix& share,
                                const DistributedOptions& options, bool firm);
  static FactorParts of(const DistributedFactor& f);

  const Communicator& comm;
  const Assembled& A;
};

/// The kind of an error from its exit status; Unfit for what is none.
ErrorKind errorKind(int status);

}  // namespace zeph::distributed

#endif
