#ifndef ZEPH_DISTRIBUTED_DOMAINS_PARTITION_H
#define ZEPH_DISTRIBUTED_DOMAINS_PARTITION_H

#include <cstdint>
#include <vector>

#include "distributed/assembly.h"
#include "distributed/communication.h"

namespace zeph::distributed {

/// Which process eliminates which unknowns; the same on all processes.
struct Partition {
  /// Of each unknown the process that has it in its interior, or -1: it is in the interface.
  std::vector<std::int32_t> domainOf;
  /// The unknowns of the interface, ascending, and of each unknown of A its place there, or -1.
  std::vector<std::int32_t> interfaceUnknowns;
  std::vector<std::int32_t> placeInInterface;

  std::int64_t interfaceSize() const { return static_cast<std::int64_t>(interfaceUnknowns.size()); }
};

/// Cuts A's graph into a domain for each process, on rank 0, which for that time holds the pattern
/// of all of A and three times as much for the graph. Unknowns with equal neighbourhoods stay
/// together. Throws the same Error on all processes.
///
/// The domains have about the same number of unknowns or, where `before` is another cut, of
/// unknowns times the `share` of a domain there (see cutUnknowns), which matters on rank 0 only.
Partition partition(const Communicator& comm, const Assembled& A, const Partition* before = nullptr,
                    const std::vector<double>& share = {});

}  // namespace zeph::distributed

#endif
