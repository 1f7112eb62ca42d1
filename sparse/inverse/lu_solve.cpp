#include "sparse/inverse/lu_solve.h"

#include <vector>

namespace korin::sparse {
namespace {

// w[k] after the lines before it took their share: w -= T(:, k) w[k] for the columns of T.
void scatter(const Columns& t, int k, std::vector<double>& w) {
  const double pivot = w[k];
  if (pivot == 0.0) return;
  for (Offset p = t.start[k]; p < t.start[k + 1]; ++p) {
    w[t.row[p]] -= t.value[p] * pivot;
  }
}

// w[k] -= T(k, :) w for the rows of T.
void gather(const Columns& t, int k, std::vector<double>& w) {
  double sum = w[k];
  for (Offset p = t.start[k]; p < t.start[k + 1]; ++p) {
    sum -= t.value[p] * w[t.row[p]];
  }
  w[k] = sum;
}

}  // namespace

void luSolve(const LuFactors& factors, const double* b, double* x) {
  const int n = factors.n;
  std::vector<double> w(n);
  for (int i = 0; i < n; ++i) w[factors.rowPosition[i]] = factors.rowScale[i] * b[i];
  for (int k = 0; k < n; ++k) scatter(factors.lower, k, w);
  for (int k = n - 1; k >= 0; --k) {
    gather(factors.upper, k, w);
    w[k] /= factors.diagonal[k];
  }
  for (int j = 0; j < n; ++j) x[j] = w[factors.colPosition[j]];
}

void luSolveTransposed(const LuFactors& factors, const double* b, double* x) {
  const int n = factors.n;
  std::vector<double> w(n);
  for (int j = 0; j < n; ++j) w[factors.colPosition[j]] = b[j];
  for (int k = 0; k < n; ++k) {
    w[k] /= factors.diagonal[k];
    scatter(factors.upper, k, w);
  }
  for (int k = n - 1; k >= 0; --k) gather(factors.lower, k, w);
  for (int i = 0; i < n; ++i) x[i] = factors.rowScale[i] * w[factors.rowPosition[i]];
}

}  // namespace korin::sparse
