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

// x = S⁻¹ b, or S⁻ᵀ b; S⁻¹ = C⁻¹ A⁻¹ R⁻¹.
void solveScaled(const Scaling& s, const DistributedBackend& solver, const double* b, double* x,
                 bool transposed) {
  const Vector& first = transposed ? s.cols : s.rows;
  const Vector& last = transposed ? s.rows : s.cols;
  for (size_t i = 0; i < first.size(); ++i) x[i] = b[i] / first[i];
  solver.solve(x, transposed);
  for (size_t i = 0; i < first.size(); ++i) x[i] /= last[i];
}

// Random vectors; where all that counts is one direction, one alone misses it now and then.
constexpr size_t kProbes = 3;

// Means over random v of the squares of S⁻¹ v, or of S⁻ᵀ v, and of v · S⁻¹ v.
struct Means {
  Vector squares;
  double trace = 0.0;
};

Means means(const Scaling& s, const DistributedBackend& solver, bool transposed) {
  const size_t n = s.rows.size();
  Means m{Vector(n, 0.0)};
  Vector v(n), x(n);
  for (size_t k = 0; k < kProbes; ++k) {
    for (size_t i = 0; i < n; ++i) v[i] = probeWeight(k * n + i);
    solveScaled(s, solver, v.data(), x.data(), transposed);
    for (size_t i = 0; i < n; ++i) {
      m.squares[i] += x[i] * x[i] / kProbes;
      m.trace += v[i] * x[i] / kProbes;
    }
  }
  return m;
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
  return norm * inverseNorm(
                    A.n, [&](const double* b, double* x) { solveScaled(s, solver, b, x, false); },
                    [&](const double* b, double* x) { solveScaled(s, solver, b, x, true); });
}

std::int64_t Weakness::weakest(const std::int64_t* asked, size_t count) const {
  if (count == 0) return std::max_element(rows.begin(), rows.end()) - rows.begin();
  return *std::max_element(asked, asked + count,
                           [&](std::int64_t p, std::int64_t q) { return rows[p] < rows[q]; });
}

Weakness weakness(const Communicator& comm, const Assembled& A, const DistributedBackend& solver) {
  const Means m = means(scalingOf(comm, A), solver, false);
  Weakness w{0.0, m.squares};
  for (double& size : w.rows) {
    w.size += size;
    size = std::sqrt(size);
  }
  w.size = std::max(m.trace, std::sqrt(w.size));
  return w;
}

Vector sensitivities(const Communicator& comm, const Assembled& A,
                     const DistributedBackend& solver) {
  const Scaling s = scalingOf(comm, A);
  const Vector ofRows = means(s, solver, false).squares;
  const Vector ofColumns = A.symmetric() ? ofRows : means(s, solver, true).squares;
  Vector sizes(A.n);
  for (size_t j = 0; j < A.n; ++j) {
    sizes[j] = std::sqrt(ofRows[j]) * std::sqrt(ofColumns[j]) * s.rows[j] * s.cols[j];
  }
  return sizes;
}

}  // namespace zeph::distributed
