// Walking the tree of a factor's groups.
#ifndef ZEPH_SPARSE_SYMBOLIC_TREE_H
#define ZEPH_SPARSE_SYMBOLIC_TREE_H

#include "sparse/symbolic/symbolic.h"

namespace korin::sparse {

/// Fills symbolic.parentPlace. Cost: the size of the lists of rows. Throws std::bad_alloc.
void findParentPlaces(Symbolic& symbolic);

/// Calls visit(child) for the children of g, the last one first.
template <class Visit>
void forEachChild(const Symbolic& symbolic, Index g, Visit visit) {
  for (Index c = g - 1; c >= symbolic.firstDescendant[g]; c = symbolic.firstDescendant[c] - 1) {
    visit(c);
  }
}

}  // namespace korin::sparse

#endif
