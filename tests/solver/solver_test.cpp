#include "solver/solver.h"

#include <cholmod.h>

#include "solver/assembly/protosparse.h"
#include "solver/suitesparse/factorisation_status.h"
#include "tests/math/dense/dense_testing.h"

namespace zeph_solver {
namespace {

using namespace dense_testing;

constexpr const char* kSolveFailed =
    "void zeph_solver::Solver::solveGeneric(const zeph_solver::ProtoSparse&, ZtMatrix&, const "
    "ZtMatrix&, bool, zeph_solver::Factorisation*, bool, bool) Failed to do cholmod_solve, cmX = "
    "nullptr";

/// Random diagonally dominant n x n matrix with duplicates; symmetric ones hold both triangles.
ProtoSparse randomSystem(std::size_t n, bool symmetric) {
  static std::mt19937 random(3);
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

/// Whether A X is B, the coefficients being of the order of 10.
bool solves(const ProtoSparse& A, const Matrix& X, const Matrix& B) {
  Matrix a, product(B.rows, B.cols);
  A.toDenseMatrix(a, false);
  product.setMatMulMat(a, X);
  return product.isEqual(B, 1e-12);
}

bool allNaN(const Matrix& m) {
  bool all = true;
  for (ZtSize i = 0; i < m.rows * m.cols; ++i) all = all && std::isnan(*m.flatRow(i));
  return all;
}

TEST(SolverRoutes, SolveSeveralRightSidesIntoViewsInBothModes) {
  for (std::size_t round = 0; round < 90; ++round) {
    const std::size_t n = 1 + round * 2 / 3;
    const bool cholesky = round % 2 == 0;
    ProtoSparse A = randomSystem(n, cholesky);
    if (round % 3 == 0) A.makeDense();
    Block X(n, 1 + round % 40);
    const Matrix B = randomMatrix(n, 1 + round % 40);
    // By LU, of a longer right-hand side the first n rows count.
    Block longer(n + (cholesky ? 0 : round % 3), B.cols);
    longer.view.setSub_mat(B, 0, 0, n, B.cols, 0, 0);
    Solver(3).solveGeneric(A, X.view, longer.view, cholesky, nullptr, false, true);
    EXPECT_TRUE(solves(A, X.view, B) && X.outsideUntouched()) << round;
    Matrix inPlace(B);
    Solver(3).solveGeneric(A, inPlace, inPlace, cholesky, nullptr, false, true);
    EXPECT_TRUE(X.view == inPlace) << round;
  }
}

TEST(SolverReuse, KeepsReplacesAndOnlyFactorisesAsAsked) {
  for (bool cholesky : {false, true}) {
    const ProtoSparse A = randomSystem(30, true), other = randomSystem(25, true);
    Solver solver(3);
    Factorisation f(&solver);
    f.cholesky = cholesky;
    solver.factorise(A, &f);
    EXPECT_EQ(f.cholesky, cholesky);
    EXPECT_EQ(f.cholmodFactor != nullptr, cholesky);
    EXPECT_EQ(f.numeric != nullptr, !cholesky);
    EXPECT_EQ(f.size(), 30);
    EXPECT_EQ(f.nnzL() + f.nnzU(), 0);
    const Matrix B = randomMatrix(30, 1), C = randomMatrix(25, 3);
    ZtVector x(30), b(30, B.data);
    solver.solveGeneric(A, x, b, cholesky, &f, false);
    EXPECT_TRUE(solves(A, Matrix(30, 1, x.data), B));
    // Reuse without solving does nothing; refactorising replaces what f held.
    Matrix X(B), Y(25, 3);
    solver.solveGeneric(other, X, B, cholesky, &f, false, false);
    EXPECT_TRUE(f.size() == 30 && X == B);
    // The wrong route throws, or gives NaN.
    const auto wrong = [&] { solver.solveGeneric(A, X, B, !cholesky, &f, false, true); };
    if (cholesky) {
      wrong();
      EXPECT_TRUE(allNaN(X));
    } else {
      expectThrow(wrong, kSolveFailed);
      EXPECT_EQ(X, B);
    }
    solver.solveGeneric(other, Y, C, cholesky, &f, true, true);
    EXPECT_TRUE(solves(other, Y, C));
    f.clear();
    f.clear();
    EXPECT_TRUE(f.values == nullptr && f.numeric == nullptr && f.cholmodFactor == nullptr);
    EXPECT_EQ(f.size(), 25);
  }
  EXPECT_EQ(Factorisation(nullptr).size(), 0);
}

TEST(SolverReuse, AFactorisationMadeByAnotherSolverOutlivesIt) {
  const ProtoSparse A = randomSystem(30, true);
  const Matrix B = randomMatrix(30, 1);
  Solver keeper(3);
  Factorisation f(&keeper);
  f.cholesky = true;
  Solver(3).factorise(A, &f);
  Matrix X(30, 1);
  keeper.solveGeneric(A, X, B, true, &f, false, true);
  EXPECT_TRUE(solves(A, X, B));
  const std::size_t blocks = keeper.common->get()->malloc_count;
  f.clear();
  EXPECT_NE(keeper.common->get()->malloc_count, blocks) << "freed with the other's workspace";
}

TEST(SolverFallback, AFailedAnalysisGoesToLuSilently) {
  const ProtoSparse A = randomSystem(15, true);
  const Matrix B = randomMatrix(15, 2), b = randomMatrix(2, 1);
  testing::internal::CaptureStdout();
  for (int ordering : {0, 10, -1}) {
    Solver solver(ordering);
    EXPECT_EQ(solver.common->get()->nmethods, 1);
    Factorisation f(&solver);
    Matrix X(15, 2);
    solver.solveGeneric(A, X, B, true, &f, true, true);
    EXPECT_TRUE(solves(A, X, B));
    // Older versions of CHOLMOD give up where no ordering was chosen; newer ones choose one.
    EXPECT_TRUE(CHOLMOD_MAIN_VERSION >= 4 || !f.cholesky);
  }
  // Rectangular, indefinite and singular matrices: nothing may be printed.
  const double numbers[] = {1, 2, 2, 1};
  const ProtoSparse indefinite(Matrix(2, 2, numbers), false);
  ProtoSparse wide(2, 3), singular(3, 3), beyond32Bits(1ul << 32, 1ul << 32);
  beyond32Bits.addElement(2, 2, 1.0);
  wide.addElement(0, 0, 1.0);
  singular.addElement(0, 0, 1.0);
  for (bool cholesky : {true, false}) {
    Solver solver(3);
    Matrix wideX(3, 1), X(2, 1);
    solver.solveGeneric(wide, wideX, b, cholesky, nullptr, false, true);
    EXPECT_TRUE(allNaN(wideX));
    solver.solveGeneric(indefinite, X, b, cholesky, nullptr, false, true);
    EXPECT_TRUE(solves(indefinite, X, b)) << "small indefinite systems are solved";
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
    const auto statusOf = [&](const ProtoSparse& A, bool cholesky) {
      f.cholesky = cholesky;
      solver.factorise(A, &f);
      return factorisationStatus(f);
    };
    EXPECT_FALSE(statusOf(indefinite, true).positiveDefinite);
    EXPECT_EQ(factorisationStatus(f).failedColumn, static_cast<int>(bad));
    EXPECT_TRUE(statusOf(indefinite, false).ok);
    EXPECT_NEAR(factorisationStatus(f).reciprocalCondition, 2.0 / 3.0, 0.34);
    EXPECT_TRUE(statusOf(singular, false).singular);
    EXPECT_EQ(factorisationStatus(f).failedColumn, static_cast<int>(bad));
  }
}

}  // namespace
}  // namespace zeph_solver
