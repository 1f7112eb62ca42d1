#include "zeph/factor/symmetric_input.h"

#include <algorithm>
#include <cmath>

#include "sparse/pattern/assembly.h"
#include "zeph/error.h"
#include "zeph/files/number_text.h"
#include "zeph/matrix/requirements.h"

namespace zeph {
namespace {

using korin::sparse::Columns;
using korin::sparse::Index;
using korin::sparse::Offset;

// Exponents of diagonal entries up to this leave room for the whole computation in a double.
constexpr int kModerateExponent = 200;

double diagonalEntry(const Columns& lower, Index column) {
  const Offset first = lower.start[column];
  const bool stored = first < lower.start[column + 1] && lower.row[first] == column;
  return stored ? lower.value[first] : 0.0;
}

Error notFinite(const SymmetricInput& in, const char* what, Offset place, double value) {
  const auto column = std::upper_bound(in.lower.start.begin(), in.lower.start.end(), place) - 1;
  const auto row = static_cast<std::size_t>(in.lower.row[place]);
  return Error(
      ErrorKind::Unfit,
      std::string(what) +
          position(in.indexBase, row, static_cast<std::size_t>(column - in.lower.start.begin())) +
          " of " + in.source + " is " + toText(value) + "; scale or replace it",
      static_cast<std::int64_t>(row));
}

// Where the sums of the two triangles disagree by more than rounding, or nothing.
std::string disagreement(const SymmetricInput& in, const std::vector<double>& upper) {
  const Columns& a = in.lower;
  for (Index c = 0; c < a.cols; ++c) {
    for (Offset p = a.start[c]; p < a.start[c + 1]; ++p) {
      const Index r = a.row[p];
      if (r == c || a.value[p] == upper[p]) continue;
      const double scale = std::max(
          {std::abs(a.value[p]), std::abs(upper[p]),
           std::sqrt(std::abs(diagonalEntry(a, r))) * std::sqrt(std::abs(diagonalEntry(a, c)))});
      // Halved, lest the difference overflows.
      if (std::abs(0.5 * a.value[p] - 0.5 * upper[p]) <= 0.5 * kSymmetryTolerance * scale) continue;
      const auto row = static_cast<std::size_t>(r), col = static_cast<std::size_t>(c);
      return in.source + " is not symmetric: entry " + position(in.indexBase, row, col) + " is " +
             toText(a.value[p]) + " but entry " + position(in.indexBase, col, row) + " is " +
             toText(upper[p]);
    }
  }
  return {};
}

}  // namespace

std::string SymmetricInput::fill(const double* values, std::size_t count) {
  std::fill(lower.value.begin(), lower.value.end(), 0.0);
  std::vector<double> upper(both ? lower.value.size() : 0);
  for (std::size_t k = 0; k < count; ++k) {
    if (!std::isfinite(values[k])) {
      throw notFinite(*this, "the value of entry ", place[k] < 0 ? ~place[k] : place[k], values[k]);
    }
    if (place[k] < 0) {
      upper[~place[k]] += values[k];
    } else {
      lower.value[place[k]] += values[k];
    }
  }
  for (const std::vector<double>* sums : {&lower.value, &upper}) {
    const auto bad =
        std::find_if_not(sums->begin(), sums->end(), [](double v) { return std::isfinite(v); });
    if (bad != sums->end()) {
      throw notFinite(*this, "the sum of the entries at ", bad - sums->begin(), *bad);
    }
  }
  return both ? disagreement(*this, upper) : std::string();
}

SymmetricInput symmetricInput(const SparseMatrix& A, std::string& against) {
  SymmetricInput in;
  in.source = A.source;
  in.indexBase = A.indexBase;
  in.both = A.symmetry == Symmetry::General;
  if (A.symmetry == Symmetry::SkewSymmetric) {
    against = A.source + " is skew-symmetric";
    return in;
  }
  const std::size_t count = A.entries.size();
  std::vector<Index> row(count), col(count);
  std::vector<double> value(count);
  for (std::size_t k = 0; k < count; ++k) {
    row[k] = static_cast<Index>(A.entries[k].row);
    col[k] = static_cast<Index>(A.entries[k].col);
    value[k] = A.entries[k].value;
  }
  const auto n = static_cast<Index>(A.rows);
  in.lower = korin::sparse::assembleTriplets(n, n, row.data(), col.data(), value.data(), count,
                                             korin::sparse::Part::OneTriangle, &in.place);
  if (in.both) {
    for (std::size_t k = 0; k < count; ++k) {
      if (row[k] < col[k]) in.place[k] = ~in.place[k];
    }
  }
  against = in.fill(value.data(), count);
  return in;
}

std::vector<int> scalingExponents(const Columns& lower) {
  std::vector<int> exponent(static_cast<std::size_t>(lower.cols), 0);
  bool moderate = true;
  for (Index c = 0; c < lower.cols; ++c) {
    const double d = diagonalEntry(lower, c);
    if (!(d > 0.0)) continue;
    const int size = std::ilogb(d);
    moderate = moderate && std::abs(size) <= kModerateExponent;
    exponent[c] = -(size >= 0 ? size / 2 : (size - 1) / 2);
  }
  if (moderate) exponent.clear();
  return exponent;
}

Index firstUnusableDiagonal(const Columns& lower) {
  for (Index c = 0; c < lower.cols; ++c) {
    if (!(diagonalEntry(lower, c) > 0.0)) return c;
  }
  return -1;
}

}  // namespace zeph
