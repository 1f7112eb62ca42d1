#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>
#include <vector>

#include "front/matrix_file.h"
#include "front/operations.h"
#include "front/solve.h"
#include "front/variances.h"
#include "tests/front/front_test.h"

namespace {

using zeph::DenseMatrix;
using zeph::Route;
using zeph::SparseMatrix;
using zeph::Symmetry;

SparseMatrix matrix(std::size_t n, Symmetry symmetry,
                    std::vector<zeph_solver::MatrixElement> entries) {
  SparseMatrix m;
  m.source = "A.mtx";
  m.rows = m.cols = n;
  m.symmetry = symmetry;
  m.entries = std::move(entries);
  return m;
}

class SystemTest : public FrontTest {
 protected:
  double value() { return 0.25 * (1 + below(8)) * (below(2) ? 1 : -1); }

  // Positive definite, diagonally dominant.
  SparseMatrix definite(std::size_t n, Symmetry symmetry) {
    SparseMatrix m = matrix(n, symmetry, {});
    std::vector<double> diagonal(n, 1.0);
    for (unsigned k = below(3 * n); k > 0; --k) {
      const unsigned row = below(n);
      const unsigned col = below(n);
      if (row <= col) continue;
      const double v = value();
      m.entries.push_back({row, col, v});
      if (symmetry == Symmetry::General) m.entries.push_back({col, row, v});
      diagonal[row] += std::abs(v);
      diagonal[col] += std::abs(v);
    }
    for (unsigned i = 0; i < n; ++i) m.entries.push_back({i, i, diagonal[i]});
    std::shuffle(m.entries.begin(), m.entries.end(), random_);
    return m;
  }

  // Non-singular without structure: a permutation with a strong diagonal, and off-diagonal entries.
  SparseMatrix general(std::size_t n) {
    SparseMatrix m = matrix(n, Symmetry::General, {});
    std::vector<unsigned> place(n);
    for (unsigned i = 0; i < n; ++i) place[i] = i;
    std::shuffle(place.begin(), place.end(), random_);
    for (unsigned i = 0; i < n; ++i) m.entries.push_back({i, place[i], 20.0 + i});
    for (unsigned k = below(3 * n); k > 0; --k) m.entries.push_back({below(n), below(n), value()});
    return m;
  }

  // Against the solutions for the unit vectors, whose product with A is checked by another test.
  static void expectVariances(const SparseMatrix& m, Route asked, Route taken) {
    const zeph::Variances v = zeph::variances(m, asked);
    EXPECT_EQ(v.choice.route, taken) << v.choice.reason;
    SparseMatrix unit = matrix(m.rows, Symmetry::General, {});
    for (unsigned i = 0; i < m.rows; ++i) unit.entries.push_back({i, i, 1.0});
    const ZtMatrix inverse = zeph::solve(m, zeph::toDense(unit), Route::Lu).X;
    ASSERT_EQ(v.diagonal.size, m.rows);
    for (std::size_t i = 0; i < m.rows; ++i) {
      EXPECT_NEAR(v.diagonal.data[i], inverse.data[i * inverse.stride + i], 1e-12);
    }
  }

  static ZtMatrix product(const ZtMatrix& a, const ZtMatrix& b, bool transposeB = false) {
    ZtMatrix c(a.rows, transposeB ? b.rows : b.cols, 0, nullptr);
    for (std::size_t i = 0; i < c.rows; ++i) {
      for (std::size_t j = 0; j < c.cols; ++j) {
        long double sum = 0.0L;
        for (std::size_t k = 0; k < a.cols; ++k) {
          sum +=
              a.data[i * a.stride + k] * b.data[transposeB ? j * b.stride + k : k * b.stride + j];
        }
        c.data[i * c.stride + j] = static_cast<double>(sum);
      }
    }
    return c;
  }

  static void expectNear(const ZtMatrix& a, const ZtMatrix& b, double tolerance) {
    ASSERT_TRUE(a.rows == b.rows && a.cols == b.cols);
    for (std::size_t k = 0; k < a.rows * a.cols; ++k) EXPECT_NEAR(a.data[k], b.data[k], tolerance);
  }

