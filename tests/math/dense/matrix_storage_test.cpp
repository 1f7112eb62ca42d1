#include "tests/math/dense/dense_testing.h"

namespace dense_testing {
namespace {

TEST(MatrixStorage, ConstructorsOwnWrapOrView) {
  EXPECT_TRUE(Matrix(0, 5).cols == 0 && Matrix(5, 0).rows == 0);  // on purpose: 0 x 0
  Matrix parent = matrixOf(3, 4, {1, 2, 3, 4, 5, 6, 7, 8, 9});
  Matrix view(2, 2, parent, 0, 1), assigned;
  const Matrix copy(view);
  assigned = static_cast<const ZtMatrix&>(view);
  view(1, 0) = -1;
  EXPECT_EQ(parent(1, 1), -1);
  EXPECT_TRUE(copy == matrixOf(2, 2, {2, 3, 6, 7}) && copy.stride == 2 && copy.flags == 1);
  EXPECT_EQ(assigned, copy);
  view = copy;  // lets go of the parent instead of writing to it
  EXPECT_EQ(parent(1, 1), -1);
}

TEST(MatrixStorage, FlatIndicesFollowTheLogicalShapeNotTheStride) {
  Matrix parent = matrixOf(2, 4, {1, 2, 3, 4, 5, 6, 7, 8});
  Matrix view(2, 3, 4, parent.data, 0);
  for (ZtSize i = 0; i < 6; ++i) {
    EXPECT_EQ(view.flatRow(i), parent.data + i / 3 * 4 + i % 3);
    EXPECT_EQ(std::as_const(view).flatCol(i), parent.data + i % 2 * 4 + i / 2);
  }
  EXPECT_EQ(Vector(view, 3), vectorOf({5, 6, 7}));  // row 1
  EXPECT_EQ(Vector(view, 1), vectorOf({2, 3, 4}));  // not row 1
}

// Random sequences of resizing operations against the same operations on a table of rows.
TEST(MatrixStorage, SizingMatchesATableOfRows) {
  std::mt19937 random(7);
  const auto below = [&](ZtSize n) { return static_cast<ZtSize>(random() % n); };
  for (int trial = 0; trial < 200; ++trial) {
    Matrix m = matrixOf(1, 1, {7});
    std::vector<std::vector<ZtReal>> model = {{7}};
    for (int step = 0; step < 10; ++step) {
      const ZtSize kind = below(3), count = below(3);
      const ZtSize before = below((kind == 0 ? m.rows : m.cols) + 1);
      const ZtReal value = 100.0 + step;
      if (kind == 0) {
        model.insert(model.begin() + before, count, std::vector<ZtReal>(m.cols, value));
        m.insertRows(before, count, value);
      } else if (kind == 1) {
        for (auto& row : model) row.insert(row.begin() + before, count, value);
        m.insertCols(before, count, value);
      } else {
        model.resize(1 + below(6));
        const ZtSize cols = 1 + below(6);
        for (auto& row : model) row.resize(cols, 0.0);
        m.changeSize(model.size(), cols);
      }
      ASSERT_TRUE(m.rows == model.size() && m.cols == model[0].size() && m.stride == m.cols);
      for (ZtSize r = 0; r < m.rows; ++r) ASSERT_EQ(m.row(r), vectorOf(model[r])) << step;
    }
  }
}

TEST(MatrixStorage, EmptyMatricesAndVectorsTakeAnySize) {
  Matrix m(0, 0, 0, nullptr, 0);  // unmanaged, but without data
  m.changeSize(2, 3);
  m.changeSize(0, 2);
  EXPECT_TRUE(m.rows == 0 && m.cols == 2 && m.flags == 1);
  m.insertRows(0, 2, 3.0);
  EXPECT_EQ(m, matrixOf(2, 2, {3, 3, 3, 3}));
  Vector v;
  v.push_back(1.0);
  v.insertItems(0, 2, 4.0);
  v.insertItems(3, 1, 5.0);
  v.changeSize(6);
  EXPECT_EQ(v, vectorOf({4, 4, 1, 5, 0, 0}));
  v.changeSize(0);
  v.push_back(2.0);
  EXPECT_EQ(v, vectorOf({2}));
}

TEST(MatrixStorage, ViewsRefuseToChangeSizeWithTheirOwnMessages) {
  Matrix parent = matrixOf(2, 4, {1, 2, 3}), view(2, 3, parent, 0, 0);
  Vector owner = parent.row(0), slice(2, owner, 1);
  view.changeSize(2, 3);
  slice.changeSize(2);
  const std::pair<std::function<void()>, std::string> cases[] = {
      {[&] { view.changeSize(3, 2); }, "Matrix::changeSize(ZtSize, ZtSize) resizing"},
      {[&] { view.insertCols(0, 0, 1.0); }, "Matrix::insertCols(ZtSize, ZtSize, ZtReal) resizing"},
      {[&] { view.insertRows(0, 0, 1.0); }, "Matrix::insertRows(ZtSize, ZtSize, ZtReal) resizing"},
      {[&] { view.setTransposeSelf(); }, "Matrix::setTransposeSelf() Resizing"},
      {[&] { slice.changeSize(1); }, "Vector::changeSize(ZtSize) Resizing"},
      {[&] { slice.insertItems(0, 0, 1.0); },
       "Vector::insertItems(ZtSize, ZtSize, ZtReal) Resizing"},
      {[&] { slice.push_back(1.0); }, "Vector::changeSize(ZtSize) Resizing"}};
  for (const auto& [action, start] : cases) {
    expectThrow(action, "void korin::" + start + " of this object is not allowed");
  }
  EXPECT_TRUE(view == matrixOf(2, 3, {1, 2, 3}) && slice == vectorOf({2, 3}));
}

TEST(MatrixStorage, RowsAndColumnsOfAViewStayInsideIt) {
  Matrix parent = matrixOf(6, 7, {}), m(4, 4, parent, 1, 2);
  m.setRow(vectorOf({1, 2, 3, 4}), 0);
  m.setRow(3.5, 1);
  m.setRow(ZtQuaternion{1, 2, 3, 4}, 2);
  m.setCol(ZtQuaternion{5, 6, 7, 8}, 3);
  m.setCol(vectorOf({1, 2, 3, 4}), 1);
  m.setCol(-9.0, 2);
  EXPECT_EQ(m, matrixOf(4, 4, {1, 1, -9, 5, 3.5, 2, -9, 6, 1, 3, -9, 7, 0, 4, -9, 8}));
  m.setRow_rowAddScaMulRow(3, 2.0, 1);
  EXPECT_TRUE(m.row(3) == vectorOf({7, 8, -27, 20}) && m.col(1) == vectorOf({1, 2, 3, 8}));
  EXPECT_EQ(parent.sumVal(), m.sumVal());  // nothing else was written
  std::vector<ZtReal> flat(16);
  m.toArray(flat.data());
  Matrix wide = matrixOf(4, 6, {}), part(4, 4, wide, 0, 0);
  part.setArray(flat.data());
  EXPECT_TRUE(part == m && wide.sumVal() == m.sumVal());
  EXPECT_EQ(Vector(ZtQuaternion{1, 2, 3, 4}), vectorOf({1, 2, 3, 4}));
}

TEST(MatrixStorage, SwapsExchangeOnlyTheGivenPart) {
  Matrix m = matrixOf(2, 4, {1, 2, 3, 4, 5, 6, 7, 8});
  m.swapRows(0, 1, 1, 2);
  EXPECT_EQ(m, matrixOf(2, 4, {1, 2, 7, 8, 5, 6, 3, 4}));
  m.swapCols(0, 2, 2, 1);
  const Matrix swapped = matrixOf(2, 4, {1, 2, 7, 8, 3, 4, 5, 6});
  EXPECT_EQ(m, swapped);
  m.swapRows(0, 1, 1, 4);
  m.swapRows(0, 1, 0, 0);
  m.swapCols(0, 1, 1, 2);
  m.swapCols(1, 1, 2, 0);
  EXPECT_EQ(m, swapped);
}

}  // namespace
}  // namespace dense_testing
