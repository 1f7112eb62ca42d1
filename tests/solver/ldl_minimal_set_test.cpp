#include "solver/ldl_minimal_set.h"

#include "math/dense/korin_vector.h"
#include "tests/solver/assembly/entry_model.h"

namespace zeph_solver {
namespace {

// The set by its definition, with dense columns; of a square matrix with ones where A has entries.
Entries literalSet(const korin::Matrix& stored) {
  const std::size_t n = stored.rows;
  korin::Matrix set(n, n);
  set.setIdentity();
  for (std::size_t j = 0; j < n; ++j) {
    korin::Vector upper = set.col(j), lower(n);
    lower.setSub_zero(0, n);
    for (std::size_t k = 0; k <= j; ++k) {
      for (std::size_t r = 0; upper[k] != 0.0 && r < n; ++r) {
        if (stored(r, k) != 0.0 && k < r && r <= j) upper[r] = 1.0;
        if (stored(r, k) != 0.0 && std::max(j, k + 1) <= r) lower[r] = 1.0;
      }
    }
    upper.setVecAddVec(upper, set.col(j));
    upper[j] += lower[j];
    lower[j] = 0.0;
    set.setCol(upper, j);
    for (std::size_t c = 0; c < n; ++c) set(j, c) += lower[c];
  }
  return entriesOf(set);
}

TEST(LdlMinimalSetTest, EqualsTheDefinitionOnRandomPatterns) {
  std::mt19937 random(5);
  for (int trial = 0; trial < 400; ++trial) {
    const std::size_t n = 2 + random() % 24;
    const std::size_t cols = trial % 7 == 0 ? 2 + random() % (n - 1) : n;  // need not be square
    const bool dense = trial % 3 == 0;
    ProtoSparse A(n, cols);
    if (dense) A.makeDense();
    korin::Matrix stored(n, n);
    ZtMatrix_setZero(&stored);
    for (std::size_t count = random() % (3 * n); count > 0; --count) {
      const std::size_t r = random() % n, c = random() % cols;
      // A dense form keeps what is above 2^-52; a list keeps duplicates, tiny values and zeros.
      const double value = random() % 4 == 0 ? kDoubleEpsilon : -2.0;
      if (dense) (*A.denseBlock)(r, c) = value;
      if (!dense) A.addElement(r, c, value);
      stored(r, c) = dense && value == kDoubleEpsilon ? 0.0 : 1.0;
    }
    if (trial % 5 == 0) A.scalarMultiplication(dense ? 1.0 : 0.0);
    if (trial % 4 == 0) A.addSparseElement(n, random() % cols, 1.0);  // outside, so without effect
    ProtoSparse set;
    partialInverseLDLMinimalSet(A, set);
    ASSERT_TRUE(set.rowCount == n && set.colCount == n && set.isCompressed());
    ASSERT_EQ(entriesOf(set), literalSet(stored)) << "trial " << trial;
  }
}

// Wide gaps between the indices: the walk has to find the next one far away.
TEST(LdlMinimalSetTest, FarNeighbours) {
  constexpr std::size_t n = 300000;
  ProtoSparse A(n, n), set;
  Entries expected;
  for (std::size_t i = 0; i < n; ++i) expected[{i, i}] = i % 70000 == 0 && i > 0 ? 3.0 : 2.0;
  for (std::size_t i = 0; i + 70000 < n; i += 70000) {
    A.addElement(i + 70000, i, 1.0);
    expected[{i, i + 70000}] = 2.0;
  }
  partialInverseLDLMinimalSet(A, set);
  EXPECT_TRUE(entriesOf(set) == expected);
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
  EXPECT_EQ(entriesOf(used), (Entries{{{0, 0}, 2.0}, {{1, 0}, 9.0}, {{0, 1}, 2.0}, {{1, 1}, 3.0}}));
}

}  // namespace
}  // namespace zeph_solver
