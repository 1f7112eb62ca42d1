#include "distributed/domains/partition.h"

#include <numeric>

#include "sparse/ordering/domains.h"

namespace zeph::distributed {
namespace {

namespace sparse = korin::sparse;
using sparse::Index;
using sparse::Offset;
using std::size_t;

// The pattern of A's lower triangle, on rank 0: the processes have it by ranges of columns.
sparse::Columns gatherPattern(const Communicator& comm, const Assembled& A) {
  const auto p = static_cast<size_t>(comm.rank());
  std::vector<Index> rows;
  std::vector<Offset> counts;
  comm.together([&] {
    rows.reserve(A.entries.size());
    counts.resize(static_cast<size_t>(A.firstColumn[p + 1] - A.firstColumn[p]));
    for (const Entry& e : A.entries) {
      rows.push_back(static_cast<Index>(e.row));
      ++counts[e.col - static_cast<size_t>(A.firstColumn[p])];
    }
  });
  sparse::Columns lower;
  lower.rows = lower.cols = static_cast<Index>(A.n);
  lower.row = comm.gather(0, rows);
  const std::vector<Offset> allCounts = comm.gather(0, counts);
  comm.together([&] {
    lower.start.resize(allCounts.size() + 1);
    std::partial_sum(allCounts.begin(), allCounts.end(), lower.start.begin() + 1);
  });
  return lower;
}

}  // namespace

Partition partition(const Communicator& comm, const Assembled& A, const Partition* before,
                    const std::vector<double>& share) {
  Partition result;
  result.domainOf =
      comm.together([&] { return std::vector<std::int32_t>(comm.size() > 1 ? 0 : A.n, 0); });
  if (comm.size() > 1) {
    const sparse::Columns lower = gatherPattern(comm, A);
    comm.together([&] {
      result.domainOf.resize(A.n);
      if (!comm.first()) return;
      const std::vector<Index>* const cut = before != nullptr ? &before->domainOf : nullptr;
      result.domainOf = sparse::cutUnknowns(lower.view(), comm.size(), cut, share);
    });
    comm.broadcast(0, result.domainOf.data(), result.domainOf.size());
  }
  comm.together([&] {
    result.placeInInterface.assign(A.n, -1);
    for (size_t i = 0; i < A.n; ++i) {
      if (result.domainOf[i] >= 0) continue;
      result.placeInInterface[i] = static_cast<std::int32_t>(result.interfaceUnknowns.size());
      result.interfaceUnknowns.push_back(static_cast<std::int32_t>(i));
    }
  });
  return result;
}

}  // namespace zeph::distributed
