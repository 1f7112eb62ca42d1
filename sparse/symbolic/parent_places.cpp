#include "sparse/symbolic/parent_places.h"

namespace korin::sparse {

std::vector<Index> parentPlaces(const Symbolic& symbolic) {
  std::vector<Index> places(symbolic.rows.size());
  std::vector<Index> placeOf(static_cast<std::size_t>(symbolic.n));
  for (Index g = 0; g < symbolic.groups(); ++g) {
    if (symbolic.firstDescendant[g] == g) continue;
    const Index* const rows = symbolic.rowsOf(g);
    for (Index i = 0; i < symbolic.height(g); ++i) placeOf[rows[i]] = i;
    forEachChild(symbolic, g, [&](Index child) {
      for (Offset p = symbolic.rowStart[child] + symbolic.width(child);
           p < symbolic.rowStart[child + 1]; ++p) {
        places[p] = placeOf[symbolic.rows[p]];
      }
    });
  }
  return places;
}

}  // namespace korin::sparse
