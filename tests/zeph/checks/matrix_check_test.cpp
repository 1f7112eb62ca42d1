#include "zeph/checks/matrix_check.h"

#include <set>

#include "math/korin.h"
#include "tests/zeph/factor/dense_truth.h"
#include "tests/zeph/front_test.h"
#include "zeph/factor/lu_backend.h"
#include "zeph/matrix/record.h"
#include "zeph/matrix/to_dense.h"

namespace zeph {
namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

class MatrixCheckTest : public FrontTest {};

// Of the leading k rows and columns.
double determinant(SparseMatrix m, unsigned k) {
  std::erase_if(m.entries, [k](const Entry& e) { return e.row >= k || e.col >= k; });
  m.rows = m.cols = k;
  const DenseTruth truth(m);
  return truth.sign * std::exp(static_cast<double>(truth.logAbs));
}

// Everything the report says, found again on the dense matrix.
void expectReportOfDense(const MatrixReport& report, const SparseMatrix& m) {
  std::set<std::pair<unsigned, unsigned>> stored;
  for (const auto& e : m.entries) stored.insert({e.row, e.col});
  EXPECT_EQ(report.duplicates, m.entries.size() - stored.size());
  if (m.symmetry != Symmetry::General) {
    for (const auto& e : m.entries) stored.insert({e.col, e.row});
  }
  EXPECT_EQ(report.entries, stored.size());
  const korin::Matrix a(toRecord(toDense(m)));
  bool structural = true, numerical = true;
  std::vector<int> emptyRows, emptyCols;
  for (unsigned i = 0; i < m.rows; ++i) {
    bool rowEmpty = true, colEmpty = true;
    for (unsigned j = 0; j < m.cols; ++j) {
      rowEmpty = rowEmpty && a(i, j) == 0.0;
      colEmpty = colEmpty && a(j, i) == 0.0;
      structural = structural && stored.count({i, j}) == stored.count({j, i});
      numerical = numerical && a(i, j) == a(j, i);
    }
    if (rowEmpty) emptyRows.push_back(static_cast<int>(i));
    if (colEmpty) emptyCols.push_back(static_cast<int>(i));
  }
  EXPECT_EQ(report.symmetry.structural, structural);
  EXPECT_EQ(report.symmetry.numerical, numerical);
  EXPECT_TRUE(report.emptyRows == emptyRows && report.emptyCols == emptyCols);
  bool definite = numerical;  // Sylvester
  for (unsigned k = 1; k <= m.rows; ++k) definite = definite && determinant(m, k) > 0.5;
  EXPECT_EQ(report.fitForCholesky(), definite);
  const bool regular = std::abs(determinant(m, static_cast<unsigned>(m.rows))) > 0.5;
  EXPECT_EQ(report.fitForLu(), hasLuRoute() ? regular : definite);
}

TEST_F(MatrixCheckTest, agreesWithTheDenseMatrix) {
  const Symmetry symmetries[] = {Symmetry::General, Symmetry::Symmetric, Symmetry::SkewSymmetric};
  int symmetric = 0, definite = 0, indefinite = 0;
  for (int round = 0; round < 400; ++round) {
    SparseMatrix m;
    m.rows = m.cols = 2 + below(6);
    m.symmetry = symmetries[round % 4 % 3];
    m.triangular = m.symmetry == Symmetry::General;
    for (unsigned i = 0; i < m.rows && round % 4 % 2 == 1; ++i) m.entries.push_back({i, i, 4.0});
    for (unsigned k = below(20); k > 0; --k) {
      const unsigned row = below(m.rows), col = below(m.cols);
      const double value = 1.0 + below(3);
      if (m.symmetry != Symmetry::General && row < col + (round % 4 == 2)) continue;
      m.entries.push_back({row, col, value});
      if (round % 4 == 3) m.entries.push_back({col, row, value + (below(40) == 0)});
    }
    const MatrixReport report = checkMatrix(m);
    expectReportOfDense(report, m);
    definite += report.fitForCholesky();
    indefinite += report.symmetry.numerical && report.fitForLu() && !report.fitForCholesky();
    symmetric += m.symmetry == Symmetry::General && report.symmetry.numerical;
  }
  EXPECT_GT(std::min(symmetric, definite), 20);
  EXPECT_GT(indefinite, hasLuRoute() ? 20 : -1);
}

TEST_F(MatrixCheckTest, namesWhatIsWrongAndWhere) {
  SparseMatrix m;
  m.source = "A.mtx";
  m.indexBase = 1;
  m.rows = m.cols = 4;
  m.entries = {{0, 0, 2.0}, {1, 1, 1e-17}, {2, 0, kNan}, {2, 2, -3.0},
               {0, 2, 5.0}, {0, 2, 1.0},   {1, 2, 1.0},  {2, 1, 1.0}};
  const MatrixReport report = checkMatrix(m);
  EXPECT_EQ(report.unusableDiagonal, (std::vector<std::size_t>{1, 3}));
  EXPECT_EQ(report.negativeDiagonal, 1u);
  EXPECT_FALSE(report.fit());
  const std::string text = toText(report);
  for (const char* line :
       {"size:                4 x 4\n", "entries:             7 (8 stored)\n",
        "duplicates:          1\n", "symmetry:            symmetric in structure, not in values",
        "unusable diagonal:   2, first at (2, 2)\n",
        "not finite:          1, first nan at (3, 1)\n", "empty rows:          1: 4\n",
        "empty columns:       1: 4\n",
        "fit for LU:          no: it holds values that are not finite, it has 1 empty row,",
        "it is not symmetric, it has 2 unusable diagonal entries, it has 1 negative diagonal"}) {
    EXPECT_NE(text.find(line), text.npos) << line << "\n" << text;
  }
}

TEST_F(MatrixCheckTest, shapesAndRounding) {
  SparseMatrix wide;
  wide.rows = 1;
  wide.cols = 3;
  wide.entries = {{0, 1, 1.0}, {0, 1, 1.0}};
  const MatrixReport report = checkMatrix(wide);
  EXPECT_FALSE(report.fit());
  EXPECT_EQ(report.duplicates, 1u);
  EXPECT_EQ(report.emptyCols, (std::vector<int>{0, 2}));
  EXPECT_FALSE(checkMatrix(SparseMatrix()).fit());

  // Differences are judged against the diagonal, not against a tiny entry itself.
  SparseMatrix m;
  m.rows = m.cols = 2;
  m.entries = {{0, 0, 1.0}, {1, 1, 1.0}, {0, 1, 1e-16}, {1, 0, -1e-16}};
  EXPECT_TRUE(checkMatrix(m).fitForCholesky());
  m.entries[2].value = 1e-13;
  EXPECT_FALSE(checkMatrix(m).fitForCholesky());
  EXPECT_EQ(checkMatrix(m).fitForLu(), hasLuRoute());
}

}  // namespace
}  // namespace zeph
