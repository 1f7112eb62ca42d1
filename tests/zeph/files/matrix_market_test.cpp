#include "zeph/files/matrix_market.h"

#include "tests/math/dense/dense_testing.h"
#include "tests/zeph/files/any_matrix.h"
#include "zeph/checks/matrix_check.h"
#include "zeph/files/matrix_file.h"
#include "zeph/matrix/record.h"
#include "zeph/matrix/to_dense.h"

namespace zeph {
namespace {

using dense_testing::sameBits;
using korin::Matrix;

Matrix record(const DenseMatrix& m) {
  return Matrix(toRecord(m));
}

class MatrixMarketTest : public AnyMatrixTest {};

const std::string kReal = "%%MatrixMarket matrix coordinate real general\n";
const std::string kArray = "%%MatrixMarket matrix array real general\n";
const std::string kSymmetric = "%%MatrixMarket matrix coordinate real symmetric\n";
const std::string kSkew = "%%MatrixMarket matrix coordinate real skew-symmetric\n";
const std::string kInteger = "%%MatrixMarket matrix coordinate integer general\n";

TEST_F(MatrixMarketTest, refusesBadFilesWithTheLineAtFault) {
  const struct {
    std::string text, sentence;
  } cases[] = {
      {"", "3 m.mtx is empty; expected \"%%MatrixMarket matrix coordinate real general\""},
      {"1 1 1\n", "3 m.mtx, line 1: expected \"%%MatrixMarket"},
      {"%%MatrixMarket vector array real general\n", "line 1: the object \"vector\""},
      {"%%MatrixMarket matrix list real general\n", "line 1: the format \"list\""},
      {"%%MatrixMarket matrix coordinate pattern general\n", "line 1: pattern matrices are not"},
      {"%%MatrixMarket matrix coordinate complex general\n", "line 1: complex matrices are not"},
      {"%%MatrixMarket matrix coordinate real hermitian\n", "line 1: Hermitian matrices are not"},
      {"%%MatrixMarket matrix coordinate real\n", "line 1: the symmetry \"\""},
      {"%%MatrixMarket matrix coordinate real odd\n", "line 1: the symmetry \"odd\""},
      {kReal + "% only a comment\n", "m.mtx ends after line 2 without the size line"},
      {kReal + "2 2\n", "line 2: expected the size line \"rows columns entries\""},
      {kReal + "2 x 1\n", "line 2: expected the size line"},
      {kReal + "2 2 1 7\n", "line 2: unexpected \"7\" after the size line"},
      {kReal + "3000000000 1 1\n", "line 2: the size"},
      {kReal + "2 99999999999999999999 1\n", "is larger than 2147483647"},
      {kSymmetric + "2 3 1\n", "line 2: a symmetric or skew-symmetric matrix must be"},
      {kReal + "2 2 2\n1 1 5\n",
       "m.mtx ends after line 3 with 1 of the 2 entries that line 2 promises"},
      {kReal + "2 2 900000000000\n1 1 5\n", "with 1 of the 900000000000 entries"},
      {kReal + "2 2 1\n\n1 1 5\n2 2 5\n", "line 5: there are more than the 1 entries"},
      {kReal + "2 2 1\n3 1 5\n", "line 3: the row index 3 is outside 1 to 2"},
      {kReal + "2 2 1\n0 1 5\n", "line 3: the row index 0 is outside 1 to 2"},
      {kReal + "2 4 1\n1 5 5\n", "line 3: the column index 5 is outside 1 to 4"},
      {kReal + "2 2 1\n-1 1 5\n", "found \"-1\" as the row index"},
      {kReal + "2 2 1\n1 1.5 5\n", "found \"1.5\" as the column index"},
      {kReal + "2 2 1\n1\n", "line 3: expected \"row column value\""},
      {kReal + "2 2 1\n1 2\n", "line 3: the value of entry (1, 2) is missing"},
      {kReal + "2 2 1\n1 2 x7\n", "the value \"x7\" of entry (1, 2) is not a number"},
      {kReal + "2 2 1\n1 2 7z\n", "the value \"7z\" of entry (1, 2) is not a number"},
      {kReal + "2 2 1\n1 2 +-7\n", "the value \"+-7\" of entry (1, 2) is not a"},
      {kReal + "2 2 1\n1 2 7 8\n", "line 3: unexpected \"8\" after the value of entry"},
      {kReal + "2 2 1\n1 2 nan\n", "line 3: the value of entry (1, 2) is nan"},
      {kReal + "2 2 1\n1 2 -Inf\n", "line 3: the value of entry (1, 2) is -inf"},
      {kReal + "2 2 1\n1 2 1e999\n", "the value \"1e999\" of entry (1, 2) is too large"},
      {kInteger + "2 2 1\n1 2 1.5\n", "\"1.5\" of entry (1, 2) is not an integer"},
      {kSymmetric + "3 3 2\n2 1 5\n1 3 5\n", "line 4: entry (1, 3) lies above the"},
      {kSkew + "3 3 1\n2 2 5\n", "line 3: entry (2, 2) of a skew-symmetric matrix"},
      {kArray + "2 1\n1\nx\n", "line 4: the value \"x\" of entry (2, 1) is not a"},
      {kArray + "2 2\n1\n2\n3\n", "with 3 of the 4 entries that line 2 promises"},
      {kArray + "2000000000 2000000000\n1\n", "with 1 of the 4000000000000000000"},
      {kArray + "1 1\n1\n2\n", "line 4: there are more than the 1 entries"},
      {kArray + "2 1\n1 2\n", "line 3: unexpected \"2\" after the value of entry"},
  };
  for (const auto& c : cases) {
    const std::string file = write("m.mtx", c.text);
    expectError([&] { readMatrixMarket(file); }, c.sentence, false);
    expectError([&] { readMatrixMarketDense(file); }, c.sentence, false);
  }
  expectError([&] { readMatrixMarket(path("none.mtx")); },
              "3 cannot read none.mtx: No such file or directory");
  expectError([&] { readMatrixMarket(path("")); }, "directory", false);
}

TEST_F(MatrixMarketTest, acceptsEveryLegalSpelling) {
  const std::string file =
      write("m.mtx",
            "%%matrixmarket MATRIX Coordinate Real GENERAL  \r\n"
            "% comment\r\n%\r\n\r\n  2\t3   4 \r\n"
            "+1 1 +1.5e+0\r\n% comment\r\n\r\n 2 3 -.25 \r\n2\t3\t1e-400\r\n1 3 0");
  const SparseMatrix m = readMatrixMarket(file);
  ASSERT_EQ(m.entries.size(), 4u);  // duplicates and zeros are kept
  EXPECT_EQ(record(toDense(m)), dense_testing::matrixOf(2, 3, {1.5, 0, 0, 0, 0, -0.25}));
  const std::string bad = write("n.mtx", kReal + "2 2 3\n1 2 NaN\n2 1 inf\n1 1 1e999\n");
  const SparseMatrix n = readMatrixMarket(bad, {true});
  EXPECT_TRUE(std::isnan(n.entries[0].value));
  EXPECT_TRUE(std::isinf(n.entries[1].value) && std::isinf(n.entries[2].value));
  const std::string big = write("i.mtx", kInteger + "1 1 1\n1 1 -9007199254740993\n");
  EXPECT_EQ(readMatrixMarket(big).entries[0].value, -9007199254740992.0);
}

TEST_F(MatrixMarketTest, everyDoubleReadsBackToTheSameBits) {
  for (int round = 0; round < 30; ++round) {
    SparseMatrix m = randomMatrix(static_cast<Symmetry>(round % 3));
    if (m.symmetry != Symmetry::SkewSymmetric) m.entries.push_back({1, 1, -0.0});
    writeSparse(path("m.mtx"), m);
    const SparseMatrix back = readMatrixMarket(path("m.mtx"));
    ASSERT_EQ(back.entries.size(), m.entries.size());
    EXPECT_TRUE(back.rows == m.rows && back.cols == m.cols && back.symmetry == m.symmetry);
    EXPECT_TRUE(m.entries.empty() || std::memcmp(back.entries.data(), m.entries.data(),
                                                 m.entries.size() * sizeof m.entries[0]) == 0);

    Matrix dense(3, 4);
    for (int k = 0; k < 12; ++k) dense.data[k] = anyDouble();
    for (const char* name : {"d.mtx", "d.csv"}) {
      writeDense(path(name), fromRecord(dense));
      EXPECT_TRUE(sameBits(record(readDense(path(name))), dense)) << name;
    }
    writeVector(path("v.mtx"), dense.data, 12);
    EXPECT_TRUE(sameBits(record(readDense(path("v.mtx"))), Matrix(12, 1, dense.data)));
  }
}

TEST_F(MatrixMarketTest, linesLongerThanTheBufferAndPipesAreRead) {
  const std::string text =
      kReal + "%" + std::string(700000, '-') + "\n1 2 1\n1 2" + std::string(300000, ' ') + "4";
  const std::string file = write("m.mtx", text);
  EXPECT_EQ(readMatrixMarket(file).entries.at(0).value, 4.0);
  ASSERT_EQ(std::system(("mkfifo " + path("pipe")).c_str()), 0);
  ASSERT_EQ(std::system(("cat " + file + " > " + path("pipe") + " &").c_str()), 0);
  EXPECT_EQ(readMatrixMarket(path("pipe")).entries.at(0).value, 4.0);
}

TEST_F(MatrixMarketTest, hugeSizesAreRefusedNotAttempted) {
  const std::string file = write("m.mtx", kReal + "2000000000 2000000000 1\n1 1 1\n");
  EXPECT_EQ(readMatrixMarket(file).entries.size(), 1u);
  expectError([&] { readDense(file); }, "8");
  expectError([&] { checkMatrix(readSparse(file)); }, "8");
  expectError([] { readSparse("/dev/zero"); },
              "3 /dev/zero holds binary data; a matrix file is text");
}

}  // namespace
}  // namespace zeph
