#include "tests/solver/assembly/entry_model.h"

namespace zeph_solver {
namespace {

// Both modes, transposed or not, with and without offsets and resizing, against the entries.
TEST(ProtoSparseDenseForms, PutEveryEntryInItsPlace) {
  Dice dice;
  for (int round = 0; round < 1000; ++round) {
    ProtoSparse p = dice.sparse(dice.upTo(4), dice.upTo(4));
    if (dice.upTo(1) == 0) p.makeDense();
    const bool transpose = dice.upTo(1) == 0, resize = dice.upTo(1) == 0;
    const std::size_t rowOffset = dice.upTo(2), colOffset = dice.upTo(2);
    korin::Matrix parent = dice.matrix(9, 9), m(7, 7, parent, 1, 1);
    Entries expected = resize ? Entries() : entriesOf(m);
    Entries entries = entriesOf(p);
    for (std::size_t r = 0; r < p.rowCount; ++r) {
      for (std::size_t c = 0; c < p.colCount; ++c) {
        double& target =
            expected[{rowOffset + (transpose ? c : r), colOffset + (transpose ? r : c)}];
        // Without resizing a dense object overwrites its window, a sparse one adds into it.
        target = (p.isDense() ? 0.0 : target) + entries[{r, c}];
      }
    }
    p.toDenseMatrix(m, transpose, rowOffset, colOffset, resize);
    ASSERT_EQ(entriesOf(m), withoutZeros(expected)) << round;
    if (p.rowCount * p.colCount == 0) continue;
    ASSERT_EQ(m.rows, !resize ? 7 : rowOffset + (transpose ? p.colCount : p.rowCount));
    p.toDenseMatrix(m, transpose);
    ASSERT_EQ(m.cols, transpose ? p.rowCount : p.colCount);
    ZtVector v;
    for (unsigned int k = 0; k < m.rows; ++k) {  // rows of the transpose are columns of p
      p.getDenseColumn(k, v, !transpose);
      ASSERT_TRUE(std::equal(v.data, v.data + v.size, &m(k, 0), &m(k, 0) + m.cols)) << round;
    }
    if (!p.isDense()) continue;
    p.toDenseVector(v);
    ASSERT_TRUE(v.size == m.rows * m.cols &&
                std::equal(v.data, v.data + v.size, p.denseBlock->data));
    p.toDenseVectorSub(v, 1, static_cast<unsigned int>(v.size - 1));
    ASSERT_TRUE(v.size == m.rows * m.cols - 1 &&
                std::equal(v.data, v.data + v.size, p.denseBlock->data + 1));
  }
}

}  // namespace
}  // namespace zeph_solver
