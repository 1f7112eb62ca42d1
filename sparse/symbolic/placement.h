// The entries of A brought to their places in the panels of its factor.
#ifndef ZEPH_SPARSE_SYMBOLIC_PLACEMENT_H
#define ZEPH_SPARSE_SYMBOLIC_PLACEMENT_H

#include "sparse/pattern/slots.h"
#include "sparse/symbolic/symbolic.h"

namespace korin::sparse {

/// Lays out a symmetric matrix, given by its lower triangle, for the panels of the factor with the
/// structure that `analyse` found for the same pattern. Entries within a column stand in no
/// particular order. Where `lower` has no values the result has none.
///
/// With `slots` (of an input: the places of its entries in `lower`), they become those in `value`
/// of the result, so that new values of the same pattern need only be added there. Mirrored ones
/// that name no place must not name one beyond the last.
///
/// O(entries + rows of all groups). Not checked: that the pattern is the analysed one.
PlacedEntries place(const Symbolic& symbolic, const ColumnsView& lower, Slots* slots = nullptr);

}  // namespace korin::sparse

#endif
