#include "zeph/general/solve.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <utility>
#include <vector>

#include "solver/solver.h"
#include "solver/suitesparse/transposed_solve.h"
#include "zeph/checks/guarded.h"
#include "zeph/checks/memory.h"
#include "zeph/general/condition.h"
#include "zeph/matrix/requirements.h"

namespace zeph {
namespace {

using zeph_solver::Factorisation;
using zeph_solver::Solver;

constexpr ZtSize kColumnsAtOnce = 16;

void requireHeight(const SparseMatrix& A, const DenseMatrix& B) {
  if (B.rows == A.rows && B.cols > 0) return;
  throw Error(ErrorKind::Unfit, "the right-hand side " + B.source + " is " +
                                    std::to_string(B.rows) + " x " + std::to_string(B.cols) + "; " +
                                    A.source + " needs " + std::to_string(A.rows) +
                                    " rows and at least one column");
}

void requireFiniteDense(const DenseMatrix& B) {
  for (std::size_t r = 0; r < B.rows; ++r) {
    for (std::size_t c = 0; c < B.cols; ++c) {
      if (std::isfinite(B(r, c))) continue;
      throw Error(ErrorKind::Unfit, "entry " + position(1, r, c) + " of the right-hand side " +
                                        B.source + " is not finite");
    }
  }
}

// Solves S y = R B for a few columns of B at a time, so that no third matrix of B's size is held.
class ScaledSolution {
 public:
  ScaledSolution(const PreparedMatrix& m, Solver& solver, Factorisation& f)
      : m_(m), solver_(solver), f_(f) {}

  /// Columns [first, first + count) of X = A⁻¹ B; the largest backward error of a column.
  double solve(const DenseMatrix& B, ZtSize first, ZtSize count, DenseMatrix& X) {
    const std::size_t n = m_.size();
    ZtMatrix b(n, count, count, nullptr);
    ZtMatrix y(n, count, count, nullptr);
    std::vector<int> exponent(count);
    for (ZtSize k = 0; k < count; ++k) exponent[k] = scaleColumn(B, first + k, b, k);
    solver_.solveGeneric(m_.A, y, b, f_.cholesky, &f_, false, true);
    double error = 0.0;
    std::vector<double> column(n), right(n);
    for (ZtSize k = 0; k < count; ++k) {
      for (std::size_t i = 0; i < n; ++i) {
        column[i] = y.data[i * y.stride + k];
        right[i] = b.data[i * b.stride + k];
        X(i, first + k) = std::ldexp(column[i], m_.scaling.col[i] + exponent[k]);
      }
      const double here = backwardError(m_, column.data(), right.data());
      if (!(here <= error)) error = here;
    }
    return error;
  }

 private:
  // Column `from` of B, its rows scaled as S's and brought below 1 by a power of two, which is
  // returned: products of the two scales alone could overflow.
  int scaleColumn(const DenseMatrix& B, ZtSize from, ZtMatrix& b, ZtSize to) const {
    int largest = INT_MIN;
    for (ZtSize i = 0; i < B.rows; ++i) {
      const double value = B(i, from);
      if (value != 0.0) largest = std::max(largest, std::ilogb(value) + m_.scaling.row[i]);
    }
    const int exponent = largest == INT_MIN ? 0 : largest + 1;
    for (ZtSize i = 0; i < B.rows; ++i) {
      b.data[i * b.stride + to] = std::ldexp(B(i, from), m_.scaling.row[i] - exponent);
    }
    return exponent;
  }

  const PreparedMatrix& m_;
  Solver& solver_;
  Factorisation& f_;
};

double conditionOf(const PreparedMatrix& m, Solver& solver, Factorisation& f) {
  ZtVector b(m.size());
  ZtVector x(m.size());
  const auto solve = [&](const double* from, double* to) {
    std::copy_n(from, m.size(), b.data);
    solver.solveGeneric(m.A, x, b, f.cholesky, &f, false);
    std::copy_n(x.data, m.size(), to);
  };
  if (f.cholesky) return estimateCondition(m, solve, solve);
  return estimateCondition(m, solve, [&](const double* from, double* to) {
    zeph_solver::solveTransposedLU(f, from, to);
  });
}

bool isFinite(const DenseMatrix& X) {
  return std::all_of(X.values.begin(), X.values.end(), [](double x) { return std::isfinite(x); });
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
    Solver solver(Solver::kNestedDissection);
    Factorisation f(&solver);
    factorise(m, solver, f);
    progress.begin("solving");
    result.condition = conditionOf(m, solver, f);
    judgeCondition(m, result.condition, progress);
    const std::size_t cols = B.cols, together = std::min<std::size_t>(kColumnsAtOnce, cols);
    requireBytes(
        "solving with " + m.source,
        static_cast<double>(cols + 2 * together) * static_cast<double>(B.rows) * sizeof(double),
        0.0);
    result.X = DenseMatrix::zeros(B.rows, cols);
    ScaledSolution scaled(m, solver, f);
    for (ZtSize first = 0; first < cols; first += kColumnsAtOnce) {
      progress.checkpoint();
      const double error = scaled.solve(B, first, std::min(kColumnsAtOnce, cols - first), result.X);
      judgeBackwardError(m, error);
      result.relativeResidual = std::max(result.relativeResidual, error);
    }
    if (!isFinite(result.X)) {
      throw Error(ErrorKind::Unfit, "the solution of " + m.source + " and " + B.source +
                                        " overflows; scale the equations");
    }
    progress.checkpoint();
    return result;
  });
}

}  // namespace zeph
