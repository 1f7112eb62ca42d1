#include "solver/solver.h"

#include <cholmod.h>
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "math/korin_matrix.h"
#include "math/korin_vector.h"
#include "solver/factorisation_status.h"
#include "solver/protosparse.h"

using korin::Matrix;
using zeph_solver::Factorisation;
using zeph_solver::ProtoSparse;
using zeph_solver::Solver;

namespace {

constexpr const char* kSolveFailed =
    "void zeph_solver::Solver::solveGeneric(const zeph_solver::ProtoSparse&, ZtMatrix&, const "
    "ZtMatrix&, bool, zeph_solver::Factorisation*, bool, bool) Failed to do cholmod_solve, cmX = "
    "nullptr";

/// Random diagonally dominant n x n matrix with duplicates; symmetric ones hold both triangles.
ProtoSparse randomMatrix(std::size_t n, bool symmetric, std::mt19937& random) {
  std::uniform_real_distribution<double> value(-1.0, 1.0);
  ProtoSparse A(n, n);
  for (std::size_t k = 0; k < 3 * n; ++k) {
    const std::size_t i = random() % n, j = random() % n;
    const double v = value(random);
    A.addElement(i, j, v);
    if (symmetric) A.addElement(j, i, v);
  }
  for (std::size_t i = 0; i < n; ++i) A.addElement(i, i, 12.0 + static_cast<double>(random() % 8));
  return A;
}

Matrix randomDense(ZtSize rows, ZtSize cols, std::mt19937& random) {
  std::uniform_real_distribution<double> value(-1.0, 1.0);
  Matrix m(rows, cols);
  for (ZtSize r = 0; r < rows; ++r) {
    for (ZtSize c = 0; c < cols; ++c) m(r, c) = value(random);
  }
  return m;
}

/// Largest |A X - B|, by the definition of A as the sum of its elements.
double residual(const ProtoSparse& A, const Matrix& X, const Matrix& B) {
  Matrix rest(B);
  for (std::size_t i = 0; A.isDense() && i < A.rowCount; ++i) {
    for (ZtSize k = 0; k < X.cols; ++k) {
      for (std::size_t j = 0; j < A.colCount; ++j) rest(i, k) -= (*A.denseBlock)(i, j) * X(j, k);
    }
  }
  for (const auto& e : A.elements) {
    for (ZtSize k = 0; k < X.cols; ++k) rest(e.row, k) -= e.value * X(e.col, k);
  }
  double largest = 0.0;
  for (ZtSize r = 0; r < rest.rows; ++r) {
    for (ZtSize c = 0; c < rest.cols; ++c) largest = std::fmax(largest, std::fabs(rest(r, c)));
  }
  return largest;
}

bool allNaN(const Matrix& m) {
  for (ZtSize r = 0; r < m.rows; ++r) {
    for (ZtSize c = 0; c < m.cols; ++c) {
      if (!std::isnan(m(r, c))) return false;
    }
  }
  return true;
}

TEST(SolverRoutes, SolveSeveralRightSidesIntoViewsOnRandomMatrices) {
  std::mt19937 random(3);
  for (int round = 0; round < 60; ++round) {
    const std::size_t n = 2 + random() % 60;
    const ZtSize k = 1 + random() % 4;
    const bool cholesky = round % 2 == 0;
    const ProtoSparse A = randomMatrix(n, cholesky, random);
    Matrix parent = randomDense(n + 2, k + 3, random);
    const Matrix before(parent);
    Matrix X(n, k, parent, 1, 2);
    const Matrix B = randomDense(n, k, random);
    Solver solver(3);
    solver.solveGeneric(A, X, B, cholesky, nullptr, false, true);
    EXPECT_LT(residual(A, Matrix(X), B), 1e-12);
    for (ZtSize r = 0; r < parent.rows; ++r) {
      for (ZtSize c = 0; c < parent.cols; ++c) {
        if (r >= 1 && r <= n && c >= 2 && c < 2 + k) continue;
        ASSERT_EQ(parent(r, c), before(r, c)) << "written outside the view";
      }
    }
  }
}

TEST(SolverRoutes, CholeskyReadsTheUpperTriangleAndLuTheWholeMatrix) {
  std::mt19937 random(4);
  ProtoSparse A = randomMatrix(20, true, random);
  ProtoSparse upper(20, 20);
  for (const auto& e : A.elements) {
    upper.addElement(e.row, e.col, e.row <= e.col ? e.value : 100.0 * e.value);
  }
  const Matrix B = randomDense(20, 2, random);
  Matrix X(20, 2);
  Solver solver(3);
  solver.solveGeneric(upper, X, B, true, nullptr, false, true);
  EXPECT_LT(residual(A, X, B), 1e-12);
  solver.solveGeneric(upper, X, B, false, nullptr, false, true);
  EXPECT_LT(residual(upper, X, B), 1e-12);
}

TEST(SolverRoutes, DenseModeAndOneByOneMatrices) {
  ProtoSparse A(1, 1);
  A.addElement(0, 0, 4.0);
  ProtoSparse D(3, 3);
  for (std::size_t i = 0; i < 3; ++i) D.addElement(i, i, 2.0);
  D.addElement(0, 1, 0.5);
  D.addElement(1, 0, 0.5);
  D.makeDense();
  std::mt19937 random(5);
  for (bool cholesky : {false, true}) {
    for (const ProtoSparse* M : {&A, &D}) {
      const Matrix B = randomDense(M->rowCount, 1, random);
      Matrix X(M->rowCount, 1);
      Solver(3).solveGeneric(*M, X, B, cholesky, nullptr, false, true);
      EXPECT_LT(residual(*M, X, B), 1e-14);
    }
  }
}

TEST(SolverReuse, KeepsReplacesAndOnlyFactorisesAsAsked) {
  std::mt19937 random(6);
  for (bool cholesky : {false, true}) {
    const ProtoSparse A = randomMatrix(30, true, random);
    const ProtoSparse other = randomMatrix(25, true, random);
    Solver solver(3);
    Factorisation f(&solver);
    f.cholesky = cholesky;
    solver.factorise(A, &f);
    EXPECT_EQ(f.cholesky, cholesky);
    EXPECT_EQ(f.cholmodFactor != nullptr, cholesky);
    EXPECT_EQ(f.numeric != nullptr, !cholesky);
    EXPECT_EQ(f.size(), 30);
    EXPECT_EQ(f.nnzL() + f.nnzU(), 0);
    const Matrix B = randomDense(30, 1, random);
    ZtVector x(30), b(30, B.data);
    solver.solveGeneric(A, x, b, cholesky, &f, false);
    const Matrix X(30, 1, 1, x.data, 0);
    EXPECT_LT(residual(A, X, B), 1e-12);
    // Reuse without solving does nothing; refactorising replaces what f held.
    Matrix untouched(B);
    solver.solveGeneric(other, untouched, B, cholesky, &f, false, false);
    EXPECT_EQ(f.size(), 30);
    EXPECT_EQ(untouched(7, 0), B(7, 0));
    const Matrix C = randomDense(25, 3, random);
    Matrix Y(25, 3);
    solver.solveGeneric(other, Y, C, cholesky, &f, true, true);
    EXPECT_LT(residual(other, Y, C), 1e-12);
    f.clear();
    f.clear();
    EXPECT_TRUE(f.values == nullptr && f.numeric == nullptr && f.cholmodFactor == nullptr);
    EXPECT_EQ(f.size(), 25);
  }
  EXPECT_EQ(Factorisation(nullptr).size(), 0);
}

TEST(SolverReuse, TheWrongRouteThrowsOrGivesNaN) {
  std::mt19937 random(7);
  const ProtoSparse A = randomMatrix(10, true, random);
  const Matrix B = randomDense(10, 1, random);
  Solver solver(3);
  Factorisation lu(&solver), cholesky(&solver);
  solver.factorise(A, &lu);
  cholesky.cholesky = true;
  solver.factorise(A, &cholesky);
  Matrix X(B);
  try {
    solver.solveGeneric(A, X, B, true, &lu, false, true);
    FAIL() << "no exception";
  } catch (const ZtException& e) {
    EXPECT_EQ(e.value, 256u);
    EXPECT_STREQ(e.what(), kSolveFailed);
    EXPECT_EQ(X(3, 0), B(3, 0)) << "X must be left unchanged";
  }
  solver.solveGeneric(A, X, B, false, &cholesky, false, true);
  EXPECT_TRUE(allNaN(X));
}

TEST(SolverFallback, AFailedAnalysisGoesToLuSilently) {
  std::mt19937 random(8);
  const ProtoSparse A = randomMatrix(15, true, random);
  const Matrix B = randomDense(15, 2, random);
  testing::internal::CaptureStdout();
  for (int ordering : {0, 10, -1}) {
    Solver solver(ordering);
    EXPECT_EQ(solver.common->get()->nmethods, 1);
    Factorisation f(&solver);
    Matrix X(15, 2);
    solver.solveGeneric(A, X, B, true, &f, true, true);
    EXPECT_FALSE(f.cholesky);
    EXPECT_LT(residual(A, X, B), 1e-12);
  }
  // Rectangular, indefinite and singular matrices, and a wrong reuse: nothing may be printed.
  ProtoSparse wide(2, 3), indefinite(2, 2), singular(3, 3), beyond32Bits(1ul << 32, 1ul << 32);
  beyond32Bits.addElement(2, 2, 1.0);
  wide.addElement(0, 0, 1.0);
  for (std::size_t i = 0; i < 2; ++i) {
    indefinite.addElement(i, i, 1.0);
    indefinite.addElement(i, 1 - i, 2.0);
  }
  singular.addElement(0, 0, 1.0);
  for (bool cholesky : {true, false}) {
    Solver solver(3);
    Matrix wideX(3, 1), X(2, 1);
    const Matrix wideB = randomDense(2, 1, random);
    solver.solveGeneric(wide, wideX, wideB, cholesky, nullptr, false, true);
    EXPECT_TRUE(allNaN(wideX));
    solver.solveGeneric(indefinite, X, wideB, cholesky, nullptr, false, true);
    EXPECT_LT(residual(indefinite, X, wideB), 1e-14) << "small indefinite systems are solved";
    Factorisation f(&solver);
    f.cholesky = cholesky;
    solver.factorise(singular, &f);
    EXPECT_TRUE(factorisationStatus(f).singular);
    f.cholesky = cholesky;
    solver.factorise(beyond32Bits, &f);
    EXPECT_EQ(f.size(), 0) << "counts are cut to 32 bits";
  }
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(SolverOrdering, MovesTheChosenMethodToTheFront) {
  const Solver plain(0);
  for (int ordering = 1; ordering <= 9; ++ordering) {
    const Solver solver(ordering);
    const auto* ours = solver.common->get();
    const auto* defaults = plain.common->get();
    EXPECT_EQ(ours->method[0].ordering, defaults->method[ordering].ordering);
    EXPECT_EQ(ours->method[ordering].ordering, defaults->method[0].ordering);
    EXPECT_EQ(ours->method[0].nd_small, defaults->method[ordering].nd_small);
  }
}

TEST(SolverTimes, AreSixZerosWithTheirLabels) {
  const std::vector<std::string> wanted = {"Total", "Convert", "Factorization",
                                           "B",     "SolveX",  "ExtractX"};
  Solver solver(3);
  solver.solveTimes->data[2] = 5.0;
  Matrix X(1, 1), B(1, 1, &(solver.solveTimes->data[2]));
  ProtoSparse A(1, 1);
  A.addElement(0, 0, 1.0);
  solver.solveGeneric(A, X, B, false, nullptr, false, true);
  for (int call = 0; call < 2; ++call) {
    korin::Vector times(2);
    ZtStringArray labels;
    labels.append("old");
    solver.lastSolveTimes(times, labels);
    ASSERT_EQ(times.size, 6u);
    ASSERT_EQ(labels.size, wanted.size());
    for (ZtSize i = 0; i < 6; ++i) {
      EXPECT_EQ(times[i], 0.0);
      EXPECT_EQ(labels[i].c_str(), wanted[i]);
    }
  }
}

TEST(FactorisationStatusReport, NamesTheFailingColumnOfA) {
  for (std::size_t bad = 0; bad < 12; ++bad) {
    ProtoSparse indefinite(12, 12), singular(12, 12);
    for (std::size_t i = 0; i < 12; ++i) {
      indefinite.addElement(i, i, i == bad ? -3.0 : 2.0);
      if (i != bad) singular.addElement(i, i, 2.0);
    }
    Solver solver(3);
    Factorisation f(&solver);
    f.cholesky = true;
    solver.factorise(indefinite, &f);
    auto status = factorisationStatus(f);
    EXPECT_FALSE(status.positiveDefinite);
    EXPECT_EQ(status.failedColumn, static_cast<int>(bad));
    f.cholesky = false;
    solver.factorise(indefinite, &f);
    status = factorisationStatus(f);
    EXPECT_TRUE(status.ok);
    EXPECT_NEAR(status.reciprocalCondition, 2.0 / 3.0, 0.34);
    solver.factorise(singular, &f);
    status = factorisationStatus(f);
    EXPECT_TRUE(status.singular);
    EXPECT_EQ(status.failedColumn, static_cast<int>(bad));
  }
}

}  // namespace
