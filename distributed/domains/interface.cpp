#include "distributed/domains/interface.h"

#include <algorithm>
#include <utility>

#include "distributed/domains/block_matrix.h"
#include "distributed/domains/dense_interface.h"
#include "distributed/domains/sparse_interface.h"
#include "zeph/checks/memory.h"

namespace zeph::distributed {
namespace {

constexpr std::int64_t kLeastSparse = 20000;
constexpr double kSparseShare = 0.08;

// Automatic where there is no room for the dense one: the sparse one may take less, or more.
InterfaceMethod chosen(const Interface::Surroundings& around, std::size_t boundary, double beside) {
  const Communicator& comm = around.comm;
  const DistributedOptions& options = around.options;
  const std::int64_t order = around.partition.interfaceSize();
  if (order == 0) return InterfaceMethod::Dense;
  if (options.interface != InterfaceMethod::Automatic) return options.interface;
  if (!BlockMatrix::countable(order, comm.size())) return InterfaceMethod::Sparse;
  const auto b = static_cast<double>(boundary);
  if (isLargeAndSparse(order, comm.sum(b * b))) return InterfaceMethod::Sparse;
  const double both = 2.0 * BlockMatrix::bytes(order, comm.size());
  const double together = options.memoryLimit > 0.0 ? 1.0 : comm.here();
  const bool fits = fitsMemory(together * (beside + both), options.memoryLimit);
  return comm.least(std::int64_t{fits}) > 0 ? InterfaceMethod::Dense : InterfaceMethod::Automatic;
}

}  // namespace

bool isLargeAndSparse(std::int64_t unknowns, double squares) {
  const auto m = static_cast<double>(unknowns);
  return unknowns >= kLeastSparse && squares <= kSparseShare * m * m;
}

Interface::Interface(const Surroundings& around, std::vector<std::int32_t> boundary,
                     std::vector<InterfaceEntry> entries)
    : around_(around), boundary_(std::move(boundary)), entries_(std::move(entries)) {}

std::ptrdiff_t Interface::find(std::int32_t row, std::int32_t col) const {
  const auto at = std::lower_bound(
      entries_.begin(), entries_.end(), std::pair(col, row),
      [](const InterfaceEntry& e, const auto& wanted) { return std::pair(e.col, e.row) < wanted; });
  if (at == entries_.end() || at->row != row || at->col != col) return -1;
  return at - entries_.begin();
}

std::unique_ptr<Interface> makeInterface(const Interface::Surroundings& around,
                                         std::vector<std::int32_t> boundary,
                                         std::vector<InterfaceEntry> entries, double beside) {
  const InterfaceMethod method = chosen(around, boundary.size(), beside);
  if (method != InterfaceMethod::Dense) {
    auto sparse = std::make_unique<SparseInterface>(around, boundary, entries, beside);
    const double bytes = around.comm.largest(sparse->factorBytes() + sparse->inverseBytes());
    if (method == InterfaceMethod::Sparse ||
        bytes < 2.0 * BlockMatrix::bytes(sparse->order(), around.comm.size())) {
      return sparse;
    }
  }
  return std::make_unique<DenseInterface>(around, std::move(boundary), std::move(entries));
}

}  // namespace zeph::distributed
