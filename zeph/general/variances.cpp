#include "zeph/general/variances.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <utility>
#include <vector>

#include "solver/assembly/compressed_columns.h"
#include "solver/partial_inverse_chol.h"
#include "solver/solver.h"
#include "solver/suitesparse/lu_factors.h"
#include "solver/suitesparse/transposed_solve.h"
#include "sparse/inverse/lu_inverse.h"
#include "sparse/inverse/lu_solve.h"
#include "zeph/checks/guarded.h"
#include "zeph/general/condition.h"
#include "zeph/matrix/requirements.h"

namespace zeph {
namespace {

using zeph_solver::Factorisation;
using zeph_solver::Solver;

// The inverse routines report nothing, so a failure is explained by factorising once more.
[[noreturn]] void explain(const PreparedMatrix& m, const Progress& progress) {
  progress.begin("looking for the cause of the failure");
  Solver solver(Solver::kNestedDissection);
  Factorisation f(&solver);
  factorise(m, solver, f);
  throw singularToWorkingPrecision(m);
}

// Each of the following fills the diagonal of the scaled inverse and returns the condition number.

double invertCholesky(const PreparedMatrix& m, ZtVector& diagonal, const Progress& progress) {
  try {
    zeph_solver::partialInverseChol(m.A, diagonal);
  } catch (const ZtException&) {  // CHOLMOD made no factor of a symmetric matrix: no memory
    throw std::bad_alloc();
  }
  ZtVector entries;
  m.A.getDiagonal(entries);
  for (ZtSize i = 0; i < diagonal.size; ++i) {
    // (S⁻¹)(i,i) s(i,i) >= 1 for every definite S.
    if (!(diagonal.data[i] * entries.data[i] > 0.5) || !std::isfinite(diagonal.data[i])) {
      explain(m, progress);
    }
  }
  return conditionFromTrace(m, diagonal);
}

korin::sparse::LuFactors luFactorsOf(const PreparedMatrix& m) {
  const std::size_t entries = m.A.nz();
  std::vector<int> starts(m.size() + 1, 0), rows(entries);
  std::vector<double> values(entries);
  zeph_solver::fillCompressedColumns(m.A, starts.data(), rows.data(), values.data());
  const int n = static_cast<int>(m.size());
  return zeph_solver::luFactors(n, n, starts.data(), rows.data(), values.data());
}

double invertLu(const PreparedMatrix& m, ZtVector& diagonal, const Progress& progress) {
  const korin::sparse::LuFactors factors = luFactorsOf(m);
  if (!factors.invertible) explain(m, progress);
  const auto solve = [&](const double* b, double* x) { luSolve(factors, b, x); };
  const double condition = estimateCondition(
      m, solve, [&](const double* b, double* x) { luSolveTransposed(factors, b, x); });
  judgeCondition(m, condition, Progress());
  korin::sparse::luInverseDiagonal(factors, diagonal.data);
  verifyInverseDiagonal(m, solve, diagonal, condition);
  return condition;
}

double invertBySolves(const PreparedMatrix& m, ZtVector& diagonal, const Progress& progress) {
  Solver solver(Solver::kNestedDissection);
  Factorisation f(&solver);
  factorise(m, solver, f);
  ZtVector b(m.size());
  ZtVector x(m.size());
  const auto solve = [&](const double* from, double* to) {
    std::copy_n(from, m.size(), b.data);
    solver.solveGeneric(m.A, x, b, /*useCholesky=*/false, &f, /*refactorise=*/false);
    std::copy_n(x.data, m.size(), to);
  };
  const double condition = estimateCondition(m, solve, [&](const double* from, double* to) {
    zeph_solver::solveTransposedLU(f, from, to);
  });
  judgeCondition(m, condition, Progress());
  std::vector<double> unit(m.size(), 0.0), column(m.size());
  for (std::size_t i = 0; i < m.size(); ++i) {
    progress.checkpoint();
    unit[i] = 1.0;
    solve(unit.data(), column.data());
    diagonal.data[i] = column[i];
    unit[i] = 0.0;
  }
  verifyInverseDiagonal(m, solve, diagonal, condition);
  return condition;
}

double invert(const PreparedMatrix& m, ZtVector& diagonal, const Progress& progress) {
  switch (m.choice.route) {
    case Route::Cholesky:
      return invertCholesky(m, diagonal, progress);
    case Route::LuSolves:
      return invertBySolves(m, diagonal, progress);
    default:
      return invertLu(m, diagonal, progress);
  }
}

// From the scaled inverse to that of A.
void unscale(const PreparedMatrix& m, ZtVector& diagonal) {
  for (ZtSize i = 0; i < diagonal.size; ++i) {
    diagonal.data[i] = std::ldexp(diagonal.data[i], m.scaling.row[i] + m.scaling.col[i]);
    if (std::isfinite(diagonal.data[i])) continue;
    throw Error(ErrorKind::Unfit, "entry " + position(m.indexBase, i, i) + " of the inverse of " +
                                      m.source + " overflows; scale the equations");
  }
}

void tellNegative(const PreparedMatrix& m, const ZtVector& diagonal, const Progress& progress) {
  const double* begin = diagonal.data;
  const double* end = begin + diagonal.size;
  const double* first = std::find_if(begin, end, [](double v) { return v < 0.0; });
  if (first == end) return;
  const auto count = std::count_if(first, end, [](double v) { return v < 0.0; });
  progress.note(std::to_string(count) + " of the " + std::to_string(diagonal.size) +
                " values are negative, the first at row " +
                std::to_string(static_cast<std::size_t>(first - begin) + m.indexBase) + ": " +
                m.source +
                " is not positive definite, so they are entries of its inverse, not variances");
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
    result.condition = invert(m, result.diagonal, progress);
    judgeCondition(m, result.condition, progress);
    unscale(m, result.diagonal);
    tellNegative(m, result.diagonal, progress);
    progress.checkpoint();
    return result;
  });
}

}  // namespace zeph
