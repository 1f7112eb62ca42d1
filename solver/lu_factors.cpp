#include "solver/lu_factors.h"

#include <umfpack.h>

#include <cmath>
#include <cstddef>
#include <limits>

#include "solver/suitesparse_handles.h"

namespace zeph_solver {
namespace {

// A pivot no larger than this multiple of the sum of magnitudes that it was subtracted from holds
// no correct bit: the matrix is singular to working precision.
constexpr double kLostPivot = std::numeric_limits<double>::epsilon();

// Least share of its column's largest entry that a diagonal pivot must have. UMFPACK would take
// 0.001, and repairs the lost digits by refining each solution; the recurrence has no such repair.
constexpr double kDiagonalPivotTolerance = 0.1;

// Leaves `result` empty on failure; a singular matrix does have factors.
void factorise(int n, const int* colPointers, const int* rowIndices, const double* values,
               UmfpackNumeric& result) {
  void* symbolic = nullptr;
  void* numeric = nullptr;
  double control[UMFPACK_CONTROL];
  umfpack_di_defaults(control);
  control[UMFPACK_SYM_PIVOT_TOLERANCE] = kDiagonalPivotTolerance;
  umfpack_di_symbolic(n, n, colPointers, rowIndices, values, &symbolic, control, nullptr);
  if (symbolic == nullptr) return;
  umfpack_di_numeric(colPointers, rowIndices, values, symbolic, &numeric, control, nullptr);
  umfpack_di_free_symbolic(&symbolic);
  result.reset(numeric);
}

void resizeLines(CompressedLines& lines, int count, int entries) {
  lines.start.resize(static_cast<std::size_t>(count) + 1);
  lines.index.resize(static_cast<std::size_t>(entries));
  lines.value.resize(static_cast<std::size_t>(entries));
}

// Removes the entries on the diagonal (stored, or lost because it is zero).
void dropDiagonal(CompressedLines& lines) {
  int kept = 0;
  int first = 0;
  for (int k = 0; k < lines.count(); ++k) {
    const int last = lines.start[k + 1];
    for (int p = first; p < last; ++p) {
      if (lines.index[p] == k) continue;
      lines.index[kept] = lines.index[p];
      lines.value[kept++] = lines.value[p];
    }
    first = last;
    lines.start[k + 1] = kept;
  }
  lines.index.resize(static_cast<std::size_t>(kept));
  lines.value.resize(static_cast<std::size_t>(kept));
}

// The same matrix by its lines in the other direction; indices come out ascending.
CompressedLines transposed(const CompressedLines& lines) {
  const int n = lines.count();
  CompressedLines result;
  resizeLines(result, n, lines.start[n]);
  for (int i : lines.index) ++result.start[i + 1];
  for (int k = 0; k < n; ++k) result.start[k + 1] += result.start[k];
  std::vector<int> next(result.start.begin(), result.start.end() - 1);
  for (int k = 0; k < n; ++k) {
    for (int p = lines.start[k]; p < lines.start[k + 1]; ++p) {
      const int q = next[lines.index[p]]++;
      result.index[q] = k;
      result.value[q] = lines.value[p];
    }
  }
  return result;
}

// Sum over i of |l[k][i]| |u[i][k]|, the magnitudes subtracted on the way to pivot k.
double subtractedMagnitude(const CompressedLines& lRows, const CompressedLines& uCols, int k) {
  double sum = 0.0;
  int p = lRows.start[k];
  int q = uCols.start[k];
  while (p < lRows.start[k + 1] && q < uCols.start[k + 1]) {
    if (lRows.index[p] < uCols.index[q]) {
      ++p;
    } else if (lRows.index[p] > uCols.index[q]) {
      ++q;
    } else {
      sum += std::fabs(lRows.value[p++] * uCols.value[q++]);
    }
  }
  return sum;
}

bool pivotsUsable(const CompressedLines& lRows, const CompressedLines& uCols,
                  const std::vector<double>& pivots) {
  for (std::size_t k = 0; k < pivots.size(); ++k) {
    const double magnitude = std::fabs(pivots[k]);
    if (!std::isfinite(magnitude)) return false;
    // Also false for a pivot of exactly zero.
    if (magnitude <= kLostPivot * subtractedMagnitude(lRows, uCols, static_cast<int>(k))) {
      return false;
    }
  }
  return true;
}

std::vector<int> inversePermutation(const std::vector<int>& permutation) {
  std::vector<int> inverse(permutation.size());
  for (std::size_t k = 0; k < permutation.size(); ++k)
    inverse[permutation[k]] = static_cast<int>(k);
  return inverse;
}

}  // namespace

LuFactors luFactors(int rows, int cols, const int* colPointers, const int* rowIndices,
                    const double* values) {
  LuFactors factors;
  if (rows != cols || rows <= 0) return factors;
  const int n = rows;
  factors.n = n;
  UmfpackNumeric numeric;
  factorise(n, colPointers, rowIndices, values, numeric);
  int lowerEntries = 0;
  int upperEntries = 0;
  int unused = 0;
  if (numeric.get() == nullptr ||
      umfpack_di_get_lunz(&lowerEntries, &upperEntries, &unused, &unused, &unused, numeric.get()) !=
          UMFPACK_OK) {
    return factors;
  }
  CompressedLines lRows;
  CompressedLines uCols;
  resizeLines(lRows, n, lowerEntries);
  resizeLines(uCols, n, upperEntries);
  std::vector<int> rowOrder(n);
  std::vector<int> colOrder(n);
  factors.diagonal.resize(n);
  factors.rowScale.resize(n);
  int multiplies = 0;
  if (umfpack_di_get_numeric(lRows.start.data(), lRows.index.data(), lRows.value.data(),
                             uCols.start.data(), uCols.index.data(), uCols.value.data(),
                             rowOrder.data(), colOrder.data(), factors.diagonal.data(), &multiplies,
                             factors.rowScale.data(), numeric.get()) != UMFPACK_OK) {
    return factors;
  }
  if (multiplies == 0) {
    for (double& scale : factors.rowScale) scale = 1.0 / scale;
  }
  dropDiagonal(lRows);
  dropDiagonal(uCols);
  factors.invertible = pivotsUsable(lRows, uCols, factors.diagonal);
  factors.lower = transposed(lRows);
  factors.upper = transposed(uCols);
  factors.rowPosition = inversePermutation(rowOrder);
  factors.colPosition = inversePermutation(colOrder);
  return factors;
}

}  // namespace zeph_solver
