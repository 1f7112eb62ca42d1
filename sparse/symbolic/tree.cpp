#include "sparse/symbolic/tree.h"

namespace korin::sparse {

void findParentPlaces(Symbolic& symbolic) {
  symbolic.parentPlace.assign(symbolic.rows.size(), 0);
  std::vector<Index> placeOf(static_cast<std::size_t>(symbolic.n));
  for (Index g = 0; g < symbolic.groups(); ++g) {
    if (symbolic.firstDescendant[g] == g) continue;
    const Index* const rows = symbolic.rowsOf(g);
    for (Index i = 0; i < symbolic.height(g); ++i) placeOf[rows[i]] = i;
    forEachChild(symbolic, g, [&](Index child) {
      for (Offset p = symbolic.rowStart[child] + symbolic.width(child);
           p < symbolic.rowStart[child + 1]; ++p) {
        symbolic.parentPlace[p] = placeOf[symbolic.rows[p]];
      }
    });
  }
}

}  // namespace korin::sparse
