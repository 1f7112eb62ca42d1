#include "solver/assembly/protosparse.h"

#include <new>
#include <stdexcept>

#include "solver/assembly/element_count.h"
#include "solver/ldl_minimal_set.h"
#include "solver/selected_inverse.h"
#include "tests/solver/assembly/entry_model.h"

namespace zeph_solver {
namespace {

// A ProtoSparse beside its model: what the list sums to, and what the block holds.
struct Pair {
  Dice& dice;
  ProtoSparse p;
  Entries list = {}, block = {};

  Entries& active() { return p.isDense() ? block : list; }

  // Adds an element, vector or matrix (a view with a wide stride) of random place and size.
  void insert() {
    if (p.rowCount == 0 || p.colCount == 0) return;
    const std::size_t kind = dice.upTo(4), r = dice.upTo(p.rowCount - 1),
                      c = dice.upTo(p.colCount - 1);
    const bool transpose = kind == 1 || kind == 4;
    std::size_t rows = kind == 0 || kind == 2 ? 1 : dice.upTo(p.rowCount - r);
    std::size_t cols = kind == 0 || kind == 1 ? 1 : dice.upTo(p.colCount - c);
    if (transpose) std::swap(rows, cols);
    korin::Matrix parent = dice.matrix(rows, cols + 3);
    korin::Matrix m(parent.rows, cols, parent, 0, 0);
    for (ZtSize i = 0; i < m.rows; ++i) {
      for (ZtSize j = 0; j < cols; ++j) {
        active()[{r + (transpose ? j : i), c + (transpose ? i : j)}] += m(i, j);
      }
    }
    const ZtVector v(kind == 1 || kind == 2 ? cols : 0, m.data);
    if (kind == 0) p.addElement(r, c, m(0, 0));
    if (kind == 1) p.addDenseVector(v, r, c, ProtoSparse::Vertical);
    if (kind == 2) p.addDenseVector(v, r, c, static_cast<ProtoSparse::Direction>(1 + dice.upTo(1)));
    if (kind >= 3) p.addDenseMatrix(m, r, c, transpose);
  }

