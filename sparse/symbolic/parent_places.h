#ifndef ZEPH_SPARSE_SYMBOLIC_PARENT_PLACES_H
#define ZEPH_SPARSE_SYMBOLIC_PARENT_PLACES_H

#include <vector>

#include "sparse/symbolic/symbolic.h"

namespace korin::sparse {

/// Where the rows below a group are among its parent's rows: for each place in `symbolic.rows` that
/// holds a row below its group the number of that row in the parent's list; 0 for the others.
/// Cost: the size of the lists. Throws std::bad_alloc.
std::vector<Index> parentPlaces(const Symbolic& symbolic);

/// Calls visit(child) for the children of g, the last one first.
template <class Visit>
void forEachChild(const Symbolic& symbolic, Index g, Visit visit) {
  for (Index c = g - 1; c >= symbolic.firstDescendant[g]; c = symbolic.firstDescendant[c] - 1) {
    visit(c);
  }
}

}  // namespace korin::sparse

#endif
