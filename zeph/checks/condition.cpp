#include "zeph/checks/condition.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "zeph/error.h"
#include "zeph/files/number_text.h"

namespace zeph {
namespace {

// Row scales r = max_j |a(i,j)|, then column scales c = max_i |a(i,j)| / r(i): dividing by them
// brings the largest entry of every column to 1 and leaves none above it.
struct Scales {
  std::vector<double> row, col;
};

Scales scales(const PreparedMatrix& m) {
  Scales s{std::vector<double>(m.size(), 0.0), std::vector<double>(m.size(), 0.0)};
  m.forEachEntry([&](std::size_t row, std::size_t, double value) {
    s.row[row] = std::max(s.row[row], std::abs(value));
  });
  m.forEachEntry([&](std::size_t row, std::size_t col, double value) {
    if (value != 0.0) s.col[col] = std::max(s.col[col], std::abs(value) / s.row[row]);
  });
  return s;
}

}  // namespace

double conditionFromInverse(const PreparedMatrix& m, const ZtVector& inverseDiagonal) {
  double sum = 0.0;
  if (m.choice.route == Route::Cholesky) {
    ZtVector diagonal;
    m.A.getDiagonal(diagonal);
    for (ZtSize i = 0; i < diagonal.size; ++i) {
      sum += std::abs(diagonal.data[i] * inverseDiagonal.data[i]);
    }
    return sum;
  }
  const Scales s = scales(m);
  for (std::size_t i = 0; i < m.size(); ++i) {
    sum += std::abs(inverseDiagonal.data[i]) * s.row[i] * s.col[i];
  }
  return sum;
}

double conditionFromSolve(const PreparedMatrix& m, zeph_solver::Solver& solver,
                          zeph_solver::Factorisation& f) {
  const Scales s = scales(m);
  std::mt19937_64 random(1);
  std::uniform_real_distribution<double> magnitude(0.5, 1.0);
  ZtVector b(m.size());
  ZtVector v(m.size());
  for (ZtSize i = 0; i < b.size; ++i) {
    b.data[i] = ((random() & 1) != 0 ? 1.0 : -1.0) * magnitude(random) * s.row[i];
  }
  solver.solveGeneric(m.A, v, b, f.cholesky, &f, false);
  double length = 0.0;
  for (ZtSize i = 0; i < v.size; ++i) length = std::hypot(length, v.data[i] * s.col[i]);
  return length;
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
