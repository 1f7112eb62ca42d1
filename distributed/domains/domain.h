#ifndef ZEPH_DISTRIBUTED_DOMAINS_DOMAIN_H
#define ZEPH_DISTRIBUTED_DOMAINS_DOMAIN_H

#include <algorithm>
#include <cstdint>
#include <vector>

#include "kernels/panel_storage.h"
#include "sparse/pattern/slots.h"
#include "sparse/symbolic/symbolic.h"

namespace zeph::distributed {

/// What one process does by itself: it eliminates the unknowns of its interior, which no other
/// process has, and keeps those of its boundary, which are the rest of the interface to it.
///
/// Unknowns are numbered from 0, interior first. Its matrix has no entries between two unknowns of
/// the boundary: those belong to the interface. With A_BB = 0 the elimination leaves
/// S = -A_BI A_II⁻¹ A_IB, and from the square of A⁻¹ on the boundary follow all entries on the
/// pattern of the interior's factor (see docs/engine.md, kept roots). No two calls at once.
class Domain {
 public:
  using Index = korin::sparse::Index;
  using Offset = korin::sparse::Offset;

  /// Orders and analyses; `lower` has each entry once. Its values are kept. `slots` are the places
  /// there of the values that setValues() takes.
  Domain(const korin::sparse::Columns& lower, korin::sparse::Slots slots, Index boundary,
         int threads);

  Index interior() const { return symbolic_.n - symbolic_.kept; }
  Index boundary() const { return symbolic_.kept; }
  std::int64_t entriesOfL() const { return symbolic_.entries; }
  double operations() const { return symbolic_.operations; }
  /// Of the factor; and beside it for the factorisation and for entries of the inverse.
  double bytes() const;
  double factorisationBytes() const;
  double inverseBytes() const;

  /// Other values, before factorise().
  void setValues(const std::vector<double>& values);
  /// Returns -1, or the unknown of the interior without a positive pivot.
  Index factorise();
  /// The least l(k,k)² / a(k,k) of the interior; 0 where one is NaN.
  double smallestPivotShare() const;
  /// 2 Σ log l(k,k) of the interior.
  double logDeterminant() const;

  /// S(i, j), i and j unknowns of the boundary counted from 0, after factorise().
  double schur(Index i, Index j) const {
    return square()[Offset{std::min(i, j)} * symbolic_.kept + std::max(i, j)];
  }
  /// Puts A⁻¹ on the boundary in place of S. After all (i, j), i >= j, the inverse is there.
  void setInverse(Index i, Index j, double value) {
    square()[Offset{i} * symbolic_.kept + j] = square()[Offset{j} * symbolic_.kept + i] = value;
  }

  /// The right-hand side x of all unknowns, those of the boundary zero, becomes what substitute()
  /// takes, and right[b] what it leaves for unknown b of the boundary.
  void eliminate(double* x, double* right) const;
  /// The solution of all unknowns, given that of the boundary.
  void substitute(double* x, const double* boundary) const;

  /// The diagonal of A⁻¹, and sums[i] = Σ a(i,k) A⁻¹(k,i) over this matrix's entries.
  void variances(double* diagonal, double* sums) const;

  /// An entry of A⁻¹ that is wanted: its place in the panels, -1 off the pattern.
  Offset placeInPanels(Index i, Index j) const;
  /// values[k] = the entry at places[k], ascending.
  std::vector<double> entriesOfInverse(const std::vector<Offset>& places) const;

 private:
  /// The kept group's, in the order of the boundary.
  double* square() const {
    return panels_.get() + symbolic_.storage() - Offset{symbolic_.kept} * symbolic_.kept;
  }

  korin::sparse::Symbolic symbolic_;
  korin::sparse::PlacedEntries entries_;
  korin::sparse::Slots slots_;
  /// Place of each unknown among the rows of L.
  std::vector<Index> placeOfRow_;
  korin::kernels::PanelStorage panels_;
  int threads_;
};

}  // namespace zeph::distributed

#endif
