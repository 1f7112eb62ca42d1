#include "math/containers/sparsemxmatrix.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using Matrix = korin::SparseMxMatrix<unsigned int, double>;

TEST(SparseMxMatrix, PartialInverseComesOutAtTheIndicesBeforeThePermutation) {
  std::vector<unsigned int> starts{0, 2, 3}, rows{0, 1, 1};
  std::vector<double> values{2, 1, 3};  // L L^T = [4 2; 2 10], whose inverse is [10 -2; -2 4] / 36
  const Matrix factor(2, 2, 3, values.data(), rows.data(), starts.data(), false);
  Matrix result(2, 2, 3);
  result.copy(factor);
  const unsigned int perm[] = {1, 0};
  factor.partialInverseCholesky(result, perm);
  EXPECT_EQ(std::vector(result.colStarts, result.colStarts + 3), (std::vector{0U, 1U, 3U}));
  EXPECT_EQ(std::vector(result.rowIndices, result.rowIndices + 3), (std::vector{0U, 0U, 1U}));
  const double expected[] = {4.0 / 36, -2.0 / 36, 10.0 / 36};
  for (int p = 0; p < 3; ++p) EXPECT_DOUBLE_EQ(result.values[p], expected[p]);
}

TEST(SparseMxMatrix, SetColReplacesOneColumnAndKeepsTheOthers) {
  std::vector<unsigned int> starts{0, 2, 3, 4}, rows{0, 1, 1, 2};
  std::vector<double> values{2, 1, 1, 3};
  Matrix own(3, 3, 0);
  EXPECT_EQ(own.capacity, 1U);
  Matrix view(3, 3, 4, values.data(), rows.data(), starts.data(), false);
  own.clone(view, false);
  EXPECT_EQ(own.values, values.data());
  Matrix full(3, 3, view.capacity);
  full.copy(view);
  const double dense[] = {5, 0, -7};
  full.setCol(1, dense, 9);
  EXPECT_TRUE(full.ownsStorage);
  EXPECT_EQ(full.capacity, 9U);
  EXPECT_EQ(std::vector(full.colStarts, full.colStarts + 4), (std::vector{0U, 2U, 4U, 5U}));
  EXPECT_EQ(std::vector(full.rowIndices, full.rowIndices + 5), (std::vector{0U, 1U, 0U, 2U, 2U}));
  EXPECT_EQ(std::vector(full.values, full.values + 5), (std::vector{2.0, 1.0, 5.0, -7.0, 3.0}));
}

}  // namespace
