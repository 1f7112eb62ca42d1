#include "distributed/domains/dense_interface.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

#include "zeph/factor/trust.h"

namespace zeph::distributed {

using std::size_t;

DenseInterface::DenseInterface(const Surroundings& around, std::vector<std::int32_t> boundary,
                               std::vector<InterfaceEntry> entries)
    : Interface(around, std::move(boundary), {}),
      matrix_(comm(), order()),
      boundaries_(comm(), matrix_, this->boundary()) {
  if (!BlockMatrix::countable(order(), comm().size())) {
    comm().fail(Error(ErrorKind::Memory,
                      "the dense interface of " + std::to_string(order()) +
                          " unknowns between the domains of " + std::to_string(comm().size()) +
                          " processes is more than ScaLAPACK takes; use another number of "
                          "processes, or the sparse interface"));
  }
  DenseInterface::setEntries(std::move(entries));
}

// To where the blocks are. They stay in order: the processes have ranges of ascending columns.
void DenseInterface::setEntries(std::vector<InterfaceEntry> entries) {
  auto to = comm().together([&] {
    std::vector<std::vector<InterfaceEntry>> parts(static_cast<size_t>(comm().size()));
    for (const InterfaceEntry& e : entries) {
      parts[static_cast<size_t>(matrix_.owner(e.row, e.col))].push_back(e);
    }
    return parts;
  });
  entries_ = comm().exchange(to);
}

double DenseInterface::factorBytes() const {
  return bytes() + (comm().size() > 1 ? boundaries_.bytes() : 0.0);
}

double DenseInterface::operations() const {
  const auto m = static_cast<double>(order());
  return m * (m + 1.0) * (2.0 * m + 1.0) / 6.0 / comm().size();
}

void DenseInterface::factorise(const Domain& domain) {
  matrix_.clear();
  for (const InterfaceEntry& e : entries_) matrix_.add(e.row, e.col, e.value);
  boundaries_.addSchur(domain, matrix_);
  const std::int64_t failed = matrix_.factorise();
  if (failed < 0) return;
  comm().fail(
      notPositiveDefinite(around_.A.source, around_.A.indexBase,
                          around_.partition.interfaceUnknowns[static_cast<size_t>(failed)]));
}

double DenseInterface::logDeterminant() const {
  double logs = 0.0;
  matrix_.forDiagonal([&](std::int64_t, double l) { logs += 2.0 * std::log(l); });
  return logs;
}

std::optional<double> DenseInterface::smallestPivotShare(
    const std::vector<double>& diagonal) const {
  double least = 1.0;
  matrix_.forDiagonal([&](std::int64_t i, double l) {
    const std::int32_t unknown = around_.partition.interfaceUnknowns[static_cast<size_t>(i)];
    least = std::min(least, l * l / diagonal[static_cast<size_t>(unknown)]);
  });
  return least;
}

void DenseInterface::invert(Domain& domain) {
  matrix_.invert();
  boundaries_.takeInverse(matrix_, domain);
  comm().together([&] {
    inverseAtEntries_.clear();
    for (const InterfaceEntry& e : entries_) {
      inverseAtEntries_.push_back(matrix_.inverse(e.row, e.col));
    }
  });
  matrix_.forgetInverse();
}

}  // namespace zeph::distributed
