#include "distributed/condition.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "distributed/backend.h"
#include "zeph/factor/inverse_norm.h"

namespace zeph::distributed {
namespace {

using std::size_t;
using Vector = std::vector<double>;

template <class Take>
void forEachEntry(const Assembled& A, const Take& take) {
  for (const Entry& e : A.entries) {
    take(e.row, e.col, e.value);
    if (A.symmetric() && e.row != e.col) take(e.col, e.row, e.value);
  }
}

struct Scaling {
  Vector rows, cols;
};

// 1 for what is zero, so that an empty row does not make infinities of its own.
void invert(Vector& sizes) {
  for (double& s : sizes) s = s > 0.0 && std::isfinite(1.0 / s) ? 1.0 / s : 1.0;
}

Scaling scalingOf(const Communicator& comm, const Assembled& A) {
  Scaling s{Vector(A.n, 0.0), Vector(A.n, 0.0)};
  if (A.symmetric() && A.unusableDiagonal < 0) {
    for (const Entry& e : A.entries) {
      if (e.row == e.col) s.rows[e.row] = std::sqrt(e.value);
    }
    comm.largest(s.rows.data(), A.n);
    invert(s.rows);
    s.cols = s.rows;
    return s;
  }
  forEachEntry(A, [&](size_t row, size_t, double value) {
    s.rows[row] = std::max(s.rows[row], std::abs(value));
  });
  comm.largest(s.rows.data(), A.n);
  invert(s.rows);
  forEachEntry(A, [&](size_t row, size_t col, double value) {
    s.cols[col] = std::max(s.cols[col], s.rows[row] * std::abs(value));
  });
  comm.largest(s.cols.data(), A.n);
  invert(s.cols);
  return s;
}

}  // namespace

double estimateCondition(const Communicator& comm, const Assembled& A,
                         const DistributedBackend& solver) {
  const Scaling s = scalingOf(comm, A);
  Vector sums(A.n, 0.0);
  forEachEntry(A, [&](size_t row, size_t col, double value) {
    sums[col] += s.rows[row] * std::abs(value) * s.cols[col];
  });
  comm.sum(sums.data(), A.n);
  const double norm = *std::max_element(sums.begin(), sums.end());
  // S⁻¹ = C⁻¹ A⁻¹ R⁻¹
  const auto solve = [&](const double* b, double* x, bool transposed) {
    const Vector& first = transposed ? s.cols : s.rows;
    const Vector& last = transposed ? s.rows : s.cols;
    for (size_t i = 0; i < A.n; ++i) x[i] = b[i] / first[i];
    solver.solve(x, transposed);
    for (size_t i = 0; i < A.n; ++i) x[i] /= last[i];
  };
  return norm * inverseNorm(
                    A.n, [&](const double* b, double* x) { solve(b, x, false); },
                    [&](const double* b, double* x) { solve(b, x, true); });
}

}  // namespace zeph::distributed
