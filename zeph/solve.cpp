#include "zeph/solve.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "solver/solver.h"
#include "zeph/checks/condition.h"
#include "zeph/checks/guarded.h"

namespace zeph {
namespace {

using zeph_solver::Factorisation;
using zeph_solver::Solver;

void requireHeight(const SparseMatrix& A, const DenseMatrix& B) {
  if (B.values.rows == A.rows && B.values.cols > 0) return;
  throw Error(ErrorKind::Unfit, "the right-hand side " + B.source + " is " +
                                    std::to_string(B.values.rows) + " x " +
                                    std::to_string(B.values.cols) + "; " + A.source + " needs " +
                                    std::to_string(A.rows) + " rows and at least one column");
}

void requireFiniteDense(const DenseMatrix& B) {
  for (ZtSize r = 0; r < B.values.rows; ++r) {
    for (ZtSize c = 0; c < B.values.cols; ++c) {
      if (std::isfinite(B.values.data[r * B.values.stride + c])) continue;
      throw Error(ErrorKind::Unfit, "entry " + position(1, r, c) + " of the right-hand side " +
                                        B.source + " is not finite");
    }
  }
}

// Largest sum of magnitudes in a row.
double rowSumNorm(const ZtMatrix& m) {
  double norm = 0.0;
  for (ZtSize r = 0; r < m.rows; ++r) {
    double sum = 0.0;
    for (ZtSize c = 0; c < m.cols; ++c) sum += std::abs(m.data[r * m.stride + c]);
    norm = std::max(norm, sum);
  }
  return norm;
}

double rowSumNorm(const PreparedMatrix& m) {
  std::vector<double> sums(m.size(), 0.0);
  m.forEachEntry([&](std::size_t row, std::size_t, double value) { sums[row] += std::abs(value); });
  return *std::max_element(sums.begin(), sums.end());
}

double relativeResidual(const PreparedMatrix& m, const ZtMatrix& X, const ZtMatrix& B) {
  ZtMatrix residual = B;
  m.forEachEntry([&](std::size_t row, std::size_t col, double value) {
    double* target = residual.data + row * residual.stride;
    const double* x = X.data + col * X.stride;
    for (ZtSize k = 0; k < X.cols; ++k) target[k] -= value * x[k];
  });
  const double scale = rowSumNorm(m) * rowSumNorm(X) + rowSumNorm(B);
  return scale > 0.0 ? rowSumNorm(residual) / scale : 0.0;
}

bool isFinite(const ZtMatrix& X) {
  return std::all_of(X.data, X.data + X.rows * X.stride, [](double x) { return std::isfinite(x); });
}

}  // namespace

Solution solve(SparseMatrix A, const DenseMatrix& B, Route asked, const Progress& progress) {
  const std::string source = A.source;
  return guarded(source, [&] {
    progress.begin("checking and sorting");
    requireSquare(A);
    requireHeight(A, B);
    requireFiniteDense(B);
    PreparedMatrix m = prepare(std::move(A), asked == Route::LuSolves ? Route::Lu : asked);
    Solution result;
    result.choice = m.choice;
    progress.note(m.choice.sentence());
    progress.begin("factorising");
    Solver solver(kNestedDissection);
    Factorisation f(&solver);
    factorise(m, solver, f);
    progress.begin("solving");
    result.condition = conditionFromSolve(m, solver, f);
    judgeCondition(m, result.condition, progress);
    ZtMatrix_assign(&result.X, B.values.rows, B.values.cols, B.values.cols, nullptr, 0);
    solver.solveGeneric(m.A, result.X, B.values, f.cholesky, &f, false, true);
    if (!isFinite(result.X)) {
      throw Error(ErrorKind::Unfit, "the solution of " + m.source + " and " + B.source +
                                        " overflows; scale the equations");
    }
    progress.checkpoint();
    result.relativeResidual = relativeResidual(m, result.X, B.values);
    return result;
  });
}

}  // namespace zeph