  void change() {
    const std::size_t kind = dice.upTo(12), rows = dice.upTo(7), cols = dice.upTo(7);
    const bool vectorShaped = p.rowCount < 2 || p.colCount < 2;
    if (kind < 4) {
      if (rows < p.rowCount || cols < p.colCount) {  // elements just outside survive
        std::erase_if(list, [&](auto& e) { return e.first.first > rows || e.first.second > cols; });
      }
      const bool dense = p.isDense() || rows == 1 || cols == 1;
      if (!p.isDense()) block.clear();
      p.setSize(rows, cols);
      EXPECT_EQ(p.isDense(), dense);
      EXPECT_TRUE(!dense || (p.denseBlock->rows == rows && p.denseBlock->cols == cols));
    } else if (kind == 4) {
      if (!p.isDense()) block = std::exchange(list, {});
      p.makeDense();
    } else if (kind == 5) {
      if (p.isDense() && !vectorShaped) {
        for (auto& [place, value] : std::exchange(block, {})) list[place] += value;
      }
      EXPECT_EQ(!p.isDense() || !vectorShaped, p.makeSparse());
    } else if (kind == 6) {
      p.scalarMultiplication(-0.5 * static_cast<double>(rows));
      for (auto& e : active()) e.second *= -0.5 * static_cast<double>(rows);
    } else if (kind == 7) {
      p.clear();
      active().clear();
    } else if (kind == 8) {  // erases a dense object, leaves a sparse one alone
      p.reserve(rows);
      block.clear();
    } else if (kind == 9) {  // by way of a copy and of an object that was something else
      ProtoSparse other = dice.sparse(rows, cols);
      other = ProtoSparse(p);
      p = dice.sparse(cols, rows);
      p = *&(p = other);
      ProtoSparse moved(std::move(p));
      EXPECT_TRUE(p.rowCount + p.colCount + p.elements.capacity() == 0 && !p.isDense());
      p = std::move(moved);
      if (p.isDense()) list.clear();
    }
    std::erase_if(block, [&](auto& e) {
      return e.first.first >= p.rowCount || e.first.second >= p.colCount;
    });
  }
};

TEST(ProtoSparseStorage, AgreesWithAModelOverRandomOperations) {
  Dice dice;
  for (int sequence = 0; sequence < 300; ++sequence) {
    korin::Matrix m = dice.matrix(dice.upTo(6), dice.upTo(6));
    const bool transpose = sequence % 2 == 0;
    Pair pair{dice, ProtoSparse(m, transpose)};
    const ProtoSparse& p = pair.p;
    if (transpose) m.setTransposeSelf();
    pair.active() = entriesOf(m);
    EXPECT_TRUE(p.isCompressed() && p.nz() == pair.active().size());
    EXPECT_EQ(p.isDense(), p.rowCount == 1 || p.colCount == 1);
    for (int step = 0; step < 40; ++step) {
      for (std::size_t k = dice.upTo(3); k > 0; --k) pair.insert();
      pair.change();
      ASSERT_EQ(entriesOf(p.elements), withoutZeros(pair.list)) << sequence << " " << step;
      ASSERT_EQ(entriesOf(p), withoutZeros(pair.active())) << sequence << " " << step;
      ASSERT_EQ(p.nz(), p.isDense() ? entriesOf(p).size() : p.elements.size());
    }
  }
}

TEST(ProtoSparseStorage, ReservesByTheDefaultRuleAndNeverShrinks) {
  const std::uint64_t two32 = std::uint64_t{1} << 32;
  const std::uint64_t cases[][3] = {{0, 0, 1024},   {10, 10, 1024},          {2, 257, 1028},
                                    {500, 5, 5000}, {50, 100, 10000},        {50, 101, 302},
                                    {1, 5000, 0},   {two32, two32 / 2, 1024}};
  for (const auto& [rows, cols, capacity] : cases) {
    ProtoSparse p(rows, cols);
    EXPECT_EQ(p.elements.capacity(), capacity) << rows << " x " << cols;
    if (p.isDense()) continue;
    p.reserve(20000);
    p.setSize(10, 10);
    EXPECT_GE(ProtoSparse(p).elements.capacity(), 20000u);
  }
  EXPECT_THROW(ProtoSparse().reserve((std::size_t{1} << 60) - 1), std::bad_alloc);
  try {
    ProtoSparse().setSize(std::size_t{1} << 62, 3);
    ADD_FAILURE() << "not refused";
  } catch (const std::length_error& e) {
    EXPECT_STREQ(e.what(), "vector::reserve");
  }
}

TEST(ProtoSparseStorage, CountsBeyondIndicesAndMemoryAreRefused) {
  constexpr std::size_t most = 2147483647;
  EXPECT_EQ(requireCountable(most), most);
  for (const std::size_t count : {most + 1, 2 * most + 2, 2 * most + 3, ~std::size_t{0}}) {
    EXPECT_THROW(requireCountable(count), std::length_error) << count;
  }
  ProtoSparse p, set;
  std::vector<int> rows, cols;
  ZtVector diagonal;
  for (const std::size_t size : {~std::size_t{0}, std::size_t{1} << 62}) {
    p.rowCount = p.colCount = size;
    EXPECT_THROW(p.getEmptyRowsAndCols(rows, cols), std::bad_alloc);
    EXPECT_THROW(partialInverseLDLMinimalSet(p, set), std::bad_alloc);
    EXPECT_THROW(partialInverseLUSelected(p, diagonal), std::bad_alloc);
  }
}

TEST(ProtoSparseStorage, DropsZerosOnInsertionAndInsignificantEntriesInMakeSparse) {
  const double eps = kDoubleEpsilon, above = eps * (1 + eps), inf = HUGE_VAL;
  const double values[] = {1e-17, eps, -eps, above, -above, std::nan(""), -inf, 0.0, -0.0};
  ProtoSparse p(korin::Matrix(3, 3, values), false);
  EXPECT_EQ(p.nz(), 7u);
  p.makeDense();
  ASSERT_TRUE(p.makeSparse());
  p.addElement(std::size_t{7} << 32, (std::size_t{9} << 32) + 2,
               inf);  // indices are cut to 32 bits
  EXPECT_EQ(entriesOf(p),
            (Entries{{{0, 2}, inf}, {{1, 0}, above}, {{1, 1}, -above}, {{2, 0}, -inf}}));
}

}  // namespace
}  // namespace zeph_solver
