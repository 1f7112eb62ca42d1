#include "solver/ldl_minimal_set.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <utility>
#include <vector>

namespace zeph_solver {
namespace {

using Dense = std::vector<std::vector<double>>;

// The set by its definition, with dense columns: `set[c][r]` is the marker at (r, c).
Dense literalSet(const std::vector<std::vector<bool>>& stored) {
  const std::size_t n = stored.size();
  Dense set(n, std::vector<double>(n, 0.0));
  for (std::size_t j = 0; j < n; ++j) set[j][j] = 1.0;
  for (std::size_t j = 0; j < n; ++j) {
    std::vector<double> upper = set[j];
    std::vector<double> lower(n, 0.0);
    for (std::size_t k = 0; k <= j; ++k) {
      if (upper[k] == 0.0) continue;
      for (std::size_t r = 0; r < n; ++r) {
        if (!stored[r][k]) continue;
        if (k < r && r <= j) upper[r] = 1.0;
        if (std::max(j, k + 1) <= r) lower[r] = 1.0;
      }
    }
    for (std::size_t r = 0; r < n; ++r) upper[r] += set[j][r];
    upper[j] += lower[j];
    lower[j] = 0.0;
    set[j] = upper;
    for (std::size_t c = 0; c < n; ++c) {
      if (c != j) set[c][j] += lower[c];
    }
  }
  return set;
}

void expectSet(const ProtoSparse& set, const Dense& expected) {
  ASSERT_EQ(set.rowCount, expected.size());
  ASSERT_EQ(set.colCount, expected.size());
  ASSERT_TRUE(set.isCompressed());
  std::map<std::pair<std::size_t, std::size_t>, double> found;
  for (const MatrixElement& e : set.elements) found[{e.row, e.col}] = e.value;
  std::map<std::pair<std::size_t, std::size_t>, double> wanted;
  for (std::size_t c = 0; c < expected.size(); ++c) {
    for (std::size_t r = 0; r < expected.size(); ++r) {
      if (expected[c][r] != 0.0) wanted[{r, c}] = expected[c][r];
    }
  }
  ASSERT_EQ(found, wanted);
}

TEST(LdlMinimalSetTest, EqualsTheDefinitionOnRandomPatterns) {
  std::mt19937 random(5);
  for (int trial = 0; trial < 400; ++trial) {
    const std::size_t n = 2 + random() % 24;
    const std::size_t cols = trial % 7 == 0 ? 2 + random() % (n - 1) : n;  // need not be square
    const bool dense = trial % 3 == 0;
    ProtoSparse A(n, cols);
    if (dense) A.makeDense();
    std::vector<std::vector<bool>> stored(n, std::vector<bool>(n, false));
    for (std::size_t count = random() % (3 * n); count > 0; --count) {
      const std::size_t r = random() % n;
      const std::size_t c = random() % cols;
      // A dense form keeps what is above 2^-52; a list keeps duplicates, tiny values and zeros.
      const double value = random() % 4 == 0 ? kDoubleEpsilon : -2.0;
      if (dense) {
        (*A.denseBlock)(r, c) = value;
        stored[r][c] = value != kDoubleEpsilon;
      } else {
        A.addElement(r, c, value);
        stored[r][c] = true;
      }
    }
    if (trial % 5 == 0) A.scalarMultiplication(dense ? 1.0 : 0.0);
    ProtoSparse set;
    partialInverseLDLMinimalSet(A, set);
    ASSERT_NO_FATAL_FAILURE(expectSet(set, literalSet(stored))) << "trial " << trial;
  }
}

// Wide gaps between the indices: the walk has to find the next one far away.
TEST(LdlMinimalSetTest, LongChains) {
  constexpr std::size_t n = 300000;
  ProtoSparse A(n, n), set;
  for (std::size_t i = 0; i + 70000 < n; i += 70000) A.addElement(i + 70000, i, 1.0);
  partialInverseLDLMinimalSet(A, set);
  std::size_t offDiagonal = 0;
  for (const MatrixElement& e : set.elements) {
    if (e.row == e.col) continue;
    ++offDiagonal;
    EXPECT_EQ(e.col - e.row, 70000u);
  }
  EXPECT_EQ(offDiagonal, 4u);
  EXPECT_EQ(set.elements.size(), n + 4);
}

TEST(LdlMinimalSetTest, SmallestSizesAndAnOutputInUse) {
  ProtoSparse empty, one(1, 1), set;
  partialInverseLDLMinimalSet(empty, set);
  EXPECT_EQ(set.elements.size(), 0u);
  partialInverseLDLMinimalSet(one, set);
  ASSERT_TRUE(set.isDense());
  EXPECT_EQ((*set.denseBlock)(0, 0), 2.0);

  ProtoSparse A(2, 2), used(2, 2);
  A.addElement(1, 0, 1.0);
  used.addElement(1, 0, 9.0);  // stays beside the set
  partialInverseLDLMinimalSet(A, used);
  ASSERT_EQ(used.elements.size(), 4u);
  EXPECT_EQ(used.elements[1].value, 9.0);
  EXPECT_EQ(used.elements[2].value, 2.0);
  EXPECT_EQ(used.elements[3].value, 3.0);
}

}  // namespace
}  // namespace zeph_solver
