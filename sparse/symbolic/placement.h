// The entries of A brought to their places in the panels of its factor.
#ifndef ZEPH_SPARSE_SYMBOLIC_PLACEMENT_H
#define ZEPH_SPARSE_SYMBOLIC_PLACEMENT_H

#include <vector>

#include "sparse/symbolic/symbolic.h"

namespace korin::sparse {

/// Lays out a symmetric matrix, given by its lower triangle, for the panels of the factor with the
/// structure that `analyse` found for the same pattern. Entries within a column stand in no
/// particular order.
///
/// With `slot` (an assembly's: input entry -> entry of `lower`, or kSkipped), slot[k] becomes the
/// place of input entry k in `value` of the result, so that new values of the same pattern need
/// only be added: value[slot[k]] += input[k].
///
/// O(entries + rows of all groups). Not checked: that the pattern is the analysed one.
PlacedEntries place(const Symbolic& symbolic, const ColumnsView& lower,
                    std::vector<Offset>* slot = nullptr);

}  // namespace korin::sparse

#endif
