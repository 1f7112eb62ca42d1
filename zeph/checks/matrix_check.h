#ifndef ZEPH_CHECKS_MATRIX_CHECK_H
#define ZEPH_CHECKS_MATRIX_CHECK_H

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "zeph/checks/progress.h"
#include "zeph/files/json_text.h"
#include "zeph/matrix/requirements.h"
#include "zeph/sparse_matrix.h"

namespace zeph {

/// How far a sparse matrix is from its transpose.
struct SymmetryReport {
  bool square = false;
  bool structural = false;  ///< (r, c) is stored exactly when (c, r) is
  bool numerical = false;   ///< every pair agrees to kSymmetryTolerance
  double largestDifference =
      0.0;  ///< max |a(r,c) - a(c,r)| / max(|a(r,c)|, |a(c,r)|, √|a(r,r) a(c,c)|)
  std::size_t row = 0, col = 0;  ///< the pair of the largest difference, row > col
};

/// Compares a merged general m with its transpose. O(entries), 12 bytes a column of memory.
SymmetryReport findSymmetry(const SparseMatrix& m);

/// Indices of the diagonal entries that rule a definite matrix out by their size alone: those that
/// are zero or not finite, and the smaller of two that lie below 2⁻⁵² of the square of the entry
/// that joins them. m is merged, with both triangles or one.
std::vector<std::size_t> unusableDiagonal(const SparseMatrix& m);

/// Everything that decides whether a matrix can be factorised. Indices are zero-based.
struct MatrixReport {
  std::string source;
  std::size_t indexBase = 1;
  std::size_t rows = 0, cols = 0;
  std::size_t storedEntries = 0;  ///< as in the file: duplicates apart, one triangle if symmetric
  std::size_t entries = 0;        ///< positions of the whole matrix that hold a sum
  std::size_t duplicates = 0;     ///< stored entries beyond the first at their position
  Symmetry declared = Symmetry::General;
  SymmetryReport symmetry;
  std::vector<std::size_t>
      unusableDiagonal;              ///< zero, not finite or too small beside its row; square only
  std::size_t negativeDiagonal = 0;  ///< diagonal entries below zero
  std::size_t nonFinite = 0;         ///< stored entries that are NaN or infinite
  std::optional<Entry> firstNonFinite;    ///< the first of them in file order
  std::vector<int> emptyRows, emptyCols;  ///< without an entry other than zero
  std::string oneTriangle;                ///< as oneTriangleOnly() says it

  /// Dimension of the null space of a network that nothing holds; 0 where there is none to be seen.
  std::size_t nullSpace = 0;

  /// Why Cholesky, or any factorisation, fails; empty when it succeeds.
  std::vector<std::string> againstCholesky, againstLu;

  bool fitForCholesky() const { return againstCholesky.empty(); }
  bool fitForLu() const { return againstLu.empty(); }
  /// Some factorisation can be tried.
  bool fit() const { return fitForLu(); }
};

/// Inspects m, which may hold NaN and infinities (ReadOptions::allowNonFinite). Where nothing else
/// speaks against it, m is factorised to see whether it is definite, or singular.
/// `memoryLimit` as in Options.
MatrixReport checkMatrix(const SparseMatrix& m, const Progress& progress = Progress(),
                         double memoryLimit = 0.0);

/// The report as lines of text, positions counted as in the file, long lists cut short.
std::string toText(const MatrixReport& report);

/// The report as members of a JSON object.
void addFigures(const MatrixReport& report, JsonObject& figures);

}  // namespace zeph

#endif
