#include "solver/suitesparse/lu_factors.h"

#include <umfpack.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <memory>
#include <new>
#include <vector>

#include "solver/assembly/element_count.h"
#include "solver/suitesparse/suitesparse_handles.h"

namespace zeph_solver {

using korin::sparse::Columns;
using korin::sparse::LuFactors;
using korin::sparse::Offset;

namespace {

// A pivot no larger than this multiple of the sum of magnitudes that it was subtracted from holds
// no correct bit: the matrix is singular to working precision.
constexpr double kLostPivot = std::numeric_limits<double>::epsilon();

// Least share of its column's largest entry that a diagonal pivot must have. UMFPACK would take
// 0.001, and repairs the lost digits by refining each solution; the recurrence has no such repair.
constexpr double kDiagonalPivotTolerance = 0.1;

// Compressed columns, with a zero stored wherever the diagonal had no entry: the inverse is wanted
// there, and an order that is chosen with these positions in the pattern keeps them cheap.
struct ColumnsWithDiagonal {
  std::vector<int> start;
  std::vector<int> rows;
  std::vector<double> values;

  ColumnsWithDiagonal(int n, const int* colPointers, const int* rowIndices, const double* given)
      : start(static_cast<std::size_t>(n) + 1, 0) {
    const std::size_t most =
        requireCountable(static_cast<std::size_t>(colPointers[n]) + static_cast<std::size_t>(n));
    rows.reserve(most);
    values.reserve(most);
    for (int j = 0; j < n; ++j) {
      const int* const first = rowIndices + colPointers[j];
      const int* const end = rowIndices + colPointers[j + 1];
      const int* const place = std::lower_bound(first, end, j);
      rows.insert(rows.end(), first, place);
      if (place == end || *place != j) rows.push_back(j);
      rows.insert(rows.end(), place, end);
      values.insert(values.end(), given + colPointers[j], given + (place - rowIndices));
      if (place == end || *place != j) values.push_back(0.0);
      values.insert(values.end(), given + (place - rowIndices), given + colPointers[j + 1]);
      start[j + 1] = static_cast<int>(rows.size());
    }
  }
};

void requireMemory(int status) {
  if (status == UMFPACK_ERROR_out_of_memory) throw std::bad_alloc();
}

// UMFPACK's parameters, and its analysis; null where it made none.
void* analysed(int n, const ColumnsWithDiagonal& A, double* control, double* info) {
  void* symbolic = nullptr;
  umfpack_di_defaults(control);
  control[UMFPACK_SYM_PIVOT_TOLERANCE] = kDiagonalPivotTolerance;
  requireMemory(umfpack_di_symbolic(n, n, A.start.data(), A.rows.data(), A.values.data(), &symbolic,
                                    control, info));
  return symbolic;
}

// Leaves `result` empty on failure; a singular matrix does have factors. Returns their bytes.
double factorise(int n, const int* colPointers, const int* rowIndices, const double* values,
                 UmfpackNumeric& result) {
  const ColumnsWithDiagonal A(n, colPointers, rowIndices, values);
  double control[UMFPACK_CONTROL], info[UMFPACK_INFO];
  void* symbolic = analysed(n, A, control, info);
  if (symbolic == nullptr) return 0.0;
  void* numeric = nullptr;
  const int status = umfpack_di_numeric(A.start.data(), A.rows.data(), A.values.data(), symbolic,
                                        &numeric, control, info);
  umfpack_di_free_symbolic(&symbolic);
  requireMemory(status);
  result.reset(numeric);
  return info[UMFPACK_NUMERIC_SIZE] * info[UMFPACK_SIZE_OF_UNIT];
}

// Of a place and a value in a factor.
constexpr double kEntryBytes = sizeof(int) + sizeof(double);

// To take out L and then U, with n rows: the larger as it comes, and both as they stay, when the
// second is taken no longer beside UMFPACK's.
double bytesToTake(double n, double lower, double upper, double held) {
  const double larger = std::max(lower, upper);
  return kEntryBytes * std::max(larger + lower, larger + lower + upper - held / kEntryBytes) +
         n * (4 * sizeof(int) + 2 * sizeof(double) + 3 * sizeof(Offset));
}

// A factor as UMFPACK gives it, by rows or by columns: line k has the positions start[k] ..
// start[k+1]-1 of `index` and `value`, which hold no zeros before they are written.
struct TakenFactor {
  std::vector<int> start;
  std::unique_ptr<int[]> index;
  std::unique_ptr<double[]> value;

