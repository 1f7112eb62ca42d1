#include "front/solve.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <utility>
#include <vector>

#include "front/guarded.h"
#include "solver/solver.h"

namespace zeph {
namespace {

using zeph_solver::Factorisation;
using zeph_solver::FactorisationStatus;
using zeph_solver::Solver;

constexpr int kNestedDissection = 3;

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

void factorise(Solver& solver, const PreparedMatrix& m, Factorisation& f) {
  const bool cholesky = m.choice.route == Route::Cholesky;
  f.cholesky = cholesky;
  solver.factorise(m.A, &f);
  FactorisationStatus status = zeph_solver::factorisationStatus(f);
  // The solver falls back to LU when CHOLMOD cannot analyse the matrix, for want of memory.
  if (cholesky && !f.cholesky) status.exhausted = true;
  if (status.exhausted || !(cholesky ? status.positiveDefinite : status.ok)) {
    throw breakdown(m, status);
  }
}

// Random numbers of magnitude 1/2 to 1: no direction of the space is missed by all of them.
std::vector<double> probe(std::size_t n) {
  std::mt19937_64 random(1);
  std::uniform_real_distribution<double> magnitude(0.5, 1.0);
  std::vector<double> w(n);
  for (double& x : w) x = (random() & 1 ? 1.0 : -1.0) * magnitude(random);
  return w;
}

// Rounding leaves a singular matrix with a tiny pivot instead of a zero one. With row scales r and
// then column scales c that bring the largest entries to 1, the solution of A v = r w for a random
// w of size 1 shows the size of the scaled inverse: max |c v|, at most its row-sum norm and with
// probability close to 1 not far below it.
void requireRegular(Solver& solver, const PreparedMatrix& m, Factorisation& f) {
  const std::size_t n = m.size();
  std::vector<double> rowScale(n, 0.0);
  std::vector<double> colScale(n, 0.0);
  m.forEachEntry([&](std::size_t row, std::size_t, double value) {
    rowScale[row] = std::max(rowScale[row], std::abs(value));
  });
  m.forEachEntry([&](std::size_t row, std::size_t col, double value) {
    if (value != 0.0) colScale[col] = std::max(colScale[col], std::abs(value) / rowScale[row]);
  });
  ZtVector b(n, probe(n).data());
  ZtVector v(n);
  for (std::size_t i = 0; i < n; ++i) b.data[i] *= rowScale[i];
  solver.solveGeneric(m.A, v, b, f.cholesky, &f, false);
  for (std::size_t i = 0; i < n; ++i) {
    if (!(std::abs(v.data[i]) * colScale[i] <= kSingularGrowth)) {
      throw singularToWorkingPrecision(m);
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

void requireFiniteSolution(const PreparedMatrix& m, const ZtMatrix& X) {
  for (ZtSize r = 0; r < X.rows; ++r) {
    const double* row = X.data + r * X.stride;
    if (!std::all_of(row, row + X.cols, [](double x) { return std::isfinite(x); })) {
      throw singularToWorkingPrecision(m);
    }
  }
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
    factorise(solver, m, f);
    progress.begin("solving");
    requireRegular(solver, m, f);
    ZtMatrix_assign(&result.X, B.values.rows, B.values.cols, B.values.cols, nullptr, 0);
    solver.solveGeneric(m.A, result.X, B.values, f.cholesky, &f, false, true);
    requireFiniteSolution(m, result.X);
    progress.checkpoint();
    result.relativeResidual = relativeResidual(m, result.X, B.values);
    return result;
  });
}

}  // namespace zeph
