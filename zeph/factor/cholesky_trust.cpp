// How far the results of a Cholesky factor can be trusted: the condition number, and the norms of
// the rows of the inverse, from which each result's error is estimated.
#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "sparse/numeric/solve.h"
#include "zeph/factor/cholesky_backend.h"
#include "zeph/factor/inverse_norm.h"

namespace zeph {
namespace {

namespace sparse = korin::sparse;
using std::size_t;

}  // namespace

double CholeskyBackend::estimateCondition(Watch& watch) const {
  const double known = condition_;
  if (known > 0.0) return known;
  requireRoom("estimating the condition number of " + input_.source,
              vectors(6.0) + sparse::solveMemory(symbolic_, 1, 1), bytes());
  watch.begin("estimating the condition number", 0.0);
  korin::kernels::Team team(threads(), watch.poll());
  // S scaled further, to a diagonal of ones, so that the norms do not depend on units.
  const auto n = static_cast<size_t>(symbolic_.n);
  std::vector<double> unit(n), norm(n, 0.0);
  forEachDiagonalEntry([&](Index i, double a) { unit[i] = std::sqrt(a); });
  for (Index c = 0; c < symbolic_.n; ++c) {
    const Index* rows = symbolic_.rowsOf(symbolic_.groupOf[c]);
    const Index j = symbolic_.permutation[c];
    for (Offset p = entries_.start[c]; p < entries_.start[c + 1]; ++p) {
      const Index i = symbolic_.permutation[rows[entries_.position[p]]];
      const double size = std::abs(entries_.value[p]) / (unit[i] * unit[j]);
      norm[i] += size;
      if (i != j) norm[j] += size;
    }
  }
  const auto apply = [&](const double* b, double* x) {
    for (size_t i = 0; i < n; ++i) x[i] = b[i] * unit[i];
    sparse::solve(symbolic_, factor(), 1, x, team);
    for (size_t i = 0; i < n; ++i) x[i] *= unit[i];
  };
  condition_ = *std::max_element(norm.begin(), norm.end()) * inverseNorm(n, apply, apply);
  return condition_;
}

// Before results that come without a check of their own.
void CholeskyBackend::requireTrust(Watch& watch) const {
  if (smallestPivotShare_ > kHarmlessPivotShare) return;
  if (!(estimateCondition(watch) < kWorthlessCondition)) throw singular(input_.source);
}

void CholeskyBackend::keep(std::shared_ptr<const Weakness> weakness) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  weakness_ = std::move(weakness);
}

// L⁻ᵀ v has, for random v, squares whose mean is the diagonal of the inverse. Where all that counts
// is one direction, v may miss it: that its part there is below a tenth happens in one of twelve
// cases. Of such directions the last pivots tell as well, whose shares are the inverses of what the
// diagonal of the inverse has there, and the bounds on errors have room for that much. Threads that
// ask at once may each solve, for the same bits: none waits for what another one's caller does in
// between.
std::shared_ptr<const CholeskyBackend::Weakness> CholeskyBackend::weakness(Watch& watch) const {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (weakness_ != nullptr) return weakness_;
  }
  requireRoom("estimating errors of results of " + input_.source,
              vectors(2.0) + sparse::solveMemory(symbolic_, 1, 1), bytes());
  watch.begin("estimating errors", 0.0);
  korin::kernels::Team team(threads(), watch.poll());
  const auto made = std::make_shared<Weakness>();
  std::vector<double> x(static_cast<size_t>(symbolic_.n));
  for (size_t k = 0; k < x.size(); ++k) x[k] = probeWeight(k);
  sparse::solveTransposed(symbolic_, factor(), 1, x.data(), team);
  made->share.resize(x.size());
  forEachDiagonalEntry([&](Index i, double a) { made->trace += made->share[i] = a * x[i] * x[i]; });
  made->trace = std::max(made->trace, 1.0 / smallestPivotShare_);
  made->weakest = std::max_element(made->share.begin(), made->share.end()) - made->share.begin();
  keep(made);
  return made;
}

// Relative to the standard deviations |z(i,j)| is wrong by ‖z(i,:)‖ ‖z(:,j)‖ / √(z(i,i) z(j,j)) at
// most, and that is at most the norm of the inverse.
Doubt CholeskyBackend::covariance(const std::int64_t* rows, const std::int64_t* cols, size_t count,
                                  double* values, Watch& watch, double there) const {
  if (count == 0) return {};
  covarianceEntries(rows, cols, count, values, watch, there);
  const std::shared_ptr<const Weakness> weak = weakness(watch);
  std::int64_t weakest = rows[0];
  for (size_t k = 0; k < count; ++k) {
    for (const std::int64_t i : {rows[k], cols[k]}) {
      if (weak->share[i] > weak->share[weakest]) weakest = i;
    }
  }
  return {kEntryErrors * weak->trace, weakest};
}

Doubt CholeskyBackend::covarianceBlock(const std::int64_t* indices, size_t count, double* block,
                                       Watch& watch) const {
  blockEntries(indices, count, block, watch);
  const std::shared_ptr<const Weakness> weak = weakness(watch);
  const auto weaker = [&](std::int64_t a, std::int64_t b) {
    return weak->share[a] < weak->share[b];
  };
  return {kEntryErrors * weak->trace, *std::max_element(indices, indices + count, weaker)};
}

void CholeskyBackend::errorUnits(std::vector<double>& rows, std::vector<double>& cols) const {
  rows.resize(static_cast<size_t>(symbolic_.n));
  forEachDiagonalEntry(
      [&](Index i, double a) { rows[i] = std::ldexp(std::sqrt(a), -exponent(i)); });
  cols = rows;
}

Doubt CholeskyBackend::determinantDoubt(Watch& watch) const {
  requireTrust(watch);
  const std::shared_ptr<const Weakness> weak = weakness(watch);
  return {kEntryErrors * weak->trace, weak->weakest};
}

}  // namespace zeph
