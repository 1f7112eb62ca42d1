#ifndef ZEPH_DISTRIBUTED_DOMAINS_INTERFACE_H
#define ZEPH_DISTRIBUTED_DOMAINS_INTERFACE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "distributed/assembly.h"
#include "distributed/communication.h"
#include "distributed/distributed_factor.h"
#include "distributed/domains/domain.h"
#include "distributed/domains/partition.h"

namespace zeph::distributed {

/// An entry of A between two unknowns of the interface, as places there, row >= col.
struct InterfaceEntry {
  std::int32_t row, col;
  double value;
};

/// The matrix S of the unknowns between the domains: A's entries there plus what the domains leave
/// of them, their Schur complements. Symmetric positive definite, or refused. Each process has the
/// boundary of its domain, which is some unknowns of S, and some of A's entries.
///
/// All that computes is collective, and throws the same Error on all processes.
class Interface {
 public:
  /// What an interface stands between. The references outlive it.
  struct Surroundings {
    const Communicator& comm;
    const Assembled& A;
    const Partition& partition;
    const DistributedOptions& options;
  };

  /// Of this process: its boundary's places in the interface, ascending, and its entries by
  /// ascending columns, then rows; all processes together have each entry once, every one of the
  /// diagonal among them.
  Interface(const Surroundings& around, std::vector<std::int32_t> boundary,
            std::vector<InterfaceEntry> entries);
  virtual ~Interface() = default;
  Interface(const Interface&) = delete;
  Interface& operator=(const Interface&) = delete;

  virtual InterfaceMethod method() const = 0;
  std::int64_t order() const { return around_.partition.interfaceSize(); }
  const std::vector<std::int32_t>& boundary() const { return boundary_; }

  /// Predicted bytes of this process, for the factor and for the inverse beside it, each with what
  /// is needed only for a time.
  virtual double factorBytes() const = 0;
  virtual double inverseBytes() const = 0;
  /// What the factor, once there, keeps of it.
  virtual double bytes() const = 0;
  /// Of the factorisation, on this process.
  virtual double operations() const = 0;
  /// Of the factor, over all processes. Once there is one.
  virtual std::int64_t entriesOfL() const = 0;

  /// Other values, in the places of the constructor's entries and in their order.
  virtual void setEntries(std::vector<InterfaceEntry> entries) { entries_ = std::move(entries); }
  /// Factorises S, with the Schur complement of this process's domain. What was known of it before
  /// is gone.
  virtual void factorise(const Domain& domain) = 0;
  /// log det S, of which this process has a part.
  virtual double logDeterminant() const = 0;
  /// The least share of its diagonal entry of A that a pivot of this process keeps; nothing where
  /// pivots are not known, and the condition number has to be looked at.
  virtual std::optional<double> smallestPivotShare(const std::vector<double>& diagonal) const = 0;
  /// x = S⁻¹ x for a whole vector, the same on all processes before and after.
  virtual void solve(double* x) const = 0;
  /// Gives every domain the square of S⁻¹ on its boundary, and takes down the values of S⁻¹ at the
  /// entries.
  virtual void invert(Domain& domain) = 0;

  /// The entries that this process has, and after invert() the values of S⁻¹ there.
  const std::vector<InterfaceEntry>& entries() const { return entries_; }
  const std::vector<double>& inverseAtEntries() const { return inverseAtEntries_; }
  /// Which of the entries is that, row >= col; -1 where this process does not have it.
  std::ptrdiff_t find(std::int32_t row, std::int32_t col) const;

 protected:
  const Communicator& comm() const { return around_.comm; }

  const Surroundings around_;
  const std::vector<std::int32_t> boundary_;
  std::vector<InterfaceEntry> entries_;
  std::vector<double> inverseAtEntries_;
};

/// Whether S of so many unknowns is large enough, and full in so little of it, the squares of all
/// boundaries, that the sparse one is worth its messages. docs/domains.md has the measurements.
bool isLargeAndSparse(std::int64_t unknowns, double squares);

/// The one that the options ask for, or that fits. Collective, with the arguments of Interface's
/// constructor; `beside` are the bytes that this process's domain takes. Where the choice is open,
/// it is the dense one, unless S is large and sparse, or ScaLAPACK cannot count its entries, or a
/// process has no room for it, and the sparse one takes less.
std::unique_ptr<Interface> makeInterface(const Interface::Surroundings& around,
                                         std::vector<std::int32_t> boundary,
                                         std::vector<InterfaceEntry> entries, double beside);

}  // namespace zeph::distributed

#endif
