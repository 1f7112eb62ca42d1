#include "solver/assembly/compressed_columns.h"

#include "tests/solver/assembly/entry_model.h"

namespace zeph_solver {
namespace {

TEST(CompressedColumns, HoldEachPositionOnceInOrder) {
  const double pool[] = {0.0, kDoubleEpsilon, -2.3e-16, 3.0, -3.0, -kDoubleEpsilon};
  Dice dice;
  for (int round = 0; round < 1000; ++round) {
    ProtoSparse A = dice.sparse(dice.upTo(5), dice.upTo(5));
    for (MatrixElement& e : A.elements) e.value = pool[dice.upTo(5)];
    if (round % 2 == 0) A.makeDense();
    if (round % 3 == 0) A.setSize(A.rowCount - A.rowCount / 3, A.colCount - A.colCount / 4);
    A.sortElements();
    Entries expected;  // by (column, row); sums that come out as 0 stay in sparse mode
    for (const MatrixElement& e : A.elements) {
      // Shrinking leaves elements just outside the shape.
      const bool inside = !A.isDense() && e.row < A.rowCount && e.col < A.colCount;
      if (inside) expected[{e.col, e.row}] += e.value;
    }
    for (std::size_t k = 0; A.isDense() && k < A.rowCount * A.colCount; ++k) {
      const double v = *A.denseBlock->flatCol(k);
      if (std::fabs(v) > kDoubleEpsilon) expected[{k / A.rowCount, k % A.rowCount}] = v;
    }
    std::vector<unsigned int> p(A.colCount + 1, 99), i(A.nz());
    std::vector<double> x(A.nz());
    fillCompressedColumns(A, p.data(), i.data(), x.data());
    if (A.isDense() && A.denseBlock->cols == 0) {
      ASSERT_EQ(p[0], 99u);  // left to the caller
      continue;
    }
    Entries actual;
    for (std::size_t c = 0; c < A.colCount; ++c) {
      for (unsigned int k = p[c]; k < p[c + 1]; ++k) {
        ASSERT_TRUE(k == p[c] || i[k - 1] < i[k]);
        actual[{c, i[k]}] = x[k];
      }
    }
    ASSERT_TRUE(p[0] == 0 && p.back() == expected.size());
    ASSERT_EQ(actual, expected);
  }
}

}  // namespace
}  // namespace zeph_solver
