// Groups of neighbouring columns of a sparse lower-triangular factor that share the pattern below
// them (supernodes), and the dense panels such a group is worked on in.
#ifndef ZEPH_SPARSE_PATTERN_SUPERNODES_H
#define ZEPH_SPARSE_PATTERN_SUPERNODES_H

#include <cstddef>
#include <vector>

#include "sparse/pattern/columns.h"

namespace korin::sparse {

// A factor in compressed columns, as the functions here take it, is n x n and lower-triangular:
// rows ascending in every column, diagonal entry first.

/// View of an n x n lower-triangular matrix as dense panels. Nothing is owned.
///
/// Group g holds columns firstColumn[g] .. firstColumn[g+1]-1. Its rows are rows[rowStart[g] ..
/// rowStart[g+1]), ascending, its own columns first; the group's panel of as many rows as that and
/// one column each lies column-major at values + panelStart[g]. What is stored above the diagonal
/// is not part of the matrix.
struct SupernodalFactor {
  unsigned int n;
  unsigned int groupCount;
  const unsigned int* firstColumn;
  const unsigned int* rowStart;
  const unsigned int* rows;
  const std::size_t* panelStart;
  double* values;
};

/// The structure of a SupernodalFactor, owned.
struct ColumnGroups {
  std::vector<unsigned int> firstColumn{0};
  std::vector<unsigned int> rowStart{0};
  std::vector<unsigned int> rows;
  std::vector<std::size_t> panelStart{0};

  unsigned int count() const { return static_cast<unsigned int>(firstColumn.size() - 1); }
  unsigned int columns(unsigned int g) const { return firstColumn[g + 1] - firstColumn[g]; }
  unsigned int height(unsigned int g) const { return rowStart[g + 1] - rowStart[g]; }
  SupernodalFactor over(unsigned int n, double* values) const {
    return {n,     count(), firstColumn.data(), rowStart.data(), rows.data(), panelStart.data(),
            values};
  }
};

/// Largest groups of neighbouring columns of which each is its successor's pattern plus its own
/// diagonal (fundamental supernodes up to branches of the tree). One pass over the row indices.
ColumnGroups findColumnGroups(const ColumnsView& factor);

/// Whether the pattern is that of a complete Cholesky factor: the rows below a group, without those
/// in the group that holds the first of them, all occur in that group. The recurrence on panels
/// needs this. One pass over the groups' rows.
bool isEliminationPattern(const ColumnsView& factor, const ColumnGroups& groups);

/// The size of a group and its place in the elimination tree, without its rows.
struct GroupSketch {
  unsigned int firstColumn;
  unsigned int endColumn;
  unsigned int rowsBelow;
  unsigned int firstRowBelow;  ///< n where there is none
  unsigned int columns() const { return endColumn - firstColumn; }
};

/// The groups that `findColumnGroups` finds in an elimination pattern, from the lengths of the
/// columns and their first rows alone. Cost: the number of columns.
std::vector<GroupSketch> sketchGroups(const ColumnsView& factor);

/// Merges groups with the following one where it holds their first row below and where the zeros
/// that become explicit cost less than the larger panels save (the thresholds are those of the
/// relaxed supernodes of Ashcraft and Grimes, 1989, tuned here).
std::vector<GroupSketch> mergeGroups(const std::vector<GroupSketch>& groups);

/// Estimated time of the recurrence on the groups' panels, in nanoseconds.
double estimatedTime(const std::vector<GroupSketch>& groups);

/// The groups with their rows: their own columns and the rows below the last of these. The factor
/// must have an elimination pattern.
ColumnGroups columnGroups(const ColumnsView& factor, const std::vector<GroupSketch>& sketch);

/// Copies the factor's entries into zeroed panels, whose groups must cover its pattern.
void gatherPanels(const ColumnsView& factor, const SupernodalFactor& panels);

/// diagonal[perm[k]] = entry (k, k), n of them.
void panelDiagonal(const SupernodalFactor& panels, const unsigned int* perm, double* diagonal);

}  // namespace korin::sparse

#endif
