#include "zeph/general/lu_error.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "sparse/inverse/lu_solve.h"
#include "zeph/factor/inverse_norm.h"

namespace zeph {
namespace {

using korin::sparse::Columns;
using korin::sparse::LuFactors;
using Vector = std::vector<double>;

constexpr int kMoreProbes = 8;

// y = |T| x or |T|ᵀ x for a triangle without its diagonal, which is 1 or given.
Vector magnitudes(const Columns& t, const double* diagonal, const Vector& x, bool transposed) {
  Vector y(x.size());
  for (std::size_t c = 0; c < x.size(); ++c) {
    y[c] += (diagonal == nullptr ? 1.0 : std::abs(diagonal[c])) * x[c];
    for (auto p = t.start[c]; p < t.start[c + 1]; ++p) {
      const auto r = static_cast<std::size_t>(t.row[p]);
      y[transposed ? c : r] += std::abs(t.value[p]) * x[transposed ? r : c];
    }
  }
  return y;
}

// Root mean square of what solve makes of random multiples of weights.
template <class Solve>
Vector rowNorms(const Vector& weights, const Solve& solve) {
  Vector b(weights.size()), x(weights.size()), squares(weights.size());
  for (int probe = 0; probe < kMoreProbes; ++probe) {
    for (std::size_t i = 0; i < b.size(); ++i) {
      b[i] = probeWeight(kMoreProbes * i + static_cast<std::size_t>(probe)) * weights[i];
    }
    solve(b.data(), x.data());
    for (std::size_t i = 0; i < b.size(); ++i) squares[i] += x[i] * x[i];
  }
  for (double& s : squares) s = std::sqrt(s / kMoreProbes);
  return squares;
}

}  // namespace

LuSensitivity luSensitivity(const LuFactors& f, korin::kernels::Team& team) {
  const auto n = static_cast<std::size_t>(f.n);
  // F 1 by rows of S and Fᵀ 1 by its columns. `upper` is the transpose of U.
  const Vector ones(n, 1.0);
  const Vector inRows =
      magnitudes(f.lower, nullptr, magnitudes(f.upper, f.diagonal.data(), ones, true), false);
  Vector unscaled(n), rowSum(n), colSum(n);
  for (std::size_t i = 0; i < n; ++i) {
    const auto k = static_cast<std::size_t>(f.rowPosition[i]);
    unscaled[k] = 1.0 / std::abs(f.rowScale[i]);
    rowSum[i] = inRows[k] * unscaled[k];
  }
  const Vector inCols =
      magnitudes(f.upper, f.diagonal.data(), magnitudes(f.lower, nullptr, unscaled, true), false);
  for (std::size_t j = 0; j < n; ++j) {
    colSum[j] = inCols[static_cast<std::size_t>(f.colPosition[j])];
  }
  const double largest = std::max(*std::max_element(rowSum.begin(), rowSum.end()),
                                  *std::max_element(colSum.begin(), colSum.end()));
  for (double& s : rowSum) s = std::sqrt(s);
  for (double& s : colSum) s = std::sqrt(s);
  Vector rows, cols;
  team.forEach(2, [&](int side) {
    if (side == 0) {
      rows = rowNorms(rowSum, [&](const double* b, double* x) { luSolve(f, b, x); });
    } else {
      cols = rowNorms(colSum, [&](const double* b, double* x) { luSolveTransposed(f, b, x); });
    }
  });
  LuSensitivity s{Vector(n), Vector(n)};
  for (std::size_t i = 0; i < n; ++i) {
    s.error[i] = rows[i] * cols[i];
    s.size[i] = s.error[i] / largest;
  }
  return s;
}

}  // namespace zeph