  DenseMatrix columns(std::size_t rows, std::size_t cols) {
    DenseMatrix B;
    B.source = "b.mtx";
    B.values = ZtMatrix(rows, cols, cols, nullptr);
    for (std::size_t k = 0; k < rows * cols; ++k) B.values.data[k] = value();
    return B;
  }
};

TEST_F(SystemTest, variancesOfEveryRouteAreTheInversesDiagonal) {
  for (int round = 0; round < 60; ++round) {
    const std::size_t n = 1 + below(25);
    for (const Symmetry symmetry : {Symmetry::General, Symmetry::Symmetric}) {
      const SparseMatrix m = definite(n, symmetry);
      expectVariances(m, Route::Automatic, Route::Cholesky);
      expectVariances(m, Route::Lu, Route::Lu);
      expectVariances(m, Route::LuSolves, Route::LuSolves);
    }
    const SparseMatrix g = general(n);
    expectVariances(g, Route::Lu, Route::Lu);
  }
  expectVariances(general(9), Route::Automatic, Route::Lu);
  expectVariances(matrix(2, Symmetry::Symmetric, {{1, 0, 2.0}, {0, 0, 1.0}}), Route::Automatic,
                  Route::Lu);
  expectVariances(matrix(2, Symmetry::SkewSymmetric, {{1, 0, 2.0}}), Route::Automatic, Route::Lu);
}

TEST_F(SystemTest, solutionsOfEveryRouteSolve) {
  for (int round = 0; round < 60; ++round) {
    const std::size_t n = 1 + below(25);
    for (const SparseMatrix& m :
         {definite(n, Symmetry::General), definite(n, Symmetry::Symmetric), general(n)}) {
      const DenseMatrix B = columns(n, 1 + below(4));
      for (const Route asked : {Route::Automatic, Route::LuSolves}) {
        const zeph::Solution s = zeph::solve(m, B, asked);
        EXPECT_LT(s.relativeResidual, 1e-14);
        expectNear(product(zeph::toDense(m).values, s.X), B.values, 1e-11);
      }
    }
  }
  // The norms do not square their entries.
  DenseMatrix huge = columns(2, 1);
  huge.values.data[0] = huge.values.data[1] = 1e200;
  EXPECT_LT(zeph::solve(definite(2, Symmetry::Symmetric), huge).relativeResidual, 1e-15);
}

TEST_F(SystemTest, unfitMatricesAreRefusedInOneSentence) {
  const auto G = Symmetry::General;
  const auto S = Symmetry::Symmetric;
  SparseMatrix wide = matrix(2, G, {{0, 0, 1.0}});
  wide.cols = 3;
  const double nan = std::numeric_limits<double>::quiet_NaN();
  SparseMatrix grid = matrix(200, S, {});  // large enough for a supernodal factorisation
  for (unsigned i = 0; i < 200; ++i) {
    for (unsigned j = 0; j < i; ++j) grid.entries.push_back({i, j, 1.0});
    grid.entries.push_back({i, i, 1.0 + 200.0 * (i != 120)});
  }
  grid.entries.push_back({120, 120, -2.0});
  SparseMatrix loop = matrix(500, S, {});  // each row sums to 0, to rounding
  for (unsigned i = 0; i < 500; ++i) {
    const double w = 0.1 * (1 + i % 7);
    const unsigned next = (i + 1) % 500;
    loop.entries.insert(loop.entries.end(),
                        {{std::max(i, next), std::min(i, next), -w}, {i, i, w}, {next, next, w}});
  }
  const struct {
    SparseMatrix m;
    Route asked;
    const char* sentence;
  } cases[] = {
      {matrix(0, G, {}), Route::Automatic, "4 A.mtx is empty (0 x 0)"},
      {wide, Route::Automatic, "4 A.mtx is 2 x 3; only a square matrix can be factorised"},
      {matrix(2, G, {{0, 0, 1.0}, {1, 0, nan}}), Route::Lu,
       "4 the value of entry (2, 1) of A.mtx is nan"},
      {matrix(2, G, {{0, 0, 1.0}, {1, 0, 3.0}, {1, 1, 1.0}}), Route::Cholesky,
       "4 A.mtx is not symmetric: entry (2, 1) is 3 but entry (1, 2) is 0; the Cholesky route"},
      {matrix(2, Symmetry::SkewSymmetric, {{1, 0, 3.0}}), Route::Cholesky,
       "4 A.mtx is skew-symmetric; the Cholesky route needs a symmetric matrix, use LU (--lu)"},
      {matrix(1, S, {{0, 0, -1.0}}), Route::Automatic,
       "5 A.mtx is not positive definite: the Cholesky factorisation broke down at row 1;"},
      {matrix(2, S, {{0, 0, 1.0}, {1, 0, 2.0}, {1, 1, 1.0}}), Route::Automatic,
       "5 A.mtx is not positive definite"},
      {grid, Route::Automatic, "5 A.mtx is not positive definite"},
      {matrix(2, S, {{1, 0, 2.0}}), Route::Cholesky, "5 A.mtx is not positive definite"},
      {matrix(2, G, {{0, 0, 1.0}, {0, 1, 2.0}, {1, 0, 2.0}, {1, 1, 4.0}}), Route::Lu,
       "6 A.mtx is singular"},
      {matrix(3, G, {{0, 0, 1.0}, {1, 1, 1.0}}), Route::Automatic,
       "6 A.mtx is singular: it has fewer entries (2) than its 3 rows need"},
      {matrix(2, G, {{0, 0, 1.0}, {1, 0, 1.0}}), Route::Automatic, "6 A.mtx is singular"},
      {matrix(3, G,
              {{0, 0, 1},
               {0, 1, 2},
               {0, 2, 3},
               {1, 0, 4},
               {1, 1, 5},
               {1, 2, 6},
               {2, 0, 7},
               {2, 1, 8},
               {2, 2, 9}}),
       Route::Automatic, "6 A.mtx is singular to working precision"},
      {loop, Route::Lu, "6 A.mtx is singular to working precision"},
      {loop, Route::LuSolves, "6 A.mtx is singular to working precision"},
  };
  for (const auto& c : cases) {
    const std::string sentence = c.sentence;
    const DenseMatrix B = columns(c.m.rows, 1);
    EXPECT_EQ(errorOf([&] { zeph::variances(c.m, c.asked); }).substr(0, sentence.size()), sentence);
    EXPECT_EQ(errorOf([&] { zeph::solve(c.m, B, c.asked); }).substr(0, sentence.size()), sentence);
    if (c.asked != Route::Cholesky && sentence[0] != '5') continue;
    for (const bool reorder : {false, true}) {
      EXPECT_EQ(errorOf([&] { zeph::factor(c.m, reorder); }).substr(0, sentence.size()), sentence);
    }
  }
  for (const Route route : {Route::Automatic, Route::Cholesky}) {
    const std::string error = errorOf([&] { zeph::variances(loop, route); });
    EXPECT_TRUE(error[0] == '5' || error[0] == '6') << error;
  }
  const SparseMatrix hollow = matrix(2000000000, G, {{0, 0, 1.0}});
  EXPECT_EQ(errorOf([&] { zeph::variances(hollow); }).substr(0, 19), "6 A.mtx is singular");
  const SparseMatrix m = definite(3, S);
  const std::string height = "4 the right-hand side b.mtx is 4 x 1; A.mtx needs 3 rows";
  EXPECT_EQ(errorOf([&] { zeph::solve(m, columns(4, 1)); }).substr(0, height.size()), height);
  DenseMatrix bad = columns(3, 2);
  bad.values.data[3] = nan;
  EXPECT_EQ(errorOf([&] { zeph::solve(m, bad); }),
            "4 entry (2, 2) of the right-hand side b.mtx is not finite");
}

TEST_F(SystemTest, indefiniteMatricesNeverGiveVariancesByCholesky) {
  for (int round = 0; round < 200; ++round) {
    SparseMatrix m = definite(2 + below(30), Symmetry::Symmetric);
    for (auto& e : m.entries) {
      if (e.row == e.col && below(8) == 0) e.value = -e.value;
    }
    bool negative = false;
    for (const auto& e : m.entries) negative = negative || (e.row == e.col && e.value < 0.0);
    if (!negative) continue;
    EXPECT_EQ(errorOf([&] { zeph::variances(m); }).substr(0, 33),
              "5 A.mtx is not positive definite:");
    expectVariances(m, Route::Lu, Route::Lu);
  }
}

TEST_F(SystemTest, factorTimesItsTransposeIsThePermutedMatrix) {
  for (int round = 0; round < 40; ++round) {
    const SparseMatrix m =
        definite(1 + below(20), round % 2 ? Symmetry::General : Symmetry::Symmetric);
    for (const bool reorder : {false, true}) {
      const zeph::CholeskyFactor f = zeph::factor(m, reorder);
      const ZtMatrix whole = zeph::toDense(m).values;
      ZtMatrix a = whole;
      for (std::size_t k = 0; reorder && k < m.rows * m.rows; ++k) {
        a.data[k] = whole.data[f.perm[k / m.rows] * m.rows + f.perm[k % m.rows]];
      }
      const ZtMatrix l = zeph::toDense(f.L).values;
      expectNear(product(l, l, true), a, 1e-12);
    }
  }
  zeph::writePermutation(path("p.txt"), {2, 0, 1});
  EXPECT_EQ(read(path("p.txt")), "2\n0\n1\n");
}

TEST_F(SystemTest, inverseSetProductAndExport) {
  // An arrow that points down fills nothing, whichever triangle the file stores.
  for (const bool upper : {false, true}) {
    std::vector<zeph_solver::MatrixElement> entries;
    for (unsigned i = 0; i < 5; ++i) {
      entries.push_back({i, i, 2.0});
      if (i < 4)
        entries.push_back(upper ? zeph_solver::MatrixElement{i, 4, 1.0}
                                : zeph_solver::MatrixElement{4, i, 1.0});
    }
    EXPECT_EQ(zeph::inverseSet(matrix(5, Symmetry::Symmetric, entries)).entries.size(), 9u);
  }
  const SparseMatrix m = definite(7, Symmetry::Symmetric);
  const DenseMatrix B = columns(7, 3);
  const ZtMatrix C = zeph::multiply(m, B);
  expectNear(C, product(zeph::toDense(m).values, B.values), 1e-13);
  EXPECT_EQ(errorOf([&] { zeph::multiply(m, columns(6, 1)); }).substr(0, 22),
            "4 cannot multiply A.mt");

  zeph::exportMat(path("c.mat"), C, "C_variance");
  const std::string text = read(path("c.mat"));
  ASSERT_EQ(text.size(), 176u + 16u + 8u + 168u);
  std::vector<double> columnMajor(21);
  std::memcpy(columnMajor.data(), text.data() + text.size() - 168, 168);
  EXPECT_EQ(columnMajor[8], C.data[1 * 3 + 1]);
  EXPECT_EQ(text.substr(176, 10), "C_variance");
  for (const char* name : {"", "1a", "a b", "_a"}) {
    EXPECT_EQ(errorOf([&] { zeph::exportMat(path("d.mat"), C, name); }).substr(0, 1), "2") << name;
  }
  EXPECT_EQ(errorOf([&] { zeph::exportMat("/dev/full", C, "C"); }).substr(0, 1), "7");
  EXPECT_EQ(fileCount(), 1u);
}

TEST_F(SystemTest, cancelledWorkStopsAndStagesAreTold) {
  struct Recorder : zeph::Progress {
    void stage(const char* name) const override { stages.push_back(name); }
    void note(const std::string& sentence) const override { notes.push_back(sentence); }
    mutable std::vector<std::string> stages, notes;
  } recorder;
  const SparseMatrix m = definite(5, Symmetry::Symmetric);
  zeph::variances(m, Route::Automatic, recorder);
  EXPECT_EQ(recorder.stages.size(), 2u);
  EXPECT_EQ(
      recorder.notes,
      (std::vector<std::string>{"route: Cholesky (A.mtx is symmetric with a usable diagonal)"}));
  recorder.cancel();
  EXPECT_EQ(errorOf([&] { zeph::variances(m, Route::Automatic, recorder); }).substr(0, 4), "130 ");
}

}  // namespace
