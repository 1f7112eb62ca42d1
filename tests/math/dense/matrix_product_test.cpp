#include "kernels/processor.h"
#include "tests/math/dense/dense_testing.h"

namespace dense_testing {
namespace {

using korin::MatMulMatTemplate;
using korin::MatrixShape;
using korin::SparseInfo;

std::mt19937 random_(5);

// About one element in four non-zero, with NaN, infinity and -0.0 among the others.
double mostlyZero() {
  switch (random_() % 40) {
    case 0:
      return std::nan("");
    case 1:
      return -std::numeric_limits<double>::infinity();
    case 2:
    case 3:
      return -0.0;
    default:
      return random_() % 4 == 0 ? 1.0 / static_cast<double>(random_()) : 0.0;
  }
}

Matrix mostlyZero(ZtSize rows, ZtSize cols) {
  Matrix m(rows, cols);
  for (ZtSize i = 0; i < rows * cols; ++i) m.data[i] = mostlyZero();
  return m;
}

// The block recursion written out with whole matrices: what the kernel must reproduce bit for bit.
Matrix blockReference(const Matrix& a, const Matrix& b) {
  const ZtSize m = a.rows, k = a.cols, n = b.cols;
  const bool small = m / 2 <= 258 || k / 2 <= 258 || n / 2 <= 258;
  const auto times = [small](const Matrix& x, const Matrix& y) {
    return small ? plainProduct(x, y) : blockReference(x, y);
  };
  const auto part = [](const Matrix& x, ZtSize r, ZtSize c, ZtSize rows, ZtSize cols) {
    Matrix y(rows, cols);
    y.setSub_mat(x, 0, 0, rows, cols, r, c);
    return y;
  };
  const auto sum = [](Matrix x, const Matrix& y) {
    x.setMatAddMat(x, y);
    return x;
  };
  const auto difference = [](Matrix x, const Matrix& y) {
    x.setMatSubMat(x, y);
    return x;
  };
  Matrix c(m, n);
  if (m % 2 == 0 && m == k && b.rows == n && k == n) {
    const ZtSize h = m / 2;
    const Matrix a11 = part(a, 0, 0, h, h), a12 = part(a, 0, h, h, h), a21 = part(a, h, 0, h, h),
                 a22 = part(a, h, h, h, h);
    const Matrix b11 = part(b, 0, 0, h, h), b12 = part(b, 0, h, h, h), b21 = part(b, h, 0, h, h),
                 b22 = part(b, h, h, h, h);
    const Matrix m1 = times(sum(a11, a22), sum(b11, b22)), m2 = times(sum(a21, a22), b11);
    const Matrix m3 = times(a11, difference(b12, b22)), m4 = times(a22, difference(b21, b11));
    const Matrix m5 = times(sum(a11, a12), b22);
    const Matrix m6 = times(difference(a21, a11), sum(b11, b12));
    const Matrix m7 = times(difference(a12, a22), sum(b21, b22));
    c.setSub_mat(sum(difference(sum(m1, m4), m5), m7), 0, 0);
    c.setSub_mat(sum(m3, m5), 0, h);
    c.setSub_mat(sum(m2, m4), h, 0);
    c.setSub_mat(sum(difference(sum(m1, m3), m2), m6), h, h);
    return c;
  }
  const ZtSize hm = m / 2, hk = k / 2 / 2 * 2, hn = n / 2 / 2 * 2;
  for (int q = 0; q < 4; ++q) {
    const ZtSize i = q / 2 * hm, rows = q / 2 == 0 ? hm : m - hm;
    const ZtSize j = q % 2 * hn, cols = q % 2 == 0 ? hn : n - hn;
    Matrix first(rows, cols);
    ZtMatrix_setZero(&first);
    if (hk != 0) first = times(part(a, i, 0, rows, hk), part(b, 0, j, hk, cols));
    c.setSub_mat(sum(first, times(part(a, i, hk, rows, k - hk), part(b, hk, j, k - hk, cols))), i,
                 j);
  }
  return c;
}

TEST(MatrixProduct, LoopKernelUpToTheBoundBlockRecursionAboveItAtEveryDepth) {
  using Level = korin::kernels::ProcessorLevel;
  const Level before = korin::kernels::processorLevel();
  // Even and odd squares that recurse once more, oblong ones, and dimensions too small to halve.
  const struct {
    ZtSize m, n, k;
  } shapes[] = {{258, 258, 258}, {259, 259, 258}, {14, 14, 30},    {15, 15, 3},     {259, 259, 259},
                {260, 260, 260}, {300, 300, 260}, {300, 299, 300}, {600, 600, 600}, {601, 601, 601},
                {520, 523, 526}, {518, 700, 519}, {2, 2, 2},       {6, 6, 6},       {1, 5, 3},
                {7, 9, 5},       {4, 4, 6},       {3, 3, 3}};
  for (const auto& [m, n, k] : shapes) {
    const Block blockA(m, k), blockB(k, n);
    const Matrix &a = blockA.view, &b = blockB.view, blocked = blockReference(a, b);
    const Matrix expected = m > 258 && n > 258 && k > 258 ? blocked : plainProduct(a, b);
    for (const auto level : {Level::Baseline, Level::Avx2, Level::Avx512}) {
      SCOPED_TRACE(testing::Message() << k << " on level " << static_cast<int>(level));
      if (korin::kernels::forceProcessorLevel(level) != level) continue;
      Block target(m, n);
      target.view.setMatMulMat(a, b);
      EXPECT_TRUE(sameBits(target.view, expected));
      target.view.setMatMulTransMat(a, transposed(b));
      EXPECT_TRUE(sameBits(target.view, expected)) << "transposed";
      target.view.setMatMulMatBlocked(a, b);
      EXPECT_TRUE(sameBits(target.view, blocked) && target.outsideUntouched()) << "blocked";
    }
  }
  korin::kernels::forceProcessorLevel(before);
}

TEST(MatrixProduct, TargetThatIsAnOperandBehavesAsTheLoopsDo) {
  // The loop kernel zeroes its target first, so only zeros and what it just wrote are read.
  Matrix a = randomMatrix(20, 20);
  const Matrix b = randomMatrix(20, 20);
  Matrix c = b;
  c.setMatMulMat(a, c);
  EXPECT_EQ(c.countNonZeros(), 0U);
  // The seven products are all taken before the first quarter is written.
  Matrix square = b;
  square.setMatMulMatBlocked(a, square);
  EXPECT_TRUE(sameBits(square, blockReference(a, b)));
}

TEST(MatrixProduct, NonZeroListsGiveThePlainSumsOverStoredNonZeros) {
  for (int round = 0; round < 30; ++round) {
    const ZtSize m = 1 + random_() % 12, n = 1 + random_() % 12, k = 1 + random_() % 12;
    const Matrix a = mostlyZero(m, k), b = mostlyZero(k, n);
    Matrix expected(m, n);
    for (ZtSize i = 0; i < m; ++i) {
      for (ZtSize j = 0; j < n; ++j) {
        double sum = 0.0;
        for (ZtSize p = 0; p < k; ++p) {
          if (a(i, p) != 0.0 && b(p, j) != 0.0) sum += a(i, p) * b(p, j);
        }
        expected(i, j) = sum;
      }
    }
    const SparseInfo aRows(a, true, false), bCols(b, false, true), none;
    const Matrix bt = transposed(b);
    Matrix c(m, n);
    c.setMatMulMatSparse(a, b);
    EXPECT_TRUE(sameBits(c, expected));
    c.setMatMulMat(a, aRows, b, bCols);
    EXPECT_TRUE(sameBits(c, expected));
    c.setMatMulTransMat(a, aRows, bt, SparseInfo(bt, true, false));
    EXPECT_TRUE(sameBits(c, expected));
    c.setMatMulMat(a, none, b, none);  // lists that were not made are made on the way
    EXPECT_TRUE(sameBits(c, expected));
    const MatMulMatTemplate pattern(a, MatrixShape::General, b, MatrixShape::General, 0.0);
    c.setMatMulMat(pattern, a, b);
    EXPECT_TRUE(sameBits(c, expected));
  }
  const Matrix a = mostlyZero(9, 7), b = randomMatrix(7, 7);
  Matrix c(9, 9), ab(9, 7), expected(9, 9);
  c.setABAt(a, SparseInfo(a, true, true), b, SparseInfo(b, true, true));
  ab.setMatMulMatSparse(a, b);
  expected.setMatMulMatSparse(ab, transposed(a));
  EXPECT_TRUE(sameBits(c, expected));
}

TEST(MatrixProduct, AnEmptyInnerDimensionGivesZeros) {
  Matrix a, b;
  a.changeSize(3, 0);
  b.changeSize(0, 3);
  const SparseInfo none;
  Matrix c(3, 3);
  const std::function<void()> products[] = {
      [&] { c.setMatMulMatTrivial(a, b, 0); },
      [&] { c.setMatMulMatBlocked(a, b); },
      [&] { c.setMatMulTransMatTrivial(a, a); },
      [&] { c.setMatMulTransMatBlocked(a, a); },
      [&] { c.setMatMulMatSparse(a, b); },
      [&] { c.setMatMulMat(a, none, b, none); },
      [&] { c.setMatMulTransMat(a, none, a, none); },
      [&] { c.setTransMatMulMat(b, b); },
      [&] { c.setABAt(a, Matrix()); },
      [&] { c.setABAt(a, none, Matrix(), none); },
      [&] { c.setAtBA(b, Matrix()); },
  };
  for (const auto& product : products) {
    c.setIdentity(7.0);
    product();
    EXPECT_EQ(c.countNonZeros(), 0U) << &product - products;
  }
}

TEST(MatrixProduct, IndexListsAreIncreasingAndEnded) {
  const double values[] = {1.0, 9.0, -0.0, 9.0, std::nan(""), 9.0, 0.0, 9.0, 5.0};
  const ZtSize end = ~ZtSize{0};
  ZtSize out[6] = {7, 7, 7, 7, 7, 7};
  EXPECT_EQ(SparseInfo::getSparseIndexes(values, 2, 5, out), end);
  EXPECT_EQ(std::vector<ZtSize>(out, out + 5), (std::vector<ZtSize>{0, 2, 4, end, 7}));
  EXPECT_EQ(SparseInfo::getSparseIndexes(values, 1, 0, out), end);
  EXPECT_EQ(out[0], end);
  const double m[] = {0, 1, 2, 0, 0, 3};
  SparseInfo info(Matrix(2, 3, m), true, true);
  EXPECT_EQ(std::vector<ZtSize>(info.rowList(1), info.rowList(1) + 2),
            (std::vector<ZtSize>{2, end}));
  EXPECT_EQ(std::vector<ZtSize>(info.colList(2), info.colList(2) + 3),
            (std::vector<ZtSize>{0, 1, end}));
  EXPECT_EQ(info.colList(0)[0], end);
}

TEST(MatrixProduct, PatternsFollowTheDeclaredShapes) {
  // A triangular shape decides alone: stored zeros count as elements, stored values outside do not.
  const double full[] = {0, 5, 6, 7};
  const Matrix m(2, 2, full);
  const MatrixShape shapes[] = {MatrixShape::LowerTriangular, MatrixShape::UpperTriangular,
                                MatrixShape::General, static_cast<MatrixShape>(9)};
  const bool expected[][4] = {{false, true, false, false},
                              {false, false, true, false},
                              {true, false, false, false},
                              {true, false, false, false}};
  for (int s = 0; s < 4; ++s) {
    for (ZtSize i = 0; i < 4; ++i) {
      EXPECT_EQ(MatMulMatTemplate::isZeroElement(m, shapes[s], i / 2, i % 2), expected[s][i]);
    }
  }
  const MatMulMatTemplate pattern(m, shapes[0], m, shapes[1], 0.0);
  const Matrix a = randomMatrix(2, 2), b = randomMatrix(2, 2);
  Matrix c(2, 2), d(2, 2);
  c.setMatMulMat(pattern, a, b);
  Matrix l = a, u = b;
  l(0, 1) = 0.0;
  u(1, 0) = 0.0;
  d.setMatMulMat(l, u);
  EXPECT_TRUE(sameBits(c, d));
}

}  // namespace
}  // namespace dense_testing
