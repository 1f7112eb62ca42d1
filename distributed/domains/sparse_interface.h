#ifndef ZEPH_DISTRIBUTED_DOMAINS_SPARSE_INTERFACE_H
#define ZEPH_DISTRIBUTED_DOMAINS_SPARSE_INTERFACE_H

#include <cstdint>
#include <optional>
#include <vector>

#include "distributed/domains/interface.h"
#include "distributed/mumps/instance.h"
#include "distributed/mumps/wanted_entries.h"

namespace zeph::distributed {

/// S as a sparse matrix, full only in the squares of the boundaries, factorised by MUMPS, which
/// adds up what comes from several domains. Of S⁻¹ only what the domains need is computed. Bits
/// differ from run to run, and of pivots only the number of negative ones is known.
class SparseInterface final : public Interface {
 public:
  /// Orders and analyses. `beside` are bytes that this process takes for other things.
  SparseInterface(const Surroundings& around, std::vector<std::int32_t> boundary,
                  std::vector<InterfaceEntry> entries, double beside);

  InterfaceMethod method() const override { return InterfaceMethod::Sparse; }
  double bytes() const override;
  double factorBytes() const override;
  double inverseBytes() const override;
  double operations() const override { return mumps_.realLocal(1); }
  std::int64_t entriesOfL() const override;
  void factorise(const Domain& domain) override;
  double logDeterminant() const override;
  std::optional<double> smallestPivotShare(const std::vector<double>&) const override { return {}; }
  void solve(double* x) const override { mumps_.solve(x); }
  void invert(Domain& domain) override;

 private:
  template <class Square, class Own>
  void forMine(std::int64_t first, std::int64_t end, const Square& square, const Own& own) const;
  void setPattern();
  std::vector<std::int64_t> strips() const;
  std::vector<double> inverseIn(WantedEntries& wanted, std::int64_t first, std::int64_t end) const;
  double triplets() const;

  mutable Instance mumps_;  // its solves change parameters
  /// Of the entries that this process adds to S, counted from 1; there only while MUMPS reads them.
  std::vector<MUMPS_INT> rows_, cols_;
  /// Entries of S⁻¹ that all processes want.
  double wanted_;
};

}  // namespace zeph::distributed

#endif