  TakenFactor(int n, int entries)
      : start(static_cast<std::size_t>(n) + 1),
        index(std::make_unique_for_overwrite<int[]>(static_cast<std::size_t>(entries))),
        value(std::make_unique_for_overwrite<double[]>(static_cast<std::size_t>(entries))) {}
};

// The same matrix by its lines in the other direction, without its diagonal; indices come out
// ascending.
Columns transposedBesideDiagonal(const TakenFactor& lines) {
  const int n = static_cast<int>(lines.start.size()) - 1;
  Columns result;
  result.rows = result.cols = n;
  result.start.assign(lines.start.size(), 0);
  for (int k = 0; k < n; ++k) {
    for (int p = lines.start[k]; p < lines.start[k + 1]; ++p) {
      if (lines.index[p] != k) ++result.start[lines.index[p] + 1];
    }
  }
  for (int k = 0; k < n; ++k) result.start[k + 1] += result.start[k];
  std::vector<Offset> next(result.start.begin(), result.start.end() - 1);
  result.row.resize(static_cast<std::size_t>(result.entries()));
  result.value.resize(static_cast<std::size_t>(result.entries()));
  for (int k = 0; k < n; ++k) {
    for (int p = lines.start[k]; p < lines.start[k + 1]; ++p) {
      if (lines.index[p] == k) continue;
      const Offset q = next[lines.index[p]]++;
      result.row[q] = k;
      result.value[q] = lines.value[p];
    }
  }
  return result;
}

// Of each pivot k the sum over j of |l[k][j]| |u[j][k]|, the magnitudes subtracted on the way to
// it.
std::vector<double> subtractedMagnitudes(const LuFactors& factors) {
  const Columns& lower = factors.lower;
  const Columns& upper = factors.upper;
  std::vector<double> sums(factors.n, 0.0);
  std::vector<double> column(factors.n, 0.0);
  for (int j = 0; j < factors.n; ++j) {
    for (Offset p = lower.start[j]; p < lower.start[j + 1]; ++p) {
      column[lower.row[p]] = std::fabs(lower.value[p]);
    }
    for (Offset p = upper.start[j]; p < upper.start[j + 1]; ++p) {
      sums[upper.row[p]] += column[upper.row[p]] * std::fabs(upper.value[p]);
    }
    for (Offset p = lower.start[j]; p < lower.start[j + 1]; ++p) column[lower.row[p]] = 0.0;
  }
  return sums;
}

bool pivotsUsable(const LuFactors& factors) {
  const std::vector<double> subtracted = subtractedMagnitudes(factors);
  for (int k = 0; k < factors.n; ++k) {
    const double magnitude = std::fabs(factors.diagonal[k]);
    // The second is also false for a pivot of exactly zero, and where the sum has overflowed.
    if (!std::isfinite(magnitude) || !(magnitude > kLostPivot * subtracted[k])) return false;
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
  return luFactors(rows, cols, colPointers, rowIndices, values, {});
}

LuBounds luBounds(int n, const int* colPointers, const int* rowIndices, const double* values) {
  const ColumnsWithDiagonal A(n, colPointers, rowIndices, values);
  double control[UMFPACK_CONTROL], info[UMFPACK_INFO];
  void* symbolic = analysed(n, A, control, info);
  LuBounds bounds;
  if (symbolic == nullptr) return bounds;
  umfpack_di_free_symbolic(&symbolic);
  const double lower = info[UMFPACK_LNZ_ESTIMATE], upper = info[UMFPACK_UNZ_ESTIMATE];
  const double unit = info[UMFPACK_SIZE_OF_UNIT];
  const double held = unit * info[UMFPACK_NUMERIC_SIZE_ESTIMATE];
  const auto entries = static_cast<double>(A.rows.size());
  bounds.mostEntries = lower + upper - n;
  if (info[UMFPACK_STRATEGY_USED] == UMFPACK_STRATEGY_SYMMETRIC) {
    bounds.entriesOnDiagonal = info[UMFPACK_SYMMETRIC_LUNZ];
    const double each = 0.5 * bounds.entriesOnDiagonal;
    const double values = sizeof(double) * bounds.entriesOnDiagonal;  // places are compressed
    bounds.bytesOnDiagonal = kEntryBytes * static_cast<double>(A.rows.size()) + values +
                             bytesToTake(n, each, each, values);
  }
  bounds.mostBytes = std::max(unit * info[UMFPACK_PEAK_MEMORY_ESTIMATE] + kEntryBytes * entries,
                              held + bytesToTake(n, lower, upper, held));
  return bounds;
}

LuFactors luFactors(int rows, int cols, const int* colPointers, const int* rowIndices,
                    const double* values, const RoomForFactors& room) {
  LuFactors factors;
  if (rows != cols || rows <= 0) return factors;
  const int n = rows;
  factors.n = n;
  UmfpackNumeric numeric;
  const double held = factorise(n, colPointers, rowIndices, values, numeric);
  int lowerEntries = 0;
  int upperEntries = 0;
  int unused = 0;
  if (numeric.get() == nullptr ||
      umfpack_di_get_lunz(&lowerEntries, &upperEntries, &unused, &unused, &unused, numeric.get()) !=
          UMFPACK_OK) {
    return factors;
  }
  if (room) room(held, bytesToTake(n, lowerEntries, upperEntries, held));
  // UMFPACK gives L by rows and U by columns: one after the other, in the same memory.
  TakenFactor taken(n, std::max(lowerEntries, upperEntries));
  std::vector<int> rowOrder(n);
  std::vector<int> colOrder(n);
  factors.diagonal.resize(n);
  factors.rowScale.resize(n);
  int multiplies = 0;
  requireMemory(umfpack_di_get_numeric(taken.start.data(), taken.index.get(), taken.value.get(),
                                       nullptr, nullptr, nullptr, rowOrder.data(), colOrder.data(),
                                       factors.diagonal.data(), &multiplies,
                                       factors.rowScale.data(), numeric.get()));
  factors.lower = transposedBesideDiagonal(taken);
  requireMemory(umfpack_di_get_numeric(nullptr, nullptr, nullptr, taken.start.data(),
                                       taken.index.get(), taken.value.get(), nullptr, nullptr,
                                       nullptr, nullptr, nullptr, numeric.get()));
  numeric.reset();
  factors.upper = transposedBesideDiagonal(taken);
  if (multiplies == 0) {
    for (double& scale : factors.rowScale) scale = 1.0 / scale;
  }
  factors.invertible = pivotsUsable(factors);
  factors.rowPosition = inversePermutation(rowOrder);
  factors.colPosition = inversePermutation(colOrder);
  return factors;
}

}  // namespace zeph_solver
