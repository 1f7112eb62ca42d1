#include "zeph/general/condition.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <set>
#include <vector>

#include "zeph/error.h"
#include "zeph/files/number_text.h"

namespace zeph {
namespace {

using Vector = std::vector<double>;

constexpr std::size_t kSpotChecks = 4;
// Rounding errors of a factorisation beyond the unit, as a multiple of it.
constexpr double kGrowth = 1e4;

double largest(const double* v, std::size_t n) {
  double norm = 0.0;
  for (std::size_t i = 0; i < n; ++i) {
    if (std::abs(v[i]) > norm || std::isnan(v[i])) norm = std::abs(v[i]);  // a NaN stays
  }
  return norm;
}

// Largest sum of magnitudes of a column, or of a row.
double matrixNorm(const PreparedMatrix& m, bool byColumns) {
  Vector sums(m.size(), 0.0);
  m.forEachEntry([&](std::size_t row, std::size_t col, double value) {
    sums[byColumns ? col : row] += std::abs(value);
  });
  return largest(sums.data(), sums.size());
}

Error inaccurate(const PreparedMatrix& m, const char* what, double error) {
  std::string text;
  appendDigits(text, error, 1);
  return Error(ErrorKind::Singular, "the factorisation of " + m.source +
                                        " is too inaccurate to be used (" + what + " " + text +
                                        "); the matrix is too close to a singular one");
}

}  // namespace

double estimateCondition(const PreparedMatrix& m, const SolveWith& solve,
                         const SolveWith& solveTransposed) {
  return matrixNorm(m, true) * inverseNorm(m.size(), solve, solveTransposed);
}

double conditionFromTrace(const PreparedMatrix& m, const ZtVector& inverseDiagonal) {
  ZtVector diagonal;
  m.A.getDiagonal(diagonal);
  double sum = 0.0;
  for (ZtSize i = 0; i < diagonal.size; ++i) {
    sum += std::abs(diagonal.data[i] * inverseDiagonal.data[i]);
  }
  return sum;
}

double backwardError(const PreparedMatrix& m, const double* x, const double* b) {
  Vector residual(b, b + m.size());
  m.forEachEntry(
      [&](std::size_t row, std::size_t col, double value) { residual[row] -= value * x[col]; });
  const double scale = matrixNorm(m, false) * largest(x, m.size()) + largest(b, m.size());
  return scale > 0.0 ? largest(residual.data(), m.size()) / scale : 0.0;
}

double componentwiseError(const PreparedMatrix& m, const double* x, const double* b) {
  constexpr double kLeast =
      std::numeric_limits<double>::min() / std::numeric_limits<double>::epsilon();
  Vector residual(b, b + m.size()), size(m.size());
  for (std::size_t i = 0; i < size.size(); ++i) size[i] = std::abs(b[i]);
  m.forEachEntry([&](std::size_t row, std::size_t col, double value) {
    residual[row] -= value * x[col];
    size[row] += std::abs(value * x[col]);
  });
  double worst = 0.0;
  for (std::size_t i = 0; i < size.size(); ++i) {
    if (size[i] > kLeast) worst = std::max(worst, std::abs(residual[i]) / size[i]);
  }
  return worst;
}

void judgeBackwardError(const PreparedMatrix& m, double error) {
  if (!(error <= kLargestBackwardError)) throw inaccurate(m, "backward error", error);
}

void verifyInverseDiagonal(const PreparedMatrix& m, const SolveWith& solve,
                           const ZtVector& inverseDiagonal, double condition) {
  const std::size_t n = m.size();
  const double* d = inverseDiagonal.data;
  const auto bySize = [](double a, double b) { return std::abs(a) < std::abs(b); };
  const auto [least, most] = std::minmax_element(d, d + n, bySize);
  std::set<std::size_t> checked{static_cast<std::size_t>(least - d),
                                static_cast<std::size_t>(most - d)};
  for (std::size_t k = 0; k < kSpotChecks; ++k) checked.insert(k * (n - 1) / (kSpotChecks - 1));
  const double tolerance =
      kGrowth * std::numeric_limits<double>::epsilon() * std::max(condition, 1.0);
  Vector unit(n, 0.0), x(n);
  for (const std::size_t i : checked) {
    unit[i] = 1.0;
    solve(unit.data(), x.data());
    judgeBackwardError(m, backwardError(m, x.data(), unit.data()));
    unit[i] = 0.0;
    const double difference = std::abs(x[i] - d[i]) / largest(x.data(), n);
    if (!(difference <= tolerance)) throw inaccurate(m, "difference of two ways", difference);
  }
}

Error singularToWorkingPrecision(const PreparedMatrix& m) {
  return Error(
      ErrorKind::Singular,
      m.source + " is singular to working precision; no digit of its inverse can be trusted");
}

void judgeCondition(const PreparedMatrix& m, double condition, const Progress& progress) {
  if (!(condition < kSingularCondition)) {
    throw singularToWorkingPrecision(m);
  }
  if (condition < kIllConditioned) return;
  std::string text;
  appendDigits(text, condition, 1);
  progress.note(m.source + " is ill-conditioned (condition number about " + text +
                "); expect few correct digits");
}

}  // namespace zeph
