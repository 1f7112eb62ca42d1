#include "math/korin.h"
#include "tests/zeph/front_test.h"
#include "tests/zeph/matrices.h"
#include "zeph/checks/matrix_check.h"
#include "zeph/checks/one_triangle.h"
#include "zeph/factor/lower_factor.h"
#include "zeph/files/mat_export.h"
#include "zeph/files/matrix_file.h"
#include "zeph/general/cholmod_factor.h"
#include "zeph/general/inverse_set.h"
#include "zeph/general/solve.h"
#include "zeph/general/variances.h"
#include "zeph/matrix/multiply.h"
#include "zeph/matrix/record.h"
#include "zeph/matrix/to_dense.h"

namespace zeph {
namespace {

SparseMatrix matrix(std::size_t n, Symmetry symmetry, std::vector<Entry> entries) {
  SparseMatrix m = squareMatrix(n, symmetry, std::move(entries));
  m.source = "A.mtx";
  m.indexBase = 1;
  m.triangular = true;
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

  static korin::Matrix record(const DenseMatrix& m) { return korin::Matrix(toRecord(m)); }
  static korin::Matrix dense(const SparseMatrix& m) { return record(toDense(m)); }

  static korin::Matrix product(const korin::Matrix& a, const DenseMatrix& b) {
    korin::Matrix c(a.rows, b.cols);
    c.setMatMulMat(a, record(b));
    return c;
  }

  // Solves for the unit vectors on a route; the variances of that route are on the diagonal.
  static void expectInverse(const SparseMatrix& m, Route asked, Route taken) {
    const Variances v = variances(m, asked);
    EXPECT_EQ(v.choice.route, taken) << v.choice.reason;
    korin::Matrix identity(m.rows, m.rows);
    identity.setIdentity();
    const Solution s = solve(m, fromRecord(identity), asked);
    EXPECT_LT(s.relativeResidual, 1e-14);
    EXPECT_TRUE(product(dense(m), s.X).isEqual(identity, 1e-11));
    korin::Vector diagonal(m.rows);
    diagonal.setDiag(record(s.X));
    EXPECT_TRUE(diagonal.isEqual(v.diagonal, 1e-12));
  }

  // A strict reader of MAT-files with one variable: every element starts where the tag of the one
  // before it, filled up to 8 bytes, says.
  static korin::Matrix readMat(const std::string& text, const std::string& name) {
    std::size_t at = 128;
    const auto word = [&](std::size_t k) {
      std::int32_t value;
      std::memcpy(&value, text.data() + k, 4);
      return static_cast<std::size_t>(value);
    };
    const auto element = [&](std::size_t type) {  // returns where its data start
      EXPECT_EQ(word(at), type);
      const std::size_t data = at + 8;
      at = data + (word(at + 4) + 7) / 8 * 8;
      EXPECT_LE(at, text.size());
      return data;
    };
    EXPECT_EQ(text.substr(124, 4), std::string("\0\1IM", 4));
    EXPECT_EQ(word(at + 4), text.size() - 136);
    EXPECT_EQ(word(at), 14u);
    at += 8;
    const bool sparse = word(element(6)) == 5;
    const std::size_t shape = element(5), label = element(1);
    EXPECT_EQ(text.substr(label, word(label - 4)), name);
    korin::Matrix m(word(shape), word(shape + 4));
    ZtMatrix_setZero(&m);
    const std::size_t rows = sparse ? element(5) : 0, starts = sparse ? element(5) : 0;
    const std::size_t values = element(9);
    const auto value = [&](std::size_t k) {
      double v;
      std::memcpy(&v, text.data() + values + 8 * k, 8);
      return v;
    };
    for (std::size_t c = 0; c < m.cols; ++c) {
      for (std::size_t k = 0; k < m.rows && !sparse; ++k) m(k, c) = value(c * m.rows + k);
      for (std::size_t k = sparse ? word(starts + 4 * c) : 0;
           sparse && k < word(starts + 4 * c + 4); ++k) {
        m(word(rows + 4 * k), c) = value(k);
      }
    }
    EXPECT_EQ(at, text.size());
    return m;
  }

  // By either engine.
  CholeskyFactor factor(const SparseMatrix& m, bool reorder) {
    if (below(2) == 0) return cholmodFactor(m, reorder);
    Options options;
    if (!reorder) options.ordering = Ordering::Natural;
    return lowerFactor(m, options);
  }

  DenseMatrix columns(std::size_t rows, std::size_t cols) {
    auto B = DenseMatrix::zeros(rows, cols);
    B.source = "b.mtx";
    for (double& entry : B.values) entry = value();
    return B;
  }
};

TEST_F(SystemTest, everyRouteSolvesAndItsVariancesAreTheDiagonal) {
  for (int round = 0; round < 60; ++round) {
    const std::size_t n = 1 + below(25);
    for (const Symmetry symmetry : {Symmetry::General, Symmetry::Symmetric}) {
      const SparseMatrix m = definite(n, symmetry);
      expectInverse(m, Route::Automatic, Route::Cholesky);
      expectInverse(m, Route::Lu, Route::Lu);
      expectInverse(m, Route::LuSolves, Route::LuSolves);
    }
    expectInverse(general(n), Route::Lu, Route::Lu);
    SparseMatrix indefinite = definite(n, Symmetry::Symmetric);
    const unsigned spoilt = below(n);
    for (auto& e : indefinite.entries) e.value *= e.row == spoilt && e.col == spoilt ? -1.0 : 1.0;
    expectError([&] { variances(indefinite); }, "5 A.mtx is not positive definite:");
    expectInverse(indefinite, Route::Lu, Route::Lu);
  }
  int exact = 0;  // estimates of a condition; of most small matrices they are the condition itself
  for (int round = 0; round < 20; ++round) {  // no scaling changes it
    SparseMatrix m = matrix(5, Symmetry::General, {});
    for (unsigned k = 0; k < 25; ++k) {
      m.entries.push_back({k / 5, k % 5, (below(2) ? 1 : -1) * (1.0 + 0.01 * below(15))});
    }
    korin::Matrix identity(5, 5);
    identity.setIdentity();
    const Solution s = solve(m, fromRecord(identity), Route::Lu);
    double norm[2] = {0.0, 0.0};
    for (const std::size_t c : {0, 1, 2, 3, 4}) {
      double sum[2] = {0.0, 0.0};
      for (const std::size_t r : {0, 1, 2, 3, 4}) {
        sum[0] += std::abs(m.entries[5 * r + c].value), sum[1] += std::abs(s.X(r, c));
      }
      for (const int k : {0, 1}) norm[k] = std::max(norm[k], sum[k]);
    }
    const double share = s.condition / (norm[0] * norm[1]);
    EXPECT_TRUE(share > 0.3 && share < 1.0 + 1e-10) << share;
    exact += share > 1.0 - 1e-10;
  }
  EXPECT_GT(exact, 12);
  expectInverse(general(9), Route::Automatic, Route::Lu);
  expectInverse(matrix(2, Symmetry::Symmetric, {{1, 0, 2.0}, {0, 0, 1.0}}), Route::Automatic,
                Route::Lu);
  expectInverse(matrix(2, Symmetry::SkewSymmetric, {{1, 0, 2.0}}), Route::Automatic, Route::Lu);
}

TEST_F(SystemTest, unitsDecideNothing) {
  for (int round = 0; round < 60; ++round) {
    const std::size_t n = 1 + below(12);
    const bool symmetric = round % 2;
    const SparseMatrix m = symmetric ? definite(n, Symmetry::Symmetric) : general(n);
    std::vector<int> row(n), col(n);
    for (int& exponent : row) exponent = static_cast<int>(below(600)) - 300;
    for (int& exponent : col) exponent = static_cast<int>(below(600)) - 300;
    if (symmetric) col = row;
    SparseMatrix scaled = m;
    for (auto& e : scaled.entries) e.value = std::ldexp(e.value, row[e.row] + col[e.col]);
    DenseMatrix B = columns(n, 20), scaledB = B;
    for (std::size_t k = 0; k < n * 20; ++k) {
      scaledB.values[k] = std::ldexp(scaledB.values[k], row[k % n]);
    }
    const Route route = symmetric ? Route::Automatic : round % 4 ? Route::Lu : Route::LuSolves;
    korin::Vector v = variances(scaled, route).diagonal;
    korin::Matrix X = record(solve(scaled, scaledB, route).X);
    for (std::size_t i = 0; i < n; ++i) v[i] = std::ldexp(v[i], row[i] + col[i]);
    for (std::size_t k = 0; k < n * 20; ++k) X.data[k] = std::ldexp(X.data[k], col[k / 20]);
    EXPECT_TRUE(v.isEqual(variances(m, route).diagonal, 1e-12));
    EXPECT_TRUE(X.isEqual(record(solve(m, B, route).X), 1e-12));
    if (!symmetric) continue;
    korin::Matrix l = dense(factor(scaled, false).L);
    for (std::size_t k = 0; k < n * n; ++k) l.data[k] = std::ldexp(l.data[k], -row[k / n]);
    EXPECT_TRUE(l.isEqual(dense(factor(m, false).L), 1e-14));
  }
  const auto S = Symmetry::Symmetric;
  const struct {
    SparseMatrix m;
    Route taken;
    double first;  // variance
  } cases[] = {
      {matrix(1, S, {{0, 0, 2e-16}}), Route::Cholesky, 5e15},
      {matrix(2, S, {{0, 0, 4e-154}, {1, 0, 1.5e-154}, {1, 0, 1.5e-154}, {1, 1, 4e-154}}),
       Route::Cholesky, 4e154 / 7.0},
      {matrix(2, S, {{0, 0, 1e-20}, {1, 0, 1e-11}, {1, 1, 1.0}}), Route::Cholesky, 1e20 / 0.99},
      {matrix(2, S, {{0, 0, 1e-20}, {1, 0, 1.0}, {1, 1, 1.0}}), Route::Lu, -1.0},
  };
  for (const auto& c : cases) {
    const Variances v = variances(c.m);
    EXPECT_EQ(v.choice.route, c.taken) << v.choice.reason;
    EXPECT_NEAR(v.diagonal.data[0] / c.first, 1.0, 1e-14);
  }
  writeSparse(path("tiny.csv"), cases[1].m);
  EXPECT_NE(read(path("tiny.csv")).find("\n1,0,3.0000000000000"), std::string::npos);
}

TEST_F(SystemTest, singularMatricesNeverPass) {
  for (int round = 0; round < 200; ++round) {
    SparseMatrix m = general(3 + below(9));  // the last row becomes a combination of two others
    const auto last = static_cast<unsigned>(m.rows - 1);
    std::erase_if(m.entries, [last](const Entry& e) { return e.row == last; });
    for (std::size_t k = m.entries.size(); k-- > 0;) {
      const Entry e = m.entries[k];
      if (e.row < 2) m.entries.push_back({last, e.col, (e.row == 0 ? 0.1 : -0.3) * e.value});
    }
    for (Entry& e : m.entries) e.value = std::ldexp(e.value, static_cast<int>(e.row));
    for (const Route route : {Route::Automatic, Route::Lu, Route::LuSolves}) {
      EXPECT_EQ(errorOf([&] { variances(m, route); })[0], '6') << round;
      EXPECT_EQ(errorOf([&] { solve(m, columns(m.rows, 1), route); })[0], '6') << round;
    }
  }
}

TEST_F(SystemTest, oneTriangleNeedsAWord) {
  SparseMatrix m = matrix(3, Symmetry::General, {{0, 0, 4.0}, {1, 1, 4.0}, {2, 2, 4.0}});
  m.triangular = false;
  EXPECT_EQ(variances(m).choice.route, Route::Cholesky);
  m.entries.push_back({0, 2, 1.0});
  m.entries.push_back({2, 0, 0.0});
  for (const bool more : {false, true}) {
    const std::string seen =
        more
            ? "4 all 2 entries beside the diagonal of A.mtx lie in the upper triangle, as (1, 3)"
            : "4 the only entry beside the diagonal of A.mtx lies in the upper triangle, as (1, 3)";
    expectError([&] { variances(m, Route::Lu); }, seen);
    expectError([&] { solve(m, columns(3, 1)); }, seen);
    expectError([&] { factor(m, false); }, seen);
    expectError([&] { inverseSet(m); }, seen);
    EXPECT_FALSE(checkMatrix(m).fit());
    m.entries.push_back({1, 2, 1.0});
  }
  SparseMatrix whole = m;
  whole.entries[4].value = 1.0;
  expectError([&] { declareSymmetric(whole); },
              "4 A.mtx has entries in both triangles, as (3, 1) and (1, 3); --symmetric is for");
  m.triangular = true;
  EXPECT_EQ(variances(m).diagonal.data[2], 0.25);
  declareSymmetric(m);
  EXPECT_NEAR(variances(m).diagonal.data[2], 1.0 / 2.75, 1e-15);
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
  SparseMatrix hub = matrix(9, S, {{0, 0, -1.0}});  // eliminated last unless asked otherwise
  for (unsigned i = 1; i < 9; ++i)
    hub.entries.insert(hub.entries.end(), {{i, 0, 1.0}, {i, i, 9.0}});
  SparseMatrix countingUp = matrix(3, G, {});  // 1 to 9: the rows are equally far apart
  for (unsigned k = 0; k < 9; ++k) countingUp.entries.push_back({k / 3, k % 3, k + 1.0});
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
      {hub, Route::Automatic,
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
      {countingUp, Route::Automatic, "6 A.mtx is singular to working precision"},
      {matrix(3, Symmetry::SkewSymmetric, {{1, 0, 3.0}, {2, 0, 1.0}, {2, 1, 7.0}}), Route::Lu,
       "6 A.mtx is singular: a skew-symmetric matrix of odd order (3) has no inverse"},
      {matrix(2, G, {{0, 0, 1e308}, {0, 0, 1e308}, {1, 1, 1.0}}), Route::Automatic,
       "4 the entries at (1, 1) of A.mtx add up to inf"},
      {loop, Route::Lu, "6 A.mtx is singular to working precision"},
      {loop, Route::LuSolves, "6 A.mtx is singular to working precision"},
  };
  for (const auto& c : cases) {
    const DenseMatrix B = columns(c.m.rows, 1);
    expectError([&] { variances(c.m, c.asked); }, c.sentence);
    expectError([&] { solve(c.m, B, c.asked); }, c.sentence);
    if (c.asked != Route::Cholesky && c.sentence[0] != '5') continue;
    for (const bool reorder : {false, true}) {
      const std::string error = errorOf([&] { factor(c.m, reorder); });
      EXPECT_EQ(error.substr(0, 25), std::string(c.sentence).substr(0, 25));
      EXPECT_EQ(error.find("--lu"), error.npos) << error;
    }
  }
  for (const Route route : {Route::Automatic, Route::Cholesky}) {
    const std::string error = errorOf([&] { variances(loop, route); });
    EXPECT_TRUE(error[0] == '5' || error[0] == '6') << error;
  }
  const SparseMatrix hollow = matrix(2000000000, G, {{0, 0, 1.0}});
  expectError([&] { variances(hollow); }, "6 A.mtx is singular");
  const SparseMatrix m = definite(3, S);
  expectError([&] { solve(m, columns(4, 1)); },
              "4 the right-hand side b.mtx is 4 x 1; A.mtx needs 3 rows");
  DenseMatrix huge = columns(3, 1);  // norms do not square their entries
  huge.values = {1e200, 1e200, 1e200};
  EXPECT_LT(solve(m, huge).relativeResidual, 1e-15);
  DenseMatrix bad = columns(3, 2);
  bad(1, 1) = nan;
  expectError([&] { solve(m, bad); }, "4 entry (2, 2) of the right-hand side b.mtx is not finite");
}

TEST_F(SystemTest, factorTimesItsTransposeIsThePermutedMatrix) {
  for (int round = 0; round < 40; ++round) {
    const SparseMatrix m =
        definite(1 + below(20), round % 2 ? Symmetry::General : Symmetry::Symmetric);
    for (const bool reorder : {false, true}) {
      const CholeskyFactor f = factor(m, reorder);
      const korin::Matrix whole = dense(m), l = dense(f.L);
      korin::Matrix a = whole, square(m.rows, m.rows);
      for (std::size_t k = 0; reorder && k < m.rows * m.rows; ++k) {
        *a.flatRow(k) = whole(f.perm[k / m.rows], f.perm[k % m.rows]);
      }
      square.setMatMulTransMat(l, l);
      EXPECT_TRUE(square.isEqual(a, 1e-12));
    }
  }
  const CholeskyFactor f{definite(3, Symmetry::Symmetric), {2, 0, 1}};
  expectError([&] { writeFactor("/dev/full", path("p.txt"), f); }, "7");
  EXPECT_EQ(fileCount(), 0u);
  writeFactor(path("L.mtx"), path("p.txt"), f);
  EXPECT_EQ(read(path("p.txt")), "2\n0\n1\n");
}

TEST_F(SystemTest, inverseSetProductAndExport) {
  // An arrow that points down fills nothing, whichever triangle the file stores.
  for (const bool upper : {false, true}) {
    SparseMatrix arrow = matrix(5, Symmetry::Symmetric, {});
    for (unsigned i = 0; i < 5; ++i) arrow.entries.push_back({upper ? i : 4, upper ? 4 : i, 2.0});
    for (unsigned i = 0; i < 4; ++i) arrow.entries.push_back({i, i, 2.0});
    EXPECT_EQ(inverseSet(arrow).entries.size(), 9u);
  }
  const SparseMatrix m = definite(7, Symmetry::Symmetric);
  const DenseMatrix B = columns(7, 150);
  const DenseMatrix C = multiply(m, B);
  EXPECT_TRUE(record(C).isEqual(product(dense(m), B), 1e-13));
  expectError([&] { multiply(m, columns(6, 1)); }, "4 cannot multiply A.mt");
  DenseMatrix huge = columns(7, 1);
  for (double& v : huge.values) v = 1e308;
  expectError(
      [&] {
        multiply(matrix(7, Symmetry::General, {{6, 6, 9.0}}), huge);
      },
      "4 the product of A.mtx and b.mtx overflows");

  for (std::size_t length = 1; length <= 63; ++length) {
    std::string name(length, 'V');
    if (length > 1) name.back() = "09_z"[length % 4];
    SparseMatrix a = definite(2 + below(6), Symmetry::Symmetric);
    a.entries.push_back({0, 0, 1.0});
    a.cols = a.rows += below(2);
    exportMat(path("c.mat"), C, name);
    EXPECT_TRUE(readMat(read(path("c.mat")), name).isEqual(record(C), 0.0));
    exportMat(path("c.mat"), a, name);
    EXPECT_TRUE(readMat(read(path("c.mat")), name).isEqual(dense(a), 0.0));
  }
  for (const char* name : {"", "1a", "a b", "_a"}) {
    expectError([&] { exportMat(path("d.mat"), C, name); }, "2");
  }
  expectError([&] { exportMat("/dev/full", C, "C"); }, "7");
  EXPECT_EQ(fileCount(), 1u);
}

TEST_F(SystemTest, cancelledWorkStopsAndStagesAreTold) {
  struct Recorder : Progress {
    void stage(const char* name) const override { stages.push_back(name); }
    void note(const std::string& sentence) const override { notes.push_back(sentence); }
    mutable std::vector<std::string> stages, notes;
  } recorder;
  const SparseMatrix m = definite(5, Symmetry::Symmetric);
  variances(m, Route::Automatic, recorder);
  EXPECT_EQ(recorder.stages.size(), 2u);
  ASSERT_EQ(recorder.notes.size(), 1u);
  EXPECT_EQ(recorder.notes[0], "route: Cholesky (A.mtx is symmetric with a usable diagonal)");
  const SparseMatrix indefinite =
      matrix(2, Symmetry::Symmetric, {{0, 0, 1.0}, {1, 0, 2.0}, {1, 1, 1.0}});
  variances(indefinite, Route::Lu, recorder);
  ASSERT_EQ(recorder.notes.size(), 3u);
  EXPECT_EQ(recorder.notes[2].find("2 of the 2 values are negative, the first at row 1: A.mtx"),
            0u);
  recorder.cancel();
  expectError([&] { variances(m, Route::Automatic, recorder); }, "130 ");
}

}  // namespace
}  // namespace zeph
