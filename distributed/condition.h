#ifndef ZEPH_DISTRIBUTED_CONDITION_H
#define ZEPH_DISTRIBUTED_CONDITION_H

#include "distributed/assembly.h"
#include "distributed/communication.h"

namespace zeph::distributed {

class DistributedBackend;

/// Condition number ‖S‖₁ ‖S⁻¹‖₁ of S = R A C, whose diagonal, or for matrices that are not definite
/// whose largest entries of rows and columns, are near one: a lower bound, seldom below a third of
/// it (Hager 1984, Higham 1988). Collective; some ten solves. The same bits on all processes.
double estimateCondition(const Communicator& comm, const Assembled& A,
                         const DistributedBackend& solver);

}  // namespace zeph::distributed

#endif
