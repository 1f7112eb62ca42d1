#include "zeph/variances.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "solver/partial_inverse_chol.h"
#include "solver/partial_inverse_lu.h"
#include "solver/selected_inverse.h"
#include "solver/solver.h"
#include "zeph/checks/condition.h"
#include "zeph/checks/guarded.h"

namespace zeph {
namespace {

// The inverse routines report nothing, so a failure is explained by factorising once more.
[[noreturn]] void explain(const PreparedMatrix& m, const Progress& progress) {
  progress.begin("looking for the cause of the failure");
  zeph_solver::Solver solver(kNestedDissection);
  zeph_solver::Factorisation f(&solver);
  factorise(m, solver, f);
  throw singularToWorkingPrecision(m);
}

void invert(const PreparedMatrix& m, ZtVector& diagonal) {
  switch (m.choice.route) {
    case Route::Cholesky:
      zeph_solver::partialInverseChol(m.A, diagonal);
      return;
    case Route::LuSolves:
      zeph_solver::partialInverseLU(m.A, diagonal);
      return;
    default:
      zeph_solver::partialInverseLUSelected(m.A, diagonal);
  }
}

bool isTrustworthy(const PreparedMatrix& m, const ZtVector& diagonal) {
  const bool definite = m.choice.route == Route::Cholesky;
  return std::all_of(diagonal.data, diagonal.data + diagonal.size,
                     [=](double x) { return std::isfinite(x) && (x > 0.0 || !definite); });
}

}  // namespace

Variances variances(SparseMatrix A, Route asked, const Progress& progress) {
  const std::string source = A.source;
  return guarded(source, [&] {
    progress.begin("checking and sorting");
    const PreparedMatrix m = prepare(std::move(A), asked);
    Variances result;
    result.choice = m.choice;
    progress.note(m.choice.sentence());
    progress.begin("factorising and inverting");
    ZtVector_assign(&result.diagonal, m.size(), nullptr);
    ZtVector_setZero(&result.diagonal);
    try {
      invert(m, result.diagonal);
    } catch (const ZtException&) {  // CHOLMOD made no factor
      explain(m, progress);
    }
    if (!isTrustworthy(m, result.diagonal)) explain(m, progress);
    result.condition = conditionFromInverse(m, result.diagonal);
    judgeCondition(m, result.condition, progress);
    progress.checkpoint();
    return result;
  });
}

}  // namespace zeph
