#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <vector>

#include "math/korin.h"

namespace {

using korin::Matrix;
using korin::Vector;
using Element = std::function<ZtReal(ZtSize, ZtSize)>;

constexpr ZtReal kNan = std::numeric_limits<ZtReal>::quiet_NaN();
constexpr ZtReal kInfinity = std::numeric_limits<ZtReal>::infinity();

std::mt19937& generator() {
  static std::mt19937 random(11);
  return random;
}

ZtReal randomReal() {
  return std::uniform_real_distribution<ZtReal>(-2.0, 2.0)(generator());
}

void fillRandom(ZtMatrix& m) {
  for (ZtSize r = 0; r < m.rows; ++r) {
    for (ZtSize c = 0; c < m.cols; ++c) m.data[r * m.stride + c] = randomReal();
  }
}

Matrix randomMatrix(ZtSize rows, ZtSize cols) {
  Matrix m(rows, cols);
  fillRandom(m);
  return m;
}

Vector randomVector(ZtSize size) {
  return size == 0 ? Vector() : randomMatrix(1, size).row(0);
}

// Symmetric, with eigenvalues of at least 1.
Matrix randomDefinite(ZtSize n) {
  Matrix m = randomMatrix(n, n);
  m.setSymmetricTriL(m);
  m.setSelfAddDiag(2.0 * static_cast<ZtReal>(n) + 1.0);
  return m;
}

bool sameBits(ZtReal x, ZtReal y) {
  return x == y || (std::isnan(x) && std::isnan(y));
}

// A random block of a larger matrix, which knows whether something outside it was written.
class Block {
 public:
  Block(ZtSize rows, ZtSize cols)
      : parent_(randomMatrix(rows + 3, cols + 2)),
        untouched_(parent_),
        view_(rows, cols, parent_, 2, 1) {}

  Matrix& get() { return view_; }

  bool outsideUntouched() const {
    for (ZtSize r = 0; r < parent_.rows; ++r) {
      for (ZtSize c = 0; c < parent_.cols; ++c) {
        const bool inside = r >= 2 && r < view_.rows + 2 && c >= 1 && c < view_.cols + 1;
        if (!inside && parent_(r, c) != untouched_(r, c)) return false;
      }
    }
    return true;
  }

