// Symbolic factorisation: from the pattern of a symmetric matrix to the structure of its factor.
#ifndef ZEPH_SPARSE_SYMBOLIC_ANALYSE_H
#define ZEPH_SPARSE_SYMBOLIC_ANALYSE_H

#include <functional>

#include "sparse/ordering/ordering.h"
#include "sparse/symbolic/symbolic.h"

namespace korin::sparse {

struct AnalysisOptions {
  Ordering ordering = Ordering::Automatic;
  /// For Ordering::Given: permutation[k] is the unknown to eliminate as the k-th, n of them.
  const Index* permutation = nullptr;
  /// The last so many unknowns are not eliminated. They become the last group, in their order, a
  /// square without rows below it, as if all of them were neighbours: what `factorise` leaves there
  /// is what eliminating the others adds to them. Not with Ordering::Given.
  Index kept = 0;
  /// As of `orderGraph`, and before the structure is laid out.
  std::function<void(double bytes)> room = {};
};

/// The structure of the Cholesky factor of a symmetric matrix from the pattern of its lower
/// triangle (rows ascending in every column, no duplicates, the diagonal may be left out).
///
/// Unknowns with equal neighbourhoods are ordered and analysed as one weighted node and never part.
/// Also a natural or given order is refined by a postorder of its elimination tree, which changes
/// neither fill nor operations; `permutation` of the result is what holds. Unknowns that only share
/// a node if the order moved them together stay apart there.
///
/// Cost: ordering, and O(entries of A + rows of all groups) but for sorting children of the tree.
/// Throws std::invalid_argument, naming the entry at fault, if a given permutation is none, or
/// comes with kept unknowns; std::bad_alloc. Not checked: the order of the rows.
Symbolic analyse(const ColumnsView& lower, const AnalysisOptions& options = {});

/// What factorisation will take, in bytes.
struct MemoryPrediction {
  double panels = 0.0;
  double structure = 0.0;
  /// Updates that wait at one time in a multifrontal factorisation in the order of the groups:
  /// squares of below(g) x below(g), where the update of a group is made before those of its
  /// children go.
  double updates = 0.0;
};

/// O(groups).
MemoryPrediction predictMemory(const Symbolic& symbolic);

}  // namespace korin::sparse

#endif
