#include "zeph/adjust.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <utility>

#include "zeph/checks/datum.h"
#include "zeph/checks/guarded.h"
#include "zeph/error.h"
#include "zeph/factor/design.h"
#include "zeph/factor/normal_numbers.h"
#include "zeph/factor/trust.h"
#include "zeph/files/number_text.h"

namespace zeph {
namespace {

using korin::sparse::Columns;
using korin::sparse::Index;
using korin::sparse::Offset;
using std::size_t;

constexpr double kEpsilon = std::numeric_limits<double>::epsilon();
// Rounding of a leverage, in units of ε times the condition number.
constexpr double kLeverageNoise = 8.0;
// Redundancies below this are rounding however well the unknowns are determined.
constexpr double kLeastRedundancy = 1e-13;
// The leverages add up to the number of unknowns; by more than this share they may not miss it.
constexpr double kLeverageTolerance = 1e-3;
constexpr int kInverseIterations = 2;

/// J both ways, the observations and their weights.
struct Problem {
  const SparseMatrix& J;
  const std::vector<double>& y;
  std::vector<double> sigma, weight;
  Columns byCol, byRow;

  std::string observation(size_t i) const {
    return "observation " + std::to_string(i + J.indexBase) + " of " + J.source;
  }
  std::string unknown(size_t j) const {
    return "unknown " + std::to_string(j + J.indexBase) + " of " + J.source;
  }
};

Error unfit(const std::string& sentence, size_t row) {
  return Error(ErrorKind::Unfit, sentence, static_cast<std::int64_t>(row));
}

void requireObservations(const SparseMatrix& J, size_t observations, size_t sigmas) {
  const std::string rows = std::to_string(J.rows);
  if (J.cols == 0) throw Error(ErrorKind::Unfit, J.source + " has no columns: nothing is unknown");
  if (observations != J.rows) {
    throw Error(ErrorKind::Unfit, "there are " + std::to_string(observations) +
                                      " observations for the " + rows + " rows of " + J.source);
  }
  if (sigmas > 1 && sigmas != J.rows) {
    throw Error(ErrorKind::Unfit, "there are " + std::to_string(sigmas) +
                                      " standard deviations for the " + rows + " rows of " +
                                      J.source + "; give one for each, or one for all");
  }
  if (J.rows < J.cols) {
    throw Error(ErrorKind::Unfit, J.source + " has " + rows + " observations of " +
                                      std::to_string(J.cols) +
                                      " unknowns; at least as many observations are needed");
  }
}

Problem checked(const SparseMatrix& J, const std::vector<double>& y,
                const std::vector<double>& sigmas) {
  requireDesign(J);
  requireObservations(J, y.size(), sigmas.size());
  Problem p{J, y, sigmas, {}, {}, {}};
  if (sigmas.size() != J.rows) p.sigma.assign(J.rows, sigmas.empty() ? 1.0 : sigmas[0]);
  p.weight.reserve(J.rows);
  for (size_t i = 0; i < J.rows; ++i) {
    const double sigma = p.sigma[i];
    if (!std::isfinite(y[i])) {
      throw unfit(p.observation(i) + " is " + toText(y[i]) + "; observations are finite", i);
    }
    if (!(sigma > 0.0) || !std::isfinite(sigma)) {
      throw unfit("the standard deviation of " + p.observation(i) + " is " + toText(sigma) +
                      "; it must be positive and finite",
                  i);
    }
    p.weight.push_back(1.0 / (sigma * sigma));
    if (!std::isnormal(p.weight.back())) {
      throw unfit("the standard deviation of " + p.observation(i) + ", " + toText(sigma) +
                      ", has no weight 1/sigma^2 within range; choose another unit",
                  i);
    }
  }
  p.byCol = compressed(J, false);
  p.byRow = compressed(J, true);
  return p;
}

/// J x.
std::vector<double> times(const Problem& p, const std::vector<double>& x) {
  std::vector<double> result(p.J.rows, 0.0);
  for (Index i = 0; i < p.byRow.cols; ++i) {
    for (Offset k = p.byRow.start[i]; k < p.byRow.start[i + 1]; ++k) {
      result[i] += p.byRow.value[k] * x[p.byRow.row[k]];
    }
  }
  return result;
}

/// Jᵀ W v.
std::vector<double> weightedBack(const Problem& p, const std::vector<double>& v) {
  std::vector<double> result(p.J.cols, 0.0);
  for (Index j = 0; j < p.byCol.cols; ++j) {
    for (Offset k = p.byCol.start[j]; k < p.byCol.start[j + 1]; ++k) {
      const Index i = p.byCol.row[k];
      result[j] += p.byCol.value[k] * p.weight[i] * v[i];
    }
  }
  return result;
}

std::string undetermined(const Problem& p) {
  return "the observations of " + p.J.source + " do not determine all unknowns: ";
}

Error datumDefect(const Problem& p, std::int64_t column) {
  return Error(ErrorKind::Singular,
               undetermined(p) + "no point is held fixed, and " +
                   p.unknown(static_cast<size_t>(column)) +
                   " can move without changing any of them; add an observation of a known value, "
                   "such as a benchmark or a fixed coordinate, for every part of the network",
               column);
}

void requireObserved(const Problem& p) {
  for (Index j = 0; j < p.byCol.cols; ++j) {
    const auto first = p.byCol.value.begin() + p.byCol.start[j];
    const auto last = p.byCol.value.begin() + p.byCol.start[j + 1];
    if (std::any_of(first, last, [](double v) { return v != 0.0; })) continue;
    throw Error(ErrorKind::Singular,
                p.unknown(static_cast<size_t>(j)) +
                    " occurs in no observation; add one, or leave the unknown out",
                j);
  }
}

/// Rounding can hide that a matrix is singular from its factorisation. Inverse iteration finds the
/// direction in which the unknowns move most easily, and J itself tells what that does to the
/// observations.
void requireDatum(const Problem& p, const SparseMatrix& N, const Factor& factor) {
  std::vector<double> diagonal(p.J.cols, 0.0), v(p.J.cols);
  for (const Entry& e : N.entries) {
    if (e.row == e.col) diagonal[e.row] += e.value;
  }
  NormalNumbers numbers(1);
  for (size_t j = 0; j < v.size(); ++j) v[j] = numbers.next() / std::sqrt(diagonal[j]);
  for (int k = 0; k < kInverseIterations; ++k) {
    double largest = 0.0;
    for (size_t j = 0; j < v.size(); ++j) {
      largest = std::max(largest, std::sqrt(diagonal[j]) * std::fabs(v[j]));
    }
    for (size_t j = 0; j < v.size(); ++j) v[j] *= diagonal[j] / largest;
    v = factor.solve(v);
  }
  const std::vector<double> moved = times(p, v);
  double seen = 0.0, own = 0.0;
  size_t freest = 0;
  for (size_t i = 0; i < moved.size(); ++i) seen += p.weight[i] * moved[i] * moved[i];
  for (size_t j = 0; j < v.size(); ++j) {
    own += diagonal[j] * v[j] * v[j];
    if (std::fabs(v[j]) > std::fabs(v[freest])) freest = j;
  }
  if (!(seen * kWorthlessCondition > own)) throw datumDefect(p, static_cast<std::int64_t>(freest));
}

std::shared_ptr<const Factor> factorised(const Problem& p, const SparseMatrix& N, Options options) {
  options.route = Route::Cholesky;
  try {
    auto factor = std::make_shared<const Factor>(N, options);
    requireDatum(p, N, *factor);
    return factor;
  } catch (const DatumError& e) {
    throw Error(ErrorKind::Singular, undetermined(p) + explanation(e.defect, p.J.indexBase),
                e.row());
  } catch (const Error& e) {
    const bool defect =
        e.kind() == ErrorKind::NotPositiveDefinite || e.kind() == ErrorKind::Singular;
    if (!defect) throw;
    throw datumDefect(p, std::max<std::int64_t>(0, e.row()));
  }
}

/// x, refined once, which makes up for most of what forming JᵀWJ loses.
std::vector<double> solved(const Problem& p, const Factor& factor) {
  std::vector<double> x = factor.solve(weightedBack(p, p.y)), v = times(p, x);
  for (size_t i = 0; i < v.size(); ++i) v[i] = p.y[i] - v[i];
  const std::vector<double> step = factor.solve(weightedBack(p, v));
  for (size_t j = 0; j < x.size(); ++j) x[j] += step[j];
  return x;
}

/// hᵢ = wᵢ Σ J(i,a) Z(a,b) J(i,b) and σ² = diag Z, where Z is the inverse on N's pattern. Of N only
/// that is needed: what it holds is freed before the inverse takes its memory.
void fillLeverages(const Problem& p, SparseMatrix N, Adjustment& a) {
  std::vector<std::int64_t> rows, cols;
  rows.reserve(N.entries.size());
  cols.reserve(N.entries.size());
  for (const Entry& e : N.entries) {
    rows.push_back(e.row);
    cols.push_back(e.col);
  }
  N = SparseMatrix();
  const std::vector<double> z = a.factor->covariance(rows, cols);
  a.leverage.assign(p.J.rows, 0.0);
  a.sigma.resize(p.J.cols);
  std::vector<double> column(p.J.cols);
  size_t k = 0;
  for (Index j = 0; j < p.byCol.cols; ++j) {
    for (; k < z.size() && cols[k] == j; ++k) {
      column[rows[k]] = z[k];
    }
    a.sigma[j] = std::sqrt(column[j]);
    for (Offset s = p.byCol.start[j]; s < p.byCol.start[j + 1]; ++s) {
      const Index i = p.byCol.row[s];
      const double factor = p.weight[i] * p.byCol.value[s];
      for (Offset t = p.byRow.start[i]; t < p.byRow.start[i + 1]; ++t) {
        const Index b = p.byRow.row[t];
        if (b < j) continue;
        a.leverage[i] += (b == j ? 1.0 : 2.0) * factor * p.byRow.value[t] * column[b];
      }
    }
  }
}

void requireLeverages(const Problem& p, const Adjustment& a) {
  double sum = 0.0;
  for (const double h : a.leverage) sum += h;
  const auto n = static_cast<double>(p.J.cols);
  const bool positive =
      std::all_of(a.sigma.begin(), a.sigma.end(), [](double sigma) { return sigma > 0.0; });
  if (positive && std::fabs(sum - n) <= kLeverageTolerance * n) return;
  throw Error(ErrorKind::Singular,
              "the observations of " + p.J.source +
                  " determine the unknowns too weakly: no digit of their standard deviations can "
                  "be trusted");
}

void fillResiduals(const Problem& p, Adjustment& a) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double noise =
      std::max(kLeastRedundancy, kLeverageNoise * kEpsilon * a.factor->estimateCondition());
  a.residuals = times(p, a.x);
  double squares = 0.0, largest = -1.0;
  for (size_t i = 0; i < p.J.rows; ++i) {
    a.residuals[i] = p.y[i] - a.residuals[i];
    const double v = a.residuals[i] / p.sigma[i], r = 1.0 - a.leverage[i];
    squares += v * v;
    a.redundancy.push_back(r > noise ? r : 0.0);
    a.residualSigma.push_back(p.sigma[i] * std::sqrt(a.redundancy[i]));
    a.normalizedResiduals.push_back(r > noise ? v / std::sqrt(r) : nan);
    if (!(std::fabs(a.normalizedResiduals[i]) > largest)) continue;
    largest = std::fabs(a.normalizedResiduals[i]);
    a.suspect = static_cast<std::int64_t>(i);
  }
  a.degreesOfFreedom = static_cast<std::int64_t>(p.J.rows - p.J.cols);
  a.varianceFactor =
      a.degreesOfFreedom > 0 ? squares / static_cast<double>(a.degreesOfFreedom) : nan;
}

}  // namespace

Adjustment adjust(const SparseMatrix& J, const std::vector<double>& y,
                  const std::vector<double>& sigmas, const Options& options) {
  return guarded(J.source, [&] {
    const Problem p = checked(J, y, sigmas);
    requireObserved(p);
    SparseMatrix N = normalEquations(J, p.weight);
    Adjustment a;
    a.factor = factorised(p, N, options);
    a.x = solved(p, *a.factor);
    fillLeverages(p, std::move(N), a);
    requireLeverages(p, a);
    fillResiduals(p, a);
    return a;
  });
}

}  // namespace zeph
