#include "solver/suitesparse/factorisation_status.h"

#include <cholmod.h>
#include <umfpack.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace zeph_solver {

namespace {

/// Position in permuted order of the first pivot that is not positive, or n.
std::size_t firstBadPivot(const cholmod_factor& L) {
  if (L.is_super || L.is_ll) return std::min(L.minor, L.n);
  // An LDL' factor exists for indefinite matrices too: D stands first in every column.
  const int* starts = static_cast<const int*>(L.p);
  const double* values = static_cast<const double*>(L.x);
  for (std::size_t j = 0; j < std::min(L.minor, L.n); ++j) {
    if (!(values[starts[j]] > 0.0)) return j;
  }
  return std::min(L.minor, L.n);
}

FactorisationStatus choleskyStatus(const Factorisation& f) {
  FactorisationStatus status;
  // Warnings, such as "not positive definite", are positive.
  status.exhausted = f.solver->common->get()->status < CHOLMOD_OK;
  if (f.cholmodFactor == nullptr || status.exhausted) return status;
  const cholmod_factor& L = *f.cholmodFactor.get();
  // A factor without numbers: the workspace tells nothing where another Solver's was used.
  status.exhausted = L.xtype == CHOLMOD_PATTERN;
  if (status.exhausted) return status;
  const std::size_t bad = firstBadPivot(L);
  status.positiveDefinite = bad == L.n;
  status.singular = L.minor < L.n;
  status.ok = !status.singular;
  if (bad < L.n) status.failedColumn = static_cast<const int*>(L.Perm)[bad];
  if (status.ok)
    status.reciprocalCondition = cholmod_rcond(f.cholmodFactor, f.solver->common->get());
  return status;
}

FactorisationStatus luStatus(const Factorisation& f) {
  FactorisationStatus status;
  status.exhausted = f.numeric == nullptr && f.rows == f.cols && f.rows > 0;
  if (f.numeric == nullptr || f.rows != f.cols) return status;
  const std::size_t n = static_cast<std::size_t>(f.cols);
  std::vector<double> pivots(n);
  std::vector<int> columnOrder(n);
  int doReciprocal = 0;
  umfpack_di_get_numeric(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                         columnOrder.data(), pivots.data(), &doReciprocal, nullptr, f.numeric);
  double smallest = INFINITY;
  double largest = 0.0;
  for (std::size_t k = 0; k < n; ++k) {
    const double size = std::abs(pivots[k]);
    if (!(size > 0.0) && status.failedColumn < 0) status.failedColumn = columnOrder[k];
    smallest = std::min(smallest, size);
    largest = std::max(largest, size);
  }
  status.singular = status.failedColumn >= 0;
  status.ok = !status.singular;
  if (status.ok) status.reciprocalCondition = n == 0 ? 1.0 : smallest / largest;
  return status;
}

}  // namespace

FactorisationStatus factorisationStatus(const Factorisation& f) {
  return f.cholesky ? choleskyStatus(f) : luStatus(f);
}

}  // namespace zeph_solver
