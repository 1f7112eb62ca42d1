#include <gtest/gtest.h>

#include <functional>
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

std::string messageOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const ZtException& e) {
    EXPECT_EQ(e.value, 256u);
    return e.what();
  }
  return "nothing thrown";
}

TEST(MatrixStorage, ConstructorsOwnWrapOrView) {
  EXPECT_EQ(Matrix(0, 5).cols, 0u);  // on purpose: no rows leave no columns either
  EXPECT_EQ(Matrix(5, 0).rows, 0u);
  EXPECT_EQ(Matrix().flags, 0u);
  Matrix parent = counted(4, 5);
  Matrix view(2, 3, parent, 1, 2);
  EXPECT_EQ(tableOf(view), (Table{{8, 9, 10}, {13, 14, 15}}));
  EXPECT_EQ(view.flags, 0u);
  Matrix copy(view);
  Matrix assigned;
  assigned = static_cast<const ZtMatrix&>(view);
  view(0, 0) = -1;
  EXPECT_EQ(parent(1, 2), -1);
  for (const Matrix* m : {&copy, &assigned}) {
    EXPECT_EQ((*m)(0, 0), 8);
    EXPECT_EQ(m->stride, 3u);
    EXPECT_EQ(m->flags, 1u);
  }
  view = copy;  // lets go of the parent instead of writing to it
  view(1, 1) = -2;
  EXPECT_EQ(parent(2, 3), 14);
  ZtReal buffer[6] = {};
  Matrix wrapped(2, 2, 3, buffer, 0);
  wrapped(1, 1) = 4;
  EXPECT_EQ(buffer[4], 4);
}

TEST(MatrixStorage, FlatIndicesFollowTheLogicalShapeNotTheStride) {
  Matrix parent = counted(3, 6);
  Matrix view(2, 3, 4, parent.data, 0);
  EXPECT_EQ(view.flatRow(5), view.data + 6);
  EXPECT_EQ(view.flatCol(5), view.data + 6);
  for (ZtSize r = 0; r < 2; ++r) {
    for (ZtSize c = 0; c < 3; ++c) {
      EXPECT_EQ(view.flatRow(r * 3 + c), &view(r, c));
      EXPECT_EQ(std::as_const(view).flatCol(c * 2 + r), &view(r, c));
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

TEST(MatrixStorage, EmptyMatricesTakeAnySize) {
  Matrix never(0, 0, 0, nullptr, 0);  // unmanaged, but without data
  never.changeSize(2, 3);
  EXPECT_EQ(never.flags, 1u);
  Matrix m = counted(2, 2);
  m.changeSize(0, 5);
  EXPECT_EQ(m.rows, 0u);
  EXPECT_EQ(m.cols, 5u);
  m.insertRows(0, 2, 3.0);
  EXPECT_EQ(tableOf(m), (Table{{3, 3, 3, 3, 3}, {3, 3, 3, 3, 3}}));
  Vector v;
  v.push_back(1.0);
  v.insertItems(0, 2, 4.0);
  v.insertItems(3, 1, 5.0);
  EXPECT_EQ(listOf(v), (std::vector<ZtReal>{4, 4, 1, 5}));
  v.changeSize(6);
  EXPECT_EQ(listOf(v), (std::vector<ZtReal>{4, 4, 1, 5, 0, 0}));
  v.changeSize(0);
  v.push_back(2.0);
  EXPECT_EQ(listOf(v), (std::vector<ZtReal>{2}));
}

TEST(MatrixStorage, ViewsRefuseToChangeSizeWithTheirOwnMessages) {
  Matrix parent = counted(4, 4);
  Matrix view(2, 3, parent, 0, 0);
  const std::vector<ZtReal> storage{1, 2, 3};
  Vector owner(3, storage.data());
  Vector slice(2, owner, 1);
  EXPECT_NO_THROW(view.changeSize(2, 3));
  EXPECT_NO_THROW(slice.changeSize(2));
  const struct {
    const char* message;
    std::function<void()> action;
  } cases[] = {
      {"void korin::Matrix::changeSize(ZtSize, ZtSize) resizing of this object is not allowed",
       [&] { view.changeSize(3, 2); }},
      {"void korin::Matrix::insertCols(ZtSize, ZtSize, ZtReal) resizing of this object is not "
       "allowed",
       [&] { view.insertCols(0, 0, 1.0); }},
      {"void korin::Matrix::insertRows(ZtSize, ZtSize, ZtReal) resizing of this object is not "
       "allowed",
       [&] { view.insertRows(0, 0, 1.0); }},
      {"void korin::Matrix::setTransposeSelf() Resizing of this object is not allowed",
       [&] { view.setTransposeSelf(); }},
      {"void korin::Vector::changeSize(ZtSize) Resizing of this object is not allowed",
       [&] { slice.changeSize(1); }},
      {"void korin::Vector::insertItems(ZtSize, ZtSize, ZtReal) Resizing of this object is not "
       "allowed",
       [&] { slice.insertItems(0, 0, 1.0); }},
      {"void korin::Vector::changeSize(ZtSize) Resizing of this object is not allowed",
       [&] { slice.push_back(1.0); }},
  };
  for (const auto& c : cases) EXPECT_EQ(messageOf(c.action), c.message);
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
  EXPECT_EQ(m.col(1).flags, 1u);
  const ZtReal inside = m.sumVal();
  EXPECT_EQ(parent.sumVal(), inside);
  std::vector<ZtReal> flat(16);
  m.toArray(flat.data());
  Matrix copy(4, 4, 6, parent.data, 0);
  copy.setArray(flat.data());
  EXPECT_EQ(copy.sumVal(), inside);
  EXPECT_EQ(copy(2, 1), 3);
  EXPECT_EQ(Matrix().col(0).size, 0u);
  EXPECT_EQ(listOf(Vector(ZtQuaternion{1, 2, 3, 4})), (std::vector<ZtReal>{1, 2, 3, 4}));
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
