#include "zeph/factor/symmetric_input.h"

#include <malloc.h>

#include <algorithm>
#include <cmath>

#include "sparse/pattern/assembly.h"
#include "zeph/checks/memory.h"
#include "zeph/error.h"
#include "zeph/files/number_text.h"
#include "zeph/matrix/requirements.h"

namespace zeph {
namespace {

using korin::sparse::Columns;
using korin::sparse::Index;
using korin::sparse::Offset;
using korin::sparse::Part;
using std::size_t;

// Exponents of diagonal entries up to this leave room for the whole computation in a double.
constexpr int kModerateExponent = 200;

Error notFinite(const SymmetricInput& in, const NamedColumns& columns, const char* what,
                Offset place, double value) {
  const Offset* column = std::upper_bound(columns.start, columns.start + columns.cols, place) - 1;
  const auto [row, col] = columns.name(static_cast<Index>(column - columns.start), place);
  return Error(ErrorKind::Unfit,
               std::string(what) +
                   position(in.indexBase, static_cast<size_t>(row), static_cast<size_t>(col)) +
                   " of " + in.source + " is " + toText(value) + "; scale or replace it",
               row);
}

// Where the sums of the two triangles disagree by more than rounding, or nothing.
std::string disagreement(const SymmetricInput& in, const NamedColumns& columns, const double* lower,
                         const double* upper) {
  std::vector<double> diagonal;
  const auto readDiagonal = [&] {
    diagonal.assign(static_cast<size_t>(columns.cols), 0.0);
    for (Index c = 0; c < columns.cols; ++c) {
      for (Offset p = columns.start[c]; p < columns.start[c + 1]; ++p) {
        const auto [row, col] = columns.name(c, p);
        if (row == col) diagonal[row] = lower[p];
      }
    }
  };
  for (Index c = 0; c < columns.cols; ++c) {
    for (Offset p = columns.start[c]; p < columns.start[c + 1]; ++p) {
      if (lower[p] == upper[p]) continue;
      const auto [r, l] = columns.name(c, p);
      if (r == l) continue;
      if (diagonal.empty()) readDiagonal();
      const double scale =
          std::max({std::abs(lower[p]), std::abs(upper[p]),
                    std::sqrt(std::abs(diagonal[r])) * std::sqrt(std::abs(diagonal[l]))});
      // Halved, lest the difference overflows.
      if (std::abs(0.5 * lower[p] - 0.5 * upper[p]) <= 0.5 * kSymmetryTolerance * scale) continue;
      const auto row = static_cast<size_t>(r), col = static_cast<size_t>(l);
      return in.source + " is not symmetric: entry " + position(in.indexBase, row, col) + " is " +
             toText(lower[p]) + " but entry " + position(in.indexBase, col, row) + " is " +
             toText(upper[p]);
    }
  }
  return {};
}

// The pattern and the slots of A; both triangles' patterns are mostly the same.
void findPattern(const SparseMatrix& A, SymmetricInput& in) {
  static_assert(sizeof(Entry) == 4 * sizeof(Index));
  const auto n = static_cast<Index>(A.rows);
  korin::sparse::Places<Index> places;
  if (!A.entries.empty()) {
    places = {reinterpret_cast<const Index*>(&A.entries.front().row),
              reinterpret_cast<const Index*>(&A.entries.front().col), A.entries.size(),
              sizeof(Entry) / sizeof(Index)};
  }
  if (in.both) {
    in.lower = assemblePattern(n, n, places, Part::LowerOfBoth);
    if (findSlots(in.lower, places, Part::OneTriangle, in.slots)) return;
    in.slots = {};
  }
  in.lower = assemblePattern(n, n, places, Part::OneTriangle);
  findSlots(in.lower, places, Part::OneTriangle, in.slots);
}

// Share of the estimate that is taken for certain, and how much is worth a look at the system.
constexpr double kCertain = 0.9;
constexpr double kWorthLooking = 1e7;

// Of each entry as it was given, before duplicates are merged, and of each unknown, whatever the
// pattern: rows, counters of the columns, and the order.
constexpr double kLeastOfEntry = 4.0;
constexpr double kLeastOfUnknown = 60.0;
// And of the entries of a triangle and the unknowns, from then on: together with the pattern and
// the slots three quarters of what grids, networks, pose graphs, bundles and bands take.
constexpr double kMoreOfEntry = 7.0;
constexpr double kMoreOfUnknown = 77.0;

}  // namespace

void requireToAnalyse(const std::string& source, double estimate) {
  const double bytes = kCertain * estimate;
  if (bytes <= kWorthLooking || fitsMemory(bytes, 0.0)) return;
  returnFreeMemory();
  requireBytes("analysing " + source, bytes, 0.0);
}

void returnFreeMemory() {
#ifdef __GLIBC__
  malloc_trim(0);
#endif
}

// Least squares over grids, networks, pose graphs and bundles of 10^4 to 10^5 unknowns.
double analysisBytes(double unknowns, double entries) {
  return 16.0 * entries + 85.0 * unknowns;
}

std::string sumValues(const SymmetricInput& in, const NamedColumns& columns, const double* values,
                      size_t step, double* sum, double* upper) {
  const Offset entries = columns.start[columns.cols];
  std::fill_n(sum, entries, 0.0);
  if (!in.both) upper = nullptr;
  if (upper != nullptr) std::fill_n(upper, entries, 0.0);
  const double* next = values;
  in.slots.forEach([&](Offset place, bool mirrored) {
    const double value = *next;
    next += step;
    if (!std::isfinite(value)) {
      throw notFinite(in, columns, "the value of entry ", place, value);
    }
    if (!in.both || !mirrored) {
      sum[place] += value;
    } else if (upper != nullptr) {
      upper[place] += value;
    }
  });
  for (const double* sums : {const_cast<const double*>(sum), const_cast<const double*>(upper)}) {
    if (sums == nullptr) continue;
    const double* bad =
        std::find_if_not(sums, sums + entries, [](double v) { return std::isfinite(v); });
    if (bad == sums + entries) continue;
    throw notFinite(in, columns, "the sum of the entries at ", bad - sums, *bad);
  }
  return upper == nullptr ? std::string() : disagreement(in, columns, sum, upper);
}

SymmetricInput symmetricInput(const SparseMatrix& A, std::string& against) {
  requireToAnalyse(A.source, kLeastOfEntry * static_cast<double>(A.entries.size()) +
                                 kLeastOfUnknown * static_cast<double>(A.rows));
  SymmetricInput in;
  in.source = A.source;
  in.indexBase = A.indexBase;
  in.both = A.symmetry == Symmetry::General;
  if (A.symmetry == Symmetry::SkewSymmetric) {
    against = A.source + " is skew-symmetric";
    return in;
  }
  findPattern(A, in);
  const Columns& a = in.lower;
  std::vector<double> sum(a.row.size()), upper(in.both ? a.row.size() : 0);
  const NamedColumns columns{a.cols, a.start.data(), [&a](Index c, Offset p) {
                               return std::make_pair(a.row[static_cast<size_t>(p)], c);
                             }};
  against = sumValues(in, columns, A.entries.empty() ? nullptr : &A.entries.front().value,
                      sizeof(Entry) / sizeof(double), sum.data(), in.both ? upper.data() : nullptr);
  for (Index c = 0; c < a.cols && in.unusableDiagonal < 0; ++c) {
    const Offset first = a.start[c];
    const bool stored = first < a.start[c + 1] && a.row[first] == c;
    if (!stored || !(sum[first] > 0.0)) in.unusableDiagonal = c;
  }
  if (!against.empty() || in.unusableDiagonal >= 0) return in;
  requireToAnalyse(A.source, kMoreOfEntry * static_cast<double>(a.row.size()) +
                                 kMoreOfUnknown * static_cast<double>(a.cols) -
                                 static_cast<double>(in.slots.bytes()));
  return in;
}

std::vector<int> scalingExponents(const std::vector<double>& diagonal) {
  std::vector<int> exponent(diagonal.size(), 0);
  bool moderate = true;
  for (size_t c = 0; c < diagonal.size(); ++c) {
    if (!(diagonal[c] > 0.0)) continue;
    const int size = std::ilogb(diagonal[c]);
    moderate = moderate && std::abs(size) <= kModerateExponent;
    exponent[c] = -(size >= 0 ? size / 2 : (size - 1) / 2);
  }
  if (moderate) exponent.clear();
  return exponent;
}

}  // namespace zeph
