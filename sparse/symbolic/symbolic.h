// The structure of a sparse Cholesky factor: made once from a pattern, only read afterwards.
#ifndef ZEPH_SPARSE_SYMBOLIC_SYMBOLIC_H
#define ZEPH_SPARSE_SYMBOLIC_SYMBOLIC_H

#include <vector>

#include "sparse/ordering/choice.h"
#include "sparse/pattern/columns.h"

namespace korin::sparse {

/// Structure of L with A(p, p) = L L^T, in groups of neighbouring columns (supernodes) whose rows
/// below the group are the same, or are treated as such.
///
/// Group g has the columns firstColumn[g] .. firstColumn[g+1]-1 and the rows rows[rowStart[g] ..
/// rowStart[g+1]), ascending, its own columns first. It is stored as a dense column-major panel of
/// height(g) x width(g) at panelStart[g]; what lies above its diagonal is no part of L. Groups are
/// in postorder of the tree: the subtree of g is the groups firstDescendant[g] .. g. The rows below
/// a group all occur among its parent's rows.
struct Symbolic {
  Index n = 0;
  /// The last so many columns, in A's order, are not eliminated and form the last group; 0 where
  /// all are.
  Index kept = 0;
  /// permutation[k] is the row and column of A that became row and column k.
  std::vector<Index> permutation;
  std::vector<Index> firstColumn{0};
  std::vector<Offset> rowStart{0};
  std::vector<Index> rows;
  /// Aligned with `rows`: the place among the parent's rows of each row below its group; 0 for the
  /// others. Filled by `findParentPlaces`.
  std::vector<Index> parentPlace;
  std::vector<Offset> panelStart{0};
  /// The group that holds the first row below; -1 for a root.
  std::vector<Index> parent;
  std::vector<Index> firstDescendant;
  /// Group of each column.
  std::vector<Index> groupOf;

  /// The order that was taken; never Ordering::Automatic.
  Ordering ordering = Ordering::Natural;
  /// What finding the order took, compression and predictions included.
  double secondsOrdering = 0.0;
  /// Unknowns with equal neighbourhoods counted once: the nodes that were ordered.
  Index compressedNodes = 0;
  /// Entries of L without the zeros that groups store. Here as below without the kept columns.
  Offset entries = 0;
  /// Sum over the columns of their squared lengths in L, zeros that groups store left out:
  /// multiplications and additions of the factorisation.
  double operations = 0.0;

  Index groups() const { return static_cast<Index>(parent.size()); }
  Index width(Index g) const { return firstColumn[g + 1] - firstColumn[g]; }
  Index height(Index g) const { return static_cast<Index>(rowStart[g + 1] - rowStart[g]); }
  Index below(Index g) const { return height(g) - width(g); }
  bool isKept(Index g) const { return kept > 0 && g + 1 == groups(); }
  const Index* rowsOf(Index g) const { return rows.data() + rowStart[g]; }
  Offset panelSize(Index g) const { return Offset{height(g)} * width(g); }
  /// Values that all panels hold.
  Offset storage() const { return panelStart.back(); }
};

/// The lower triangle of A(p, p) laid out for the panels: column c has the entries
/// start[c] .. start[c+1]-1; entry k belongs to place position[k] of its column in its group's
/// panel (row rowsOf(g)[position[k]]). Each position occurs once in a column.
struct PlacedEntries {
  std::vector<Offset> start{0};
  std::vector<Index> position;
  std::vector<double> value;
};

}  // namespace korin::sparse

#endif
