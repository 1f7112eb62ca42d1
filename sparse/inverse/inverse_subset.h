#ifndef ZEPH_SPARSE_INVERSE_INVERSE_SUBSET_H
#define ZEPH_SPARSE_INVERSE_INVERSE_SUBSET_H

#include "kernels/panel_storage.h"
#include "sparse/pattern/supernodes.h"

namespace korin::sparse {

/// What is known of a factor's pattern: nothing, or that it is the one that elimination gives, as a
/// factorisation leaves it, so that it need not be checked before working on panels.
enum class FactorPattern { Any, Elimination };

/// Selected inverse of a simplicial Cholesky factor: the entries of (L L^T)^-1 on L's pattern.
///
/// The constructor computes them in the factor's own (permuted) indices, on dense panels where
/// neighbouring columns share their pattern and column by column in very sparse factors; the two
/// members take them back to the indices before the permutation. The factor's arrays must outlive
/// the object.
///
///   korin::sparse::InverseSubset subset({n, n, starts, rows, values});
///   subset.diagonal(perm, variances);
///
/// Any pattern is accepted, unless more is claimed for it, rows ascending, diagonal first; entries
/// outside it count as 0. Zero pivots give infinities and NaN. All members throw nothing but
/// std::bad_alloc.
class InverseSubset {
 public:
  explicit InverseSubset(const ColumnsView& factor, FactorPattern pattern = FactorPattern::Any);
  InverseSubset(const InverseSubset&) = delete;
  InverseSubset& operator=(const InverseSubset&) = delete;

  /// diagonal[perm[k]] = entry (k, k), n of them. Cost: n.
  void diagonal(const unsigned int* perm, double* diagonal) const;

  /// Writes entry (i, k) to row perm[i] of column perm[k], in compressed columns with ascending
  /// rows; the arrays have the sizes of the factor's. Linear in the entries but for one sort of
  /// each group's rows.
  void mapTo(const unsigned int* perm, unsigned int* colStarts, unsigned int* rowIndices,
             double* values) const;

 private:
  bool preparePanels(FactorPattern pattern);
  const double* panelColumn(unsigned int panel, unsigned int k) const;
  const double* factorColumn(unsigned int first, unsigned int k) const;
  bool onPanels() const { return merged_.count() > 0; }

  ColumnsView factor_;
  /// Neighbouring columns of equal pattern; empty when nobody looked for them.
  ColumnGroups found_;
  /// The same merged for the panels; empty when the inverse is laid out like the factor.
  ColumnGroups merged_;
  /// The inverse, on the merged groups' panels or laid out like the factor's values.
  kernels::PanelStorage storage_;
  SupernodalFactor panels_{};
};

}  // namespace korin::sparse

#endif
