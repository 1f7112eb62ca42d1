#ifndef ZEPH_DISTRIBUTED_CONDITION_H
#define ZEPH_DISTRIBUTED_CONDITION_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "distributed/assembly.h"
#include "distributed/communication.h"

namespace zeph::distributed {

class DistributedBackend;

/// Condition number ‖S‖₁ ‖S⁻¹‖₁ of S = R A C, whose diagonal, or for matrices that are not definite
/// whose largest entries of rows and columns, are near one: a lower bound, seldom below a third of
/// it (Hager 1984, Higham 1988). Collective; some ten solves. The same bits on all processes.
double estimateCondition(const Communicator& comm, const Assembled& A,
                         const DistributedBackend& solver);

/// What random vectors tell of S⁻¹, with the same S.
struct Weakness {
  double size = 0.0;  ///< about the norm of S⁻¹; for a definite S at least about its trace
  std::vector<double> rows;  ///< about ‖S⁻¹(i,:)‖₂, or as large a measure of unknown i
  /// Which of some unknowns is determined least; of all where there are none.
  std::int64_t weakest(const std::int64_t* asked = nullptr, std::size_t count = 0) const;
};

/// Collective; three solves. The same bits on all processes.
Weakness weakness(const Communicator& comm, const Assembled& A, const DistributedBackend& solver);

/// About ‖S⁻¹(j,:)‖₂ ‖S⁻¹(:,j)‖₂, in units of A⁻¹(j,j): beside it are the errors of that entry.
/// Collective; six solves, three where A is symmetric.
std::vector<double> sensitivities(const Communicator& comm, const Assembled& A,
                                  const DistributedBackend& solver);

}  // namespace zeph::distributed

#endif
