#ifndef ZEPH_DISTRIBUTED_DOMAINS_DENSE_INTERFACE_H
#define ZEPH_DISTRIBUTED_DOMAINS_DENSE_INTERFACE_H

#include <optional>
#include <vector>

#include "distributed/domains/block_matrix.h"
#include "distributed/domains/boundaries.h"
#include "distributed/domains/interface.h"

namespace zeph::distributed {

/// S as a dense matrix, factorised and inverted by ScaLAPACK: m³ operations for m unknowns, 2 m² /
/// P values on each of P processes while it is inverted. The same bits every time.
class DenseInterface final : public Interface {
 public:
  /// Throws Error(Memory) where S has more entries than ScaLAPACK counts.
  DenseInterface(const Surroundings& around, std::vector<std::int32_t> boundary,
                 std::vector<InterfaceEntry> entries);

  InterfaceMethod method() const override { return InterfaceMethod::Dense; }
  double bytes() const override { return BlockMatrix::bytes(order(), comm().size()); }
  double factorBytes() const override;
  double inverseBytes() const override { return factorBytes(); }
  double operations() const override;
  std::int64_t entriesOfL() const override { return order() * (order() + 1) / 2; }
  void setEntries(std::vector<InterfaceEntry> entries) override;
  void factorise(const Domain& domain) override;
  double logDeterminant() const override;
  std::optional<double> smallestPivotShare(const std::vector<double>& diagonal) const override;
  void solve(double* x) const override { matrix_.solve(x); }
  void invert(Domain& domain) override;

 private:
  BlockMatrix matrix_;
  Boundaries boundaries_;
};

}  // namespace zeph::distributed

#endif
