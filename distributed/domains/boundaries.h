#ifndef ZEPH_DISTRIBUTED_DOMAINS_BOUNDARIES_H
#define ZEPH_DISTRIBUTED_DOMAINS_BOUNDARIES_H

#include <cstdint>
#include <vector>

#include "distributed/communication.h"
#include "distributed/domains/block_matrix.h"
#include "distributed/domains/domain.h"

namespace zeph::distributed {

/// What the domains and a dense interface have to tell each other: squares of the boundaries,
/// spread over the processes as its matrix is. Both sides know which entries come in which order,
/// so that values travel without indices; large squares go in strips of columns.
class Boundaries {
 public:
  /// `mine`, which is kept: of this process's boundary the unknowns' places in the interface,
  /// ascending. Collective, as all that follows.
  Boundaries(const Communicator& comm, const BlockMatrix& matrix,
             const std::vector<std::int32_t>& mine);

  /// Adds the domains' Schur complements to the interface, in the order of the processes.
  void addSchur(const Domain& domain, BlockMatrix& matrix) const;
  /// Gives every domain its square of the interface's inverse.
  void takeInverse(const BlockMatrix& matrix, Domain& domain) const;
  /// Bytes of the strips that a process sends and receives at one time.
  double bytes() const;

 private:
  std::vector<std::int64_t> strips(std::int64_t order) const;
  template <class Use>
  void forMine(const BlockMatrix& matrix, std::int64_t first, std::int64_t end,
               const Use& use) const;
  template <class Use>
  void forOwned(const BlockMatrix& matrix, std::size_t p, std::int64_t first, std::int64_t end,
                const Use& use) const;

  const Communicator& comm_;
  const std::vector<std::int32_t>& mine_;
  /// Which row of the grid of processes has the interface's rows of mine_.
  std::vector<std::int32_t> rowOwner_;
  /// Those of process p are all_[start_[p]] .. all_[start_[p+1]-1].
  std::vector<std::int32_t> all_;
  /// Places of their rows in what this process has of the interface, -1 where others have them.
  std::vector<std::int32_t> localRow_;
  std::vector<std::int64_t> start_;
};

}  // namespace zeph::distributed

#endif
