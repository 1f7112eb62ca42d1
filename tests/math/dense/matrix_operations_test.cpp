#include "tests/math/dense/dense_testing.h"

namespace dense_testing {
namespace {

constexpr ZtReal kNan = std::numeric_limits<ZtReal>::quiet_NaN();
constexpr ZtReal kInfinity = std::numeric_limits<ZtReal>::infinity();

template <typename Element>
void expectElements(const char* name, const Matrix& m, Element expected) {
  for (ZtSize r = 0; r < m.rows; ++r) {
    for (ZtSize c = 0; c < m.cols; ++c) {
      const ZtReal x = expected(r, c);
      ASSERT_TRUE(m(r, c) == x || (std::isnan(m(r, c)) && std::isnan(x)))
          << name << ", " << m.rows << " x " << m.cols << ", at (" << r << ", " << c
          << "): " << m(r, c) << " instead of " << x;
    }
  }
}

// Resets x to old, runs a member of x, and compares x with a formula in i and j.
#define EXPECT_WRITES(call, formula)                                                             \
  x.setSub_mat(old, 0, 0);                                                                       \
  x.call;                                                                                        \
  expectElements(#call, x, [&]([[maybe_unused]] ZtSize i, [[maybe_unused]] ZtSize j) -> ZtReal { \
    return formula;                                                                              \
  });                                                                                            \
  ASSERT_TRUE(target.outsideUntouched()) << #call

TEST(MatrixOperations, WriteTheFormulaIntoTheTargetAndNothingElse) {
  const std::pair<ZtSize, ZtSize> shapes[] = {{1, 1}, {1, 6}, {5, 1}, {3, 4}, {7, 7}, {40, 67}};
  for (const auto& shape : shapes) {
    const ZtSize m = shape.first, n = shape.second, larger = std::max(m, n);
    Block blockA(m, n), blockB(m, n), blockT(n, m), blockD(larger, larger), target(m, n);
    const Matrix &a = blockA.view, &b = blockB.view, &t = blockT.view, &d = blockD.view;
    Matrix& x = target.view;
    const Matrix old = x;
    const Vector v = randomVector(larger), w = randomVector(larger);
    EXPECT_WRITES(setMatAddMat(a, b), a(i, j) + b(i, j));
    EXPECT_WRITES(setMatSubMat(a, x), a(i, j) - old(i, j));
    EXPECT_WRITES(setMatAddTransMatMulSca(a, t, 0.7), (a(i, j) + t(j, i)) * 0.7);
    EXPECT_WRITES(setScaMulMat(0.7, a), 0.7 * a(i, j));
    EXPECT_WRITES(setMatAddScaMulMat(a, 0.7, b), a(i, j) + 0.7 * b(i, j));
    EXPECT_WRITES(setSelfAddScaMulMat(0.7, a), old(i, j) + 0.7 * a(i, j));
    EXPECT_WRITES(setScaMulMatAddScaMulMat(0.7, a, -3, b), 0.7 * a(i, j) + -3 * b(i, j));
    EXPECT_WRITES(setAbs(a), std::fabs(a(i, j)));
    EXPECT_WRITES(setSqrt(a), std::sqrt(a(i, j)));
    EXPECT_WRITES(setMatEMulMat(a, b), a(i, j) * b(i, j));
    EXPECT_WRITES(setMatEDivMat(a, b), a(i, j) / b(i, j));
    EXPECT_WRITES(setIdentity(), i == j ? 1.0 : 0.0);
    EXPECT_WRITES(setMatAddIdentity(a), a(i, j) + (i == j ? 1.0 : 0.0));
    EXPECT_WRITES(setSelfAddDiag(d), old(i, j) + (i == j ? d(i, i) : 0.0));
    EXPECT_WRITES(setSelfAddDiag(v), old(i, j) + (i == j ? v[i] : 0.0));
    EXPECT_WRITES(setMatMulDiag(a, d), a(i, j) * d(j, j));
    EXPECT_WRITES(setMatMulDiag(a, v), a(i, j) * v[j]);
    EXPECT_WRITES(setDiagMulMat(d, a), a(i, j) * d(i, i));
    EXPECT_WRITES(setDiagMulMat(v, a), a(i, j) * v[i]);
    EXPECT_WRITES(setTransposeOf(t), t(j, i));
    EXPECT_WRITES(setTriU(a), i <= j ? a(i, j) : 0.0);
    EXPECT_WRITES(setTriL(x), i >= j ? old(i, j) : 0.0);
    EXPECT_WRITES(setTransposeOfTriU(t), i >= j ? t(j, i) : 0.0);
    EXPECT_WRITES(setVecMulVec(v, w), v[i] * w[j]);
    EXPECT_WRITES(setSub_zero(m / 2, 0, m - m / 2, n), i >= m / 2 ? 0.0 : old(i, j));
    EXPECT_WRITES(setSub_scalar(7, 0, n / 2, m, n - n / 2), j >= n / 2 ? 7.0 : old(i, j));
    EXPECT_WRITES(setSub_mat(a, m / 2, n / 3, m - m / 2, n - n / 3, 0, n / 3),
                  i >= m / 2 && j >= n / 3 ? a(i - m / 2, j) : old(i, j));
    EXPECT_WRITES(setSub_mat(a, 0, 0), a(i, j));
    EXPECT_WRITES(setSub_identity(0, n / 2, m, n - n / 2),
                  j < n / 2 ? old(i, j) : (j == i + n / 2 ? 1.0 : 0.0));
  }
}

TEST(MatrixOperations, SymmetricFormsAndTranspositionInPlace) {
  for (const ZtSize n : {0, 1, 2, 31, 33, 70}) {
    Block target(n, n);
    Matrix& x = target.view;
    const Matrix old = x;
    EXPECT_WRITES(setTransposeSelf(), old(j, i));
    EXPECT_WRITES(setSymmetricTriL(x), old(std::max(i, j), std::min(i, j)));
  }
  const Matrix wide = randomMatrix(3, 40);
  Matrix tall = wide;
  tall.setTransposeSelf();
  EXPECT_TRUE(tall.stride == 3 && tall.rows == 40);
  expectElements("setTransposeSelf", tall, [&](auto i, auto j) { return wide(j, i); });
  ZtReal buffer[5] = {};
  Matrix empty(0, 5, 5, buffer, 0);  // a view, but nothing has to move
  empty.setTransposeSelf();
  EXPECT_TRUE(empty.rows == 5 && empty.cols == 0 && empty.data == buffer);
}

TEST(MatrixOperations, ProductsSumInIncreasingInnerIndex) {
  const ZtSize shapes[][3] = {{1, 1, 1}, {3, 5, 2}, {8, 4, 17}, {13, 29, 9}};
  for (const auto& [m, k, n] : shapes) {
    Block blockA(m, k), blockB(k, n), column(m, 1), row(1, k);
    const Matrix &a = blockA.view, &b = blockB.view, at = transposed(a),
                 square = randomMatrix(k, k);
    const Vector v = randomVector(k), w = randomVector(m);
    Matrix product(m, n), congruent(m, m);
    Vector x(m), y(k);
    x.setMatMulVec(a, v);
    y.setVecMulMat(w, a);
    column.view.setMatMulVec(a, v);
    row.view.setVecMulMat(w, a);
    EXPECT_TRUE(sameBits(column.view, plainProduct(a, Matrix(k, 1, v.data))));
    EXPECT_TRUE(sameBits(row.view, plainProduct(Matrix(1, m, w.data), a)));
    EXPECT_TRUE(x == column.view.col(0) && y == row.view.row(0));
    EXPECT_TRUE(column.outsideUntouched() && row.outsideUntouched());
    product.setTransMatMulMat(at, b);
    EXPECT_TRUE(sameBits(product, plainProduct(a, b)));
    congruent.setABAt(a, square);
    EXPECT_TRUE(sameBits(congruent, plainProduct(plainProduct(a, square), at)));
    congruent.setAtBA(at, square);
    EXPECT_TRUE(sameBits(congruent, plainProduct(plainProduct(a, square), at)));
  }
  Block noTerms(17, 0);
  Vector zeros = randomVector(17);
  zeros.setMatMulVec(noTerms.view, Vector());
  EXPECT_EQ(zeros.maxAbsVal(), 0.0);
}

TEST(VectorOperations, AreTheMatrixOperationsOfOneRow) {
  const ZtSize n = 12;
  const Vector a = randomVector(n), b = randomVector(n), old = randomVector(n);
  const Matrix m = randomMatrix(n, n + 1);
  std::vector<Vector> x(9, old);
  x[0].setVecAddVec(a, b);
  x[1].setVecSubVec(a, x[1]);
  x[2].setVecAddScaMulVec(a, 3, b);
  x[3].setScaMulVecAddScaMulVec(3, a, 0.1, b);
  x[4].setVecEMulVec(a, b);
  x[5].setVecEDivVec(a, b);
  x[6].setSub_vec(a, 3, 4, 1);
  x[7].setMatCol(m, n);
  x[8].setDiag(m);
  for (ZtSize i = 0; i < n; ++i) {
    EXPECT_TRUE(x[0][i] == a[i] + b[i] && x[1][i] == a[i] - old[i] && x[2][i] == a[i] + 3 * b[i]);
    EXPECT_TRUE(x[3][i] == 3 * a[i] + 0.1 * b[i] && x[4][i] == a[i] * b[i]);
    EXPECT_TRUE(x[5][i] == a[i] / b[i] && x[6][i] == (i < 3 || i >= 7 ? old[i] : a[i - 2]));
    EXPECT_TRUE(x[7][i] == m(i, n) && x[8][i] == m(i, i));
  }
  x[0].setMatRow(m, 5);
  x[1] = x[0];
  x[1].setSub_zero(0, n - 1);
  EXPECT_TRUE(x[0] == Vector(n, m.row(5).data) && x[1].sumVal() == m(5, n - 1));
}

TEST(MatrixQueries, StatisticsAndComparisons) {
  const Vector v = vectorOf({3, -7, 0.5, -0.0, 2, 4});
  Matrix m(2, 3, v.data);
  EXPECT_TRUE(m.trace() == 5 && m.countNonZeros() == 5 && m.sumVal() == 2.5 && m.minVal() == -7);
  EXPECT_TRUE(v.sumSquaredVal() == 78.25 && v.avgVal() == 2.5 / 6 && v.minVal() == -7);
  EXPECT_TRUE(v.maxVal() == 4 && v.maxAbsVal() == 7 && m.isValid() && v.isValid());
  Matrix other = m;
  EXPECT_TRUE(m == other);
  other(1, 2) += 0.25;
  EXPECT_TRUE(m != other && m.isEqual(other, 0.25) && !m.isEqual(other, 0.2));
  EXPECT_FALSE(m == Matrix(3, 2, v.data));  // the same elements in another shape
  EXPECT_TRUE(v != Vector(5, v.data));
  m(0, 1) = other(0, 1) = kInfinity;
  EXPECT_TRUE(m.isEqual(other, 1.0) && !m.isValid());
  m(0, 1) = other(0, 1) = kNan;
  EXPECT_TRUE(!m.isEqual(other, 1.0) && m.countNonZeros() == 5 && m.minVal() == 0);
  const Matrix none;
  EXPECT_TRUE(none.minVal() == kInfinity && none.maxVal() == -kInfinity && none.sumVal() == 0);
  EXPECT_TRUE(std::isnan(none.avgVal()) && none.maxAbsVal() == 0 && none.countNonZeros() == 0);
}

// The solves against the recurrences written down element by element, to the last bit, with NaN in
// the triangle that must not be read.
TEST(TriangularSolves, FollowTheirOrderOfOperations) {
  for (const ZtSize n : {0, 1, 2, 7, 8, 9, 27}) {
    Matrix a = randomMatrix(n, n);
    a.setSelfAddDiag(4.0);
    Matrix upper = a, lower = a;
    for (ZtSize i = 0; i < n; ++i) {
      for (ZtSize j = 0; j < i; ++j) upper(i, j) = lower(j, i) = kNan;
    }
    const Vector b = randomVector(n);
    Vector x = b, expected = b;
    for (ZtSize r = n; r-- > 0; expected[r] /= a(r, r)) {
      for (ZtSize q = 1; r + q < n; ++q) expected[r] -= a(r, r + q) * expected[r + q];
    }
    x.setLeftDivideTriU(upper, x);
    EXPECT_EQ(x, expected) << n;
    x = expected = b;
    for (ZtSize r = 0; r < n; expected[r] /= a(r, r), ++r) {
      for (ZtSize c = 0; c < r; ++c) expected[r] -= a(r, c) * expected[c];
    }
    x.setLeftDivideTriL(lower, x);
    EXPECT_EQ(x, expected) << n;
    x.setLeftDivideDiag(a, b);
    for (ZtSize i = 0; i < n; ++i) EXPECT_EQ(x[i], b[i] / a(i, i));
  }
}

TEST(Cholesky, FailuresAreReportedAndNanIsCarriedOn) {
  Matrix m = matrixOf(2, 2, {1, 2, 2, 1}), inverse = matrixOf(2, 2, {2, 5, 5, 0});
  expectThrow([&] { Vector(2).setSolveCholesky(Vector(2), m); },
              "bool korin::Matrix::setCholesky(bool) matrix not symmetric positive-definite");
  EXPECT_EQ(m, matrixOf(2, 2, {1, 2, 2, -3}));
  expectThrow([&] { inverse.setInverseDiagonal(inverse); },
              "void korin::Matrix::setInverseDiagonal(const ZtMatrix&) matrix is singular");
  EXPECT_EQ(inverse, matrixOf(2, 2, {0.5, 5, 5, 0}));
  m = matrixOf(2, 2, {kNan, 0, 1, 2});
  EXPECT_TRUE(m.setCholesky(true) && std::isnan(m(1, 0)) && std::isnan(m(1, 1)));
}

TEST(Cholesky, SolveSumsBeforeItSubtractsAndLeavesTheTransposedFactor) {
  for (const ZtSize n : {0, 1, 3, 80}) {
    Matrix a = randomMatrix(n, n), product(n, n);
    a.setSymmetricTriL(a);
    a.setSelfAddDiag(2.0 * static_cast<ZtReal>(n) + 1.0);
    const Matrix original = a;
    const Vector b = randomVector(n);
    Vector x = b, residual(n), expected(n);
    x.setSolveCholesky(x, a);
    for (ZtSize i = 0; i < n; ++i) {
      ZtReal sum = 0.0;
      for (ZtSize k = 0; k < i; ++k) sum += a(k, i) * expected[k];
      expected[i] = (b[i] - sum) / a(i, i);
    }
    expected.setLeftDivideTriU(a, expected);
    EXPECT_EQ(x, expected);
    residual.setMatMulVec(original, x);
    EXPECT_TRUE(residual.isEqual(b, 1e-13));
    product.setTransMatMulMat(a, a);
    EXPECT_TRUE(product.isEqual(original, 1e-14 * original.maxAbsVal()));
  }
}

}  // namespace
}  // namespace dense_testing
