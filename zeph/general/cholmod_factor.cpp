#include "zeph/general/cholmod_factor.h"

#include <cmath>
#include <utility>
#include <vector>

#include "solver/partial_inverse_chol.h"
#include "zeph/checks/guarded.h"
#include "zeph/general/condition.h"
#include "zeph/general/protosparse.h"
#include "zeph/general/route.h"

namespace zeph {
namespace {

// Column of L at which the factorisation broke down: the first one without a positive, finite
// diagonal entry; L's columns when there is none.
std::size_t brokenColumn(const SparseMatrix& L) {
  std::size_t next = 0;
  for (const auto& e : L.entries) {
    if (e.row != e.col) continue;
    if (e.col != next || !(e.value > 0.0) || !std::isfinite(e.value)) return next;
    ++next;
  }
  return next;
}

// Of the factor of the scaled matrix: condition and backward error, from its columns.
void verify(const PreparedMatrix& m, const CholeskyFactor& f, const Progress& progress) {
  const std::size_t n = m.size();
  const auto& entries = f.L.entries;
  std::vector<double> w(n);
  const auto place = [&](std::size_t k) { return f.perm.empty() ? k : f.perm[k]; };
  const auto solve = [&](const double* b, double* x) {
    for (std::size_t k = 0; k < n; ++k) w[k] = b[place(k)];
    for (const auto& e : entries) {  // the diagonal entry stands first in its column
      if (e.row == e.col) {
        w[e.col] /= e.value;
      } else {
        w[e.row] -= e.value * w[e.col];
      }
    }
    for (std::size_t p = entries.size(); p-- > 0;) {
      const auto& e = entries[p];
      if (e.row == e.col) {
        w[e.col] /= e.value;
      } else {
        w[e.col] -= e.value * w[e.row];
      }
    }
    for (std::size_t k = 0; k < n; ++k) x[place(k)] = w[k];
  };
  judgeCondition(m, estimateCondition(m, solve, solve), progress);
  std::vector<double> ones(n, 1.0), x(n);
  solve(ones.data(), x.data());
  judgeBackwardError(m, backwardError(m, x.data(), ones.data()));
}

// L of A from that of the scaled matrix: its rows carry the scale.
void unscale(const PreparedMatrix& m, CholeskyFactor& f) {
  for (auto& e : f.L.entries) {
    const std::size_t row = f.perm.empty() ? e.row : f.perm[e.row];
    e.value = std::ldexp(e.value, -m.scaling.row[row]);
  }
}

}  // namespace

CholeskyFactor cholmodFactor(SparseMatrix A, bool reorder, const Progress& progress) {
  const std::string source = A.source;
  return guarded(source, [&] {
    progress.begin("checking and sorting");
    PreparedMatrix m = prepare(std::move(A), Route::Cholesky, /*mayUseLu=*/false);
    progress.begin("factorising");
    zeph_solver::ProtoSparse L;
    CholeskyFactor result;
    if (reorder) result.perm.resize(m.size());
    zeph_solver::FactorisationStatus status;
    try {
      zeph_solver::choleskyFactor(m.A, L, reorder ? result.perm.data() : nullptr);
    } catch (const ZtException&) {
      status.exhausted = true;
      throw breakdown(m, status);
    }
    result.L = takeEntries(L, "the factor of " + m.source);
    const std::size_t broken = brokenColumn(result.L);
    if (broken < m.size()) {
      status.failedColumn = static_cast<int>(reorder ? result.perm[broken] : broken);
      throw breakdown(m, status);
    }
    verify(m, result, progress);
    unscale(m, result);
    return result;
  });
}

}  // namespace zeph
