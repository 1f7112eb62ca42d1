#ifndef ZEPH_SPARSE_PATTERN_LU_FACTORS_H
#define ZEPH_SPARSE_PATTERN_LU_FACTORS_H

#include <memory>
#include <span>
#include <vector>

namespace korin::sparse {

/// Sparse vectors of one direction (all rows, or all columns, of a triangular matrix) in compressed
/// form: line k holds positions start[k] .. start[k+1]-1 of `index` (ascending) and `value`.
struct CompressedLines {
  std::vector<int> start;
  std::unique_ptr<int[]> index;
  std::unique_ptr<double[]> value;

  /// Number of lines.
  int count() const { return static_cast<int>(start.size()) - 1; }
  /// Indices of one line.
  std::span<const int> line(int k) const {
    return {index.get() + start[k], index.get() + start[k + 1]};
  }
};

/// The sparse LU factors of a square matrix, P R A Q = L U, as plain arrays.
///
/// R is the diagonal matrix of rowScale, L has a unit diagonal, and the diagonals of both factors
/// are kept apart from the entries beside them. The permutations are stored by their inverses: row
/// i of A is row rowPosition[i] of L, column j of A is column colPosition[j] of U.
struct LuFactors {
  int n = 0;
  CompressedLines lower;         ///< columns of L, below the diagonal
  CompressedLines upper;         ///< rows of U, right of the diagonal
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
