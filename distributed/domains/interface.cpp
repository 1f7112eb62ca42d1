#include "distributed/domains/interface.h"

#include <algorithm>
#include <utility>

#include "distributed/domains/block_matrix.h"
#include "distributed/domains/dense_interface.h"
#include "distributed/domains/sparse_interface.h"
#include "zeph/checks/memory.h"

namespace zeph::distributed {
namespace {

constexpr std::int64_t kLeastSparse = 3000;
constexpr double kSparseShare = 0.08;

InterfaceMethod chosen(const Interface::Surroundings& around, std::size_t boundary, double beside) {
  const Communicator& comm = around.comm;
  const std::int64_t order = around.partition.interfaceSize();
  if (order == 0) return InterfaceMethod::Dense;
  if (around.options.interface != InterfaceMethod::Automatic) return around.options.interface;
  if (!BlockMatrix::countable(order, comm.size())) return InterfaceMethod::Sparse;
  const double machines = around.options.memoryLimit > 0.0 ? 1.0 : comm.here();
  const bool fits = fitsMemory(machines * (beside + 2.0 * BlockMatrix::bytes(order, comm.size())),
                               around.options.memoryLimit);
  if (comm.sum(std::int64_t{fits ? 0 : 1}) > 0) return InterfaceMethod::Sparse;
  const auto m = static_cast<double>(order), b = static_cast<double>(boundary);
  const double squares = comm.sum(b * b);
  return order >= kLeastSparse && squares <= kSparseShare * m * m ? InterfaceMethod::Sparse
                                                                  : InterfaceMethod::Dense;
}

}  // namespace

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
  if (chosen(around, boundary.size(), beside) == InterfaceMethod::Sparse) {
    return std::make_unique<SparseInterface>(around, std::move(boundary), std::move(entries),
                                             beside);
  }
  return std::make_unique<DenseInterface>(around, std::move(boundary), std::move(entries));
}

}  // namespace zeph::distributed
