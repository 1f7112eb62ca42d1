#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "math/korin.h"

namespace {

using korin::Matrix;
using korin::Vector;
using Table = std::vector<std::vector<ZtReal>>;

Table tableOf(const ZtMatrix& m) {
  Table table(m.rows, std::vector<ZtReal>(m.cols));
  for (ZtSize r = 0; r < m.rows; ++r) {
    for (ZtSize c = 0; c < m.cols; ++c) table[r][c] = m.data[r * m.stride + c];
  }
  return table;
}

std::vector<ZtReal> listOf(const ZtVector& v) {
  return std::vector<ZtReal>(v.data, v.data + v.size);
}

// 1, 2, 3, ... row by row.
Matrix counted(ZtSize rows, ZtSize cols) {
  std::vector<ZtReal> values(rows * cols);
  for (ZtSize i = 0; i < values.size(); ++i) values[i] = static_cast<ZtReal>(i + 1);
  return Matrix(rows, cols, values.data());
}

TEST(MatrixStorage, ConstructorsOwnWrapOrView) {
  EXPECT_TRUE(Matrix(0, 5).cols == 0 && Matrix(5, 0).rows == 0);  // on purpose: 0 x 0
  Matrix parent = counted(4, 5);
  Matrix view(2, 3, parent, 1, 2);
  EXPECT_EQ(tableOf(view), (Table{{8, 9, 10}, {13, 14, 15}}));
  const Matrix copy(view);
  Matrix assigned;
  assigned = static_cast<const ZtMatrix&>(view);
  view(0, 0) = -1;
  EXPECT_EQ(parent(1, 2), -1);
  EXPECT_TRUE(copy(0, 0) == 8 && copy.stride == 3 && copy.flags == 1);
  EXPECT_EQ(assigned, copy);
  view = copy;  // lets go of the parent instead of writing to it
  EXPECT_EQ(parent(1, 2), -1);
}

TEST(MatrixStorage, FlatIndicesFollowTheLogicalShapeNotTheStride) {
  Matrix parent = counted(3, 4);
  Matrix view(2, 3, 4, parent.data, 0);
  for (ZtSize r = 0; r < 2; ++r) {
    for (ZtSize c = 0; c < 3; ++c) {
      EXPECT_EQ(view.flatRow(r * 3 + c), parent.data + r * 4 + c);
      EXPECT_EQ(std::as_const(view).flatCol(c * 2 + r), parent.data + r * 4 + c);
    }
  }
  EXPECT_EQ(listOf(Vector(view, 3)), (std::vector<ZtReal>{5, 6, 7}));  // row 1
  EXPECT_EQ(listOf(Vector(view, 1)), (std::vector<ZtReal>{2, 3, 4}));  // not row 1
}

// Random sequences of resizing operations against the same operations on a table of rows.
TEST(MatrixStorage, SizingMatchesATableOfRows) {
  std::mt19937 random(7);
  const auto below = [&](ZtSize n) { return static_cast<ZtSize>(random() % n); };
  for (int trial = 0; trial < 200; ++trial) {
    const ZtSize rows = 1 + below(4);
    const ZtSize cols = 1 + below(4);
    Matrix m = counted(rows, cols);
    Table model = tableOf(m);
    for (int step = 0; step < 6; ++step) {
      const ZtSize count = below(3);
      const ZtReal value = 100.0 + step;
      const ZtSize kind = below(3);
      if (kind == 0) {
        const ZtSize before = below(m.rows + 1);
        model.insert(model.begin() + before, count, std::vector<ZtReal>(m.cols, value));
        m.insertRows(before, count, value);
      } else if (kind == 1) {
        const ZtSize before = below(m.cols + 1);
        for (auto& row : model) row.insert(row.begin() + before, count, value);
        m.insertCols(before, count, value);
      } else {
        const ZtSize newRows = 1 + below(6);
        const ZtSize newCols = 1 + below(6);
        model.resize(newRows);
        for (auto& row : model) row.resize(newCols, 0.0);
        m.changeSize(newRows, newCols);
      }
      ASSERT_EQ(tableOf(m), model) << "trial " << trial << " step " << step;
      ASSERT_EQ(m.stride, m.cols);
    }
  }
}

TEST(MatrixStorage, EmptyMatricesAndVectorsTakeAnySize) {
  Matrix m(0, 0, 0, nullptr, 0);  // unmanaged, but without data
  m.changeSize(2, 3);
  m.changeSize(0, 5);
  EXPECT_TRUE(m.rows == 0 && m.cols == 5 && m.flags == 1);
  m.insertRows(0, 2, 3.0);
  EXPECT_EQ(tableOf(m), (Table{{3, 3, 3, 3, 3}, {3, 3, 3, 3, 3}}));
  Vector v;
  v.push_back(1.0);
  v.insertItems(0, 2, 4.0);
  v.insertItems(3, 1, 5.0);
  v.changeSize(6);
  EXPECT_EQ(listOf(v), (std::vector<ZtReal>{4, 4, 1, 5, 0, 0}));
  v.changeSize(0);
  v.push_back(2.0);
  EXPECT_EQ(listOf(v), (std::vector<ZtReal>{2}));
}

TEST(MatrixStorage, ViewsRefuseToChangeSizeWithTheirOwnMessages) {
  Matrix parent = counted(4, 4), view(2, 3, parent, 0, 0);
  Vector owner = parent.row(0), slice(2, owner, 1);
  view.changeSize(2, 3);
  slice.changeSize(2);
  const auto expectThrow = [](auto action, const std::string& message) {
    try {
      action();
      ADD_FAILURE() << message;
    } catch (const ZtException& e) {
      EXPECT_EQ(e.value, 256u);
      EXPECT_EQ(e.what(), message + " of this object is not allowed");
    }
  };
  expectThrow([&] { view.changeSize(3, 2); },
              "void korin::Matrix::changeSize(ZtSize, ZtSize) resizing");
  expectThrow([&] { view.insertCols(0, 0, 1.0); },
              "void korin::Matrix::insertCols(ZtSize, ZtSize, ZtReal) resizing");
  expectThrow([&] { view.insertRows(0, 0, 1.0); },
              "void korin::Matrix::insertRows(ZtSize, ZtSize, ZtReal) resizing");
  expectThrow([&] { view.setTransposeSelf(); }, "void korin::Matrix::setTransposeSelf() Resizing");
  expectThrow([&] { slice.changeSize(1); }, "void korin::Vector::changeSize(ZtSize) Resizing");
  expectThrow([&] { slice.insertItems(0, 0, 1.0); },
              "void korin::Vector::insertItems(ZtSize, ZtSize, ZtReal) Resizing");
  expectThrow([&] { slice.push_back(1.0); }, "void korin::Vector::changeSize(ZtSize) Resizing");
  EXPECT_EQ(tableOf(view), (Table{{1, 2, 3}, {5, 6, 7}}));
  EXPECT_EQ(listOf(slice), (std::vector<ZtReal>{2, 3}));
}

TEST(MatrixStorage, RowsAndColumnsOfAViewStayInsideIt) {
  Matrix parent(6, 7);
  parent.setIdentity(0.0);
  Matrix m(4, 4, parent, 1, 2);
  m.setRow(Vector(4, counted(1, 4).data), 0);
  m.setRow(3.5, 1);
  m.setRow(ZtQuaternion{1, 2, 3, 4}, 2);
  m.setCol(ZtQuaternion{5, 6, 7, 8}, 3);
  m.setCol(counted(1, 4).data, 1);
  m.setCol(-9.0, 2);
  EXPECT_EQ(tableOf(m), (Table{{1, 1, -9, 5}, {3.5, 2, -9, 6}, {1, 3, -9, 7}, {0, 4, -9, 8}}));
  m.setRow_rowAddScaMulRow(3, 2.0, 1);
  EXPECT_EQ(listOf(m.row(3)), (std::vector<ZtReal>{7, 8, -27, 20}));
  EXPECT_EQ(listOf(m.col(1)), (std::vector<ZtReal>{1, 2, 3, 8}));
  EXPECT_EQ(parent.sumVal(), m.sumVal());  // nothing else was written
  std::vector<ZtReal> flat(16);
  m.toArray(flat.data());
  Matrix wide = counted(4, 6), part(4, 4, wide, 0, 0);
  part.setArray(flat.data());
  EXPECT_TRUE(part == m && wide(2, 4) == 17);
  EXPECT_EQ(Vector(ZtQuaternion{1, 2, 3, 4}), counted(1, 4).row(0));
}

TEST(MatrixStorage, SwapsExchangeOnlyTheGivenPart) {
  Matrix m = counted(2, 4);
  m.swapRows(0, 1, 1, 2);
  EXPECT_EQ(tableOf(m), (Table{{1, 2, 7, 8}, {5, 6, 3, 4}}));
  m = counted(3, 4);
  m.swapCols(0, 2, 2, 1);
  EXPECT_EQ(tableOf(m), (Table{{1, 2, 3, 4}, {7, 8, 5, 6}, {11, 12, 9, 10}}));
  const Table before = tableOf(m);
  m.swapRows(0, 1, 1, 4);
  m.swapRows(0, 1, 0, 0);
  m.swapCols(0, 1, 1, 3);
  m.swapCols(1, 1, 2, 0);
  EXPECT_EQ(tableOf(m), before);
}

}  // namespace
