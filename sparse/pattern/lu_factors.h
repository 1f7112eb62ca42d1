#ifndef ZEPH_SPARSE_PATTERN_LU_FACTORS_H
#define ZEPH_SPARSE_PATTERN_LU_FACTORS_H

#include <vector>

#include "sparse/pattern/columns.h"

namespace korin::sparse {

/// The sparse LU factors of a square matrix, P R A Q = L U, as plain arrays.
///
/// R is the diagonal matrix of rowScale, L has a unit diagonal, and the diagonals of both factors
/// are kept apart from the entries beside them. The permutations are stored by their inverses: row
/// i of A is row rowPosition[i] of L, column j of A is column colPosition[j] of U.
struct LuFactors {
  int n = 0;
  Columns lower;                 ///< L below the diagonal, rows ascending in every column
  Columns upper;                 ///< the transpose of U, likewise: its columns are U's rows
  std::vector<double> diagonal;  ///< diagonal of U: the pivots
  std::vector<int> rowPosition;
  std::vector<int> colPosition;
  std::vector<double> rowScale;  ///< factor of row i of A

  /// False when there is no inverse to compute: the factorisation failed (non-square or malformed
  /// matrix, memory) or a pivot is zero, not finite, or nothing but the rounding error of its own
  /// sum.
  bool invertible = false;
};

}  // namespace korin::sparse

#endif