 private:
  Matrix parent_;
  Matrix untouched_;
  Matrix view_;
};

void expectElements(const char* name, const Matrix& m, const Element& expected) {
  for (ZtSize r = 0; r < m.rows; ++r) {
    for (ZtSize c = 0; c < m.cols; ++c) {
      ASSERT_TRUE(sameBits(m(r, c), expected(r, c)))
          << name << " of " << m.rows << " x " << m.cols << " at (" << r << ", " << c
          << "): " << m(r, c) << " instead of " << expected(r, c);
    }
  }
}

// Sum of f(p) for p = 0..n-1 in this order from 0.0.
template <typename F>
ZtReal inOrder(ZtSize n, F f) {
  ZtReal sum = 0.0;
  for (ZtSize p = 0; p < n; ++p) sum += f(p);
  return sum;
}

// Every operation that writes a whole matrix, on blocks of several shapes, against its formula.
TEST(MatrixOperations, WriteTheFormulaIntoTheTargetAndNothingElse) {
  const std::pair<ZtSize, ZtSize> shapes[] = {{1, 1}, {1, 6}, {5, 1}, {3, 4}, {7, 7}, {40, 67}};
  for (const auto& [m, n] : shapes) {
    Block blockA(m, n), blockB(m, n), blockT(n, m), blockD(std::max(m, n), std::max(m, n));
    Matrix &a = blockA.get(), &b = blockB.get(), &t = blockT.get(), &d = blockD.get();
    const Vector left = randomVector(m), right = randomVector(n), longer = randomVector(m + n);
    const ZtReal s = 0.7, u = -1.3;
    Block target(m, n);
    Matrix& x = target.get();
    const Matrix old = x;
    const struct {
      const char* name;
      std::function<void()> run;
      Element expected;
    } cases[] = {
        {"setMatAddMat", [&] { x.setMatAddMat(a, b); },
         [&](auto i, auto j) { return a(i, j) + b(i, j); }},
        {"setMatSubMat", [&] { x.setMatSubMat(a, b); },
         [&](auto i, auto j) { return a(i, j) - b(i, j); }},
        {"setMatSubMat onto b", [&] { x.setMatSubMat(a, x); },
         [&](auto i, auto j) { return a(i, j) - old(i, j); }},
        {"setMatAddTransMatMulSca", [&] { x.setMatAddTransMatMulSca(a, t, s); },
         [&](auto i, auto j) { return (a(i, j) + t(j, i)) * s; }},
        {"setScaMulMat", [&] { x.setScaMulMat(s, a); },
         [&](auto i, auto j) { return s * a(i, j); }},
        {"setMatAddScaMulMat", [&] { x.setMatAddScaMulMat(a, s, b); },
         [&](auto i, auto j) { return a(i, j) + s * b(i, j); }},
        {"setSelfAddScaMulMat", [&] { x.setSelfAddScaMulMat(s, a); },
         [&](auto i, auto j) { return old(i, j) + s * a(i, j); }},
        {"setScaMulMatAddScaMulMat", [&] { x.setScaMulMatAddScaMulMat(s, a, u, b); },
         [&](auto i, auto j) { return s * a(i, j) + u * b(i, j); }},
        {"setAbs", [&] { x.setAbs(a); }, [&](auto i, auto j) { return std::fabs(a(i, j)); }},
        {"setSqrt", [&] { x.setSqrt(a); }, [&](auto i, auto j) { return std::sqrt(a(i, j)); }},
        {"setMatEMulMat", [&] { x.setMatEMulMat(a, b); },
         [&](auto i, auto j) { return a(i, j) * b(i, j); }},
        {"setMatEDivMat", [&] { x.setMatEDivMat(a, b); },
         [&](auto i, auto j) { return a(i, j) / b(i, j); }},
        {"setIdentity", [&] { x.setIdentity(); },
         [&](auto i, auto j) { return i == j ? 1.0 : 0.0; }},
        {"setIdentity of s", [&] { x.setIdentity(s); },
         [&](auto i, auto j) { return i == j ? s : 0.0; }},
        {"setMatAddIdentity", [&] { x.setMatAddIdentity(a); },
         [&](auto i, auto j) { return i == j ? a(i, j) + 1.0 : a(i, j); }},
        {"setSelfAddDiag, matrix", [&] { x.setSelfAddDiag(d); },
         [&](auto i, auto j) { return i == j ? old(i, j) + d(i, i) : old(i, j); }},
        {"setSelfAddDiag, vector", [&] { x.setSelfAddDiag(longer); },
         [&](auto i, auto j) { return i == j ? old(i, j) + longer[i] : old(i, j); }},
        {"setMatMulDiag, matrix", [&] { x.setMatMulDiag(a, d); },
         [&](auto i, auto j) { return a(i, j) * d(j, j); }},
        {"setMatMulDiag, vector", [&] { x.setMatMulDiag(a, longer); },
         [&](auto i, auto j) { return a(i, j) * longer[j]; }},
        {"setDiagMulMat, matrix", [&] { x.setDiagMulMat(d, a); },
         [&](auto i, auto j) { return a(i, j) * d(i, i); }},
        {"setDiagMulMat, vector", [&] { x.setDiagMulMat(longer, a); },
         [&](auto i, auto j) { return a(i, j) * longer[i]; }},
        {"setTransposeOf", [&] { x.setTransposeOf(t); }, [&](auto i, auto j) { return t(j, i); }},
        {"setTriU", [&] { x.setTriU(a); }, [&](auto i, auto j) { return i <= j ? a(i, j) : 0.0; }},
        {"setTriL onto itself", [&] { x.setTriL(x); },
         [&](auto i, auto j) { return i >= j ? old(i, j) : 0.0; }},
        {"setTransposeOfTriU", [&] { x.setTransposeOfTriU(t); },
         [&](auto i, auto j) { return i >= j ? t(j, i) : 0.0; }},
        {"setVecMulVec", [&] { x.setVecMulVec(left, right); },
         [&](auto i, auto j) { return left[i] * right[j]; }},
        {"setSub_scalar", [&] { x.setSub_scalar(s, 0, n / 2, m, n - n / 2); },
         [&](auto i, auto j) { return j >= n / 2 ? s : old(i, j); }},
        {"setSub_zero", [&] { x.setSub_zero(m / 2, 0, m - m / 2, n); },
         [&](auto i, auto j) { return i >= m / 2 ? 0.0 : old(i, j); }},
        {"setSub_mat", [&] { x.setSub_mat(a, m / 2, n / 3, m - m / 2, n - n / 3, 0, n / 3); },
         [&](auto i, auto j) { return i >= m / 2 && j >= n / 3 ? a(i - m / 2, j) : old(i, j); }},
        {"setSub_mat, whole", [&] { x.setSub_mat(Matrix(m - m / 3, n, a.data), m / 3, 0); },
         [&](auto i, auto j) { return i >= m / 3 ? a.data[(i - m / 3) * n + j] : old(i, j); }},
        {"setSub_identity", [&] { x.setSub_identity(0, n / 2, m, n - n / 2); },
         [&](auto i, auto j) { return j < n / 2        ? old(i, j)
                                      : j == i + n / 2 ? 1.0
                                                       : 0.0; }},
    };
    for (const auto& c : cases) {
      x.setSub_mat(old, 0, 0);
      c.run();
      expectElements(c.name, x, c.expected);
      ASSERT_TRUE(target.outsideUntouched()) << c.name;
    }
  }
}

TEST(MatrixOperations, SymmetricFormsAndTranspositionInPlace) {
  for (const ZtSize n : {0, 1, 2, 5, 31, 32, 33, 70}) {
    Block block(n, n);
    Matrix& x = block.get();
    const Matrix old = x;
    x.setTransposeSelf();
    expectElements("setTransposeSelf", x, [&](auto i, auto j) { return old(j, i); });
    x.setSymmetricTriL(x);
    expectElements("setSymmetricTriL", x,
                   [&](auto i, auto j) { return old(std::min(i, j), std::max(i, j)); });
    EXPECT_TRUE(block.outsideUntouched());
  }
  const Matrix wide = randomMatrix(3, 40);
  Matrix tall = wide;
  tall.setTransposeSelf();
  EXPECT_EQ(tall.stride, 3u);
  EXPECT_EQ(tall.rows, 40u);
  expectElements("setTransposeSelf", tall, [&](auto i, auto j) { return wide(j, i); });
  ZtReal buffer[5] = {};
  Matrix empty(0, 5, 5, buffer, 0);  // a view, but nothing has to move
  empty.setTransposeSelf();
  EXPECT_EQ(empty.rows, 5u);
  EXPECT_EQ(empty.cols, 0u);
  EXPECT_EQ(empty.data, buffer);
}

TEST(MatrixOperations, ProductsSumInIncreasingInnerIndex) {
  const ZtSize shapes[][3] = {{1, 1, 1}, {3, 5, 2}, {8, 4, 17}, {13, 29, 9}, {17, 0, 3}};
  for (const auto& [m, k, n] : shapes) {
    Block blockA(m, k), blockB(k, n);
    const Matrix &a = blockA.get(), &b = blockB.get();
    const Vector v = randomVector(k), w = randomVector(m);
    Vector y(m), z(k);
    Block column(m, 1), row(1, k);
    y.setMatMulVec(a, v);
    column.get().setMatMulVec(a, v);
    z.setVecMulMat(w, a);
    row.get().setVecMulMat(w, a);
    for (ZtSize i = 0; i < m; ++i) {
      ASSERT_EQ(y[i], inOrder(k, [&](ZtSize p) { return a(i, p) * v[p]; }));
      ASSERT_EQ(column.get()(i, 0), y[i]);
    }
    for (ZtSize j = 0; j < k; ++j) {
      ASSERT_EQ(z[j], inOrder(m, [&](ZtSize p) { return w[p] * a(p, j); }));
      ASSERT_EQ(row.get()(0, j), z[j]);
    }
    EXPECT_TRUE(column.outsideUntouched() && row.outsideUntouched());

    Block at(k, m);
    at.get().setTransposeOf(a);
    Block product(m, n);
    product.get().setTransMatMulMat(at.get(), b);
    expectElements("setTransMatMulMat", product.get(), [&](auto i, auto j) {
      return inOrder(k, [&](ZtSize p) { return a(i, p) * b(p, j); });
    });

    const Matrix square = randomMatrix(k, k);
    const auto aSquare = [&](ZtSize i, ZtSize q) {
      return inOrder(k, [&](ZtSize p) { return a(i, p) * square(p, q); });
    };
    Matrix congruent(m, m);
    congruent.setABAt(a, square);
    expectElements("setABAt", congruent, [&](auto i, auto j) {
      return inOrder(k, [&](ZtSize q) { return aSquare(i, q) * a(j, q); });
    });
    Matrix swapped(m, m);
    swapped.setAtBA(at.get(), square);
    expectElements("setAtBA", swapped, [&](auto i, auto j) { return congruent(i, j); });
  }
}

TEST(VectorOperations, AreTheMatrixOperationsOfOneRow) {
  for (const ZtSize n : {0, 1, 5, 12}) {
    const Vector a = randomVector(n), b = randomVector(n), old = randomVector(n);
    Vector x = old;
    const struct {
      std::function<void()> run;
      std::function<ZtReal(ZtSize)> expected;
    } cases[] = {
        {[&] { x.setVecAddVec(a, b); }, [&](ZtSize i) { return a[i] + b[i]; }},
        {[&] { x.setVecSubVec(a, x); }, [&](ZtSize i) { return a[i] - old[i]; }},
        {[&] { x.setScaMulVec(3.0, a); }, [&](ZtSize i) { return 3.0 * a[i]; }},
        {[&] { x.setVecAddScaMulVec(a, 3.0, b); }, [&](ZtSize i) { return a[i] + 3.0 * b[i]; }},
        {[&] { x.setSelfAddScaMulVec(3.0, b); }, [&](ZtSize i) { return old[i] + 3.0 * b[i]; }},
        {[&] { x.setScaMulVecAddScaMulVec(3.0, a, 0.1, b); },
         [&](ZtSize i) { return 3.0 * a[i] + 0.1 * b[i]; }},
        {[&] { x.setAbs(a); }, [&](ZtSize i) { return std::fabs(a[i]); }},
        {[&] { x.setSqrt(a); }, [&](ZtSize i) { return std::sqrt(a[i]); }},
        {[&] { x.setVecEMulVec(a, b); }, [&](ZtSize i) { return a[i] * b[i]; }},
        {[&] { x.setVecEDivVec(a, b); }, [&](ZtSize i) { return a[i] / b[i]; }},
        {[&] { x.setSub_zero(n / 2, n / 4); },
         [&](ZtSize i) { return i >= n / 2 && i < n / 2 + n / 4 ? 0.0 : old[i]; }},
        {[&] { x.setSub_vec(a, n / 2, n / 3, n / 4); },
         [&](ZtSize i) { return i >= n / 2 && i < n / 2 + n / 3 ? a[i - n / 2 + n / 4] : old[i]; }},
    };
    for (ZtSize k = 0; k < std::size(cases); ++k) {
      x = old;
      cases[k].run();
      for (ZtSize i = 0; i < n; ++i) ASSERT_TRUE(sameBits(x[i], cases[k].expected(i))) << k;
    }
  }
  const Matrix m = randomMatrix(4, 6);
  Vector four(4), six(6);
  four.setMatCol(m, 5);
  six.setMatRow(m, 3);
  EXPECT_EQ(four, m.col(5));
  EXPECT_EQ(six, m.row(3));
  four.setDiag(m);
  for (ZtSize i = 0; i < 4; ++i) EXPECT_EQ(four[i], m(i, i));
}

TEST(MatrixQueries, StatisticsAndComparisons) {
  const ZtReal values[] = {3, -7, 0.5, -0.0, 2, 4};
  Matrix m(2, 3, values);
  const Vector v(6, values);
  EXPECT_EQ(m.trace(), 5.0);
  EXPECT_EQ(m.countNonZeros(), 5u);
  EXPECT_EQ(m.sumVal(), 2.5);
  EXPECT_EQ(v.sumSquaredVal(), 9 + 49 + 0.25 + 4 + 16);
  EXPECT_EQ(v.avgVal(), 2.5 / 6);
  EXPECT_EQ(m.minVal(), -7.0);
  EXPECT_EQ(v.maxVal(), 4.0);
  EXPECT_EQ(v.maxAbsVal(), 7.0);
  EXPECT_TRUE(m.isValid() && v.isValid());

  Matrix other = m;
  EXPECT_TRUE(m == other);
  other(1, 2) += 0.25;
  EXPECT_TRUE(m != other && m.isEqual(other, 0.25) && !m.isEqual(other, 0.2));
  EXPECT_FALSE(m == Matrix(3, 2, values));  // the same elements in another shape
  EXPECT_TRUE(v != Vector(5, values));
  m(0, 1) = other(0, 1) = kInfinity;
  EXPECT_TRUE(m.isEqual(other, 1.0));
  EXPECT_FALSE(m.isValid());
  m(0, 1) = other(0, 1) = kNan;
  EXPECT_FALSE(m.isEqual(other, 1.0));
  EXPECT_EQ(m.countNonZeros(), 5u);
  EXPECT_EQ(m.minVal(), -0.0);

  const Matrix none;
  EXPECT_EQ(none.minVal(), kInfinity);
  EXPECT_EQ(none.maxVal(), -kInfinity);
  EXPECT_TRUE(std::isnan(none.avgVal()));
  EXPECT_EQ(none.maxAbsVal() + none.sumVal() + static_cast<ZtReal>(none.countNonZeros()), 0.0);
}

// The solves against the recurrences written down element by element, to the last bit, with junk
// in the triangle that must not be read.
TEST(TriangularSolves, FollowTheirOrderOfOperations) {
  for (const ZtSize n : {0, 1, 2, 7, 8, 9, 16, 27}) {
    Matrix a = randomMatrix(n, n);
    a.setSelfAddDiag(4.0);
    Matrix upper = a, lower = a;
    for (ZtSize i = 0; i < n; ++i) {
      for (ZtSize j = 0; j < i; ++j) upper(i, j) = lower(j, i) = kNan;
    }
    const Vector b = randomVector(n);
    Vector expected(n);
    for (ZtSize r = n; r-- > 0;) {
      ZtReal s = b[r];
      for (ZtSize q = 1; r + q < n; ++q) s -= a(r, r + q) * expected[r + q];
      expected[r] = s / a(r, r);
    }
    Vector x = b;
    x.setLeftDivideTriU(upper, x);
    EXPECT_EQ(x, expected) << n;
    for (ZtSize r = 0; r < n; ++r) {
      ZtReal s = b[r];
      for (ZtSize c = 0; c < r; ++c) s -= a(r, c) * expected[c];
      expected[r] = s / a(r, r);
    }
    x = b;
    x.setLeftDivideTriL(lower, x);
    EXPECT_EQ(x, expected) << n;
    x.setLeftDivideDiag(a, b);
    for (ZtSize i = 0; i < n; ++i) EXPECT_EQ(x[i], b[i] / a(i, i));
  }
}

// Column by column on the lower triangle, as the blocked implementation has to round. Returns the
// pivot that failed, or n.
ZtSize choleskyByColumns(Matrix& a) {
  const ZtSize n = a.rows;
  for (ZtSize k = 0; k < n; ++k) {
    if (0.0 >= a(k, k)) return k;
    a(k, k) = std::sqrt(a(k, k));
    const ZtReal inverse = 1.0 / a(k, k);
    for (ZtSize i = k + 1; i < n; ++i) a(i, k) *= inverse;
    for (ZtSize j = k + 1; j < n; ++j) {
      for (ZtSize i = j; i < n; ++i) a(i, j) -= a(i, k) * a(j, k);
    }
  }
  a.setTriL(a);
  return n;
}

TEST(Cholesky, MatchesTheColumnByColumnFactorToTheLastBit) {
  for (const ZtSize n : {0, 1, 2, 47, 48, 49, 97, 300}) {
    for (const ZtSize spoilt : {n, n / 2, ZtSize{0}, n - 1}) {
      Matrix expected = randomDefinite(n);
      if (n != 0 && spoilt < n) expected(spoilt, spoilt) = spoilt % 2 == 0 ? 0.0 : -1.0;
      for (ZtSize i = 0; i < n; ++i) {
        for (ZtSize j = i + 1; j < n; ++j) expected(i, j) = 1e300;  // never read
      }
      Block block(n, n);
      Matrix& x = block.get();
      x.setSub_mat(expected, 0, 0);
      const ZtSize failed = choleskyByColumns(expected);
      EXPECT_EQ(x.setCholesky(false), failed == n);
      EXPECT_EQ(x, expected) << n << " failing at " << failed;
      EXPECT_TRUE(block.outsideUntouched());
    }
  }
}

TEST(Cholesky, FailuresAreReportedAndNanIsCarriedOn) {
  const ZtReal indefinite[] = {1, 2, 2, 1};
  Matrix m(2, 2, indefinite);
  Vector x(2);
  try {
    x.setSolveCholesky(Vector(2, indefinite), m);
    ADD_FAILURE();
  } catch (const ZtException& e) {
    EXPECT_STREQ(e.what(),
                 "bool korin::Matrix::setCholesky(bool) matrix not symmetric positive-definite");
  }
  const ZtReal left[] = {1, 2, 2, -3};
  EXPECT_EQ(m, Matrix(2, 2, left));
  const ZtReal invalid[] = {kNan, 0, 1, 2};
  m = Matrix(2, 2, invalid);
  EXPECT_TRUE(m.setCholesky(true));
  EXPECT_TRUE(std::isnan(m(1, 0)) && std::isnan(m(1, 1)));

  const ZtReal diagonal[] = {2, 5, 5, 5, 0, 5, 5, 5, 4};
  Matrix inverse(3, 3, diagonal);
  try {
    inverse.setInverseDiagonal(inverse);
    ADD_FAILURE();
  } catch (const ZtException& e) {
    EXPECT_STREQ(e.what(),
                 "void korin::Matrix::setInverseDiagonal(const ZtMatrix&) matrix is singular");
  }
  EXPECT_EQ(inverse(0, 0), 0.5);
  EXPECT_EQ(inverse.sumVal(), 34.5);
}

TEST(Cholesky, SolveLeavesTheTransposedFactor) {
  const ZtReal values[] = {4, 2, 2, 3};
  const ZtReal right[] = {2, 1};
  const ZtReal factor[] = {2, 1, 0, std::sqrt(2.0)};
  Matrix a(2, 2, values);
  Vector x(2, right);
  x.setSolveCholesky(x, a);
  EXPECT_TRUE(a.isEqual(Matrix(2, 2, factor), 1e-15));
  EXPECT_NEAR(x[0], 0.5, 1e-15);
  EXPECT_NEAR(x[1], 0.0, 1e-15);
  for (const ZtSize n : {0, 3, 80}) {
    Matrix m = randomDefinite(n);
    const Matrix original = m;
    const Vector b = randomVector(n);
    Vector solution(n), residual(n);
    solution.setSolveCholesky(b, m);
    residual.setMatMulVec(original, solution);
    EXPECT_TRUE(residual.isEqual(b, 1e-13));
    Matrix product(n, n), lower(n, n);
    lower.setTransposeOf(m);
    for (ZtSize i = 0; i < n; ++i) {
      for (ZtSize j = 0; j < n; ++j) {
        product(i, j) = inOrder(n, [&](ZtSize p) { return lower(i, p) * m(p, j); });
      }
    }
    EXPECT_TRUE(product.isEqual(original, 1e-12 * static_cast<ZtReal>(n)));
  }
}

}  // namespace
