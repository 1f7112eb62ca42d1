#include "kernels/processor.h"
#include "kernels/triplets/triplet_bands.h"
#include "kernels/triplets/triplet_product.h"
#include "solver/assembly/protosparse.h"
#include "tests/math/dense/dense_testing.h"

namespace zeph_solver {
namespace {

using namespace dense_testing;

Matrix zeros(std::size_t rows, std::size_t cols) {
  Matrix m(rows, cols);
  ZtMatrix_setZero(&m);
  return m;
}

Matrix denseOf(const ProtoSparse& a) {
  Matrix m;
  a.toDenseMatrix(m, false);
  return m;
}

class ProtoSparseProducts : public ::testing::Test {
 protected:
  std::size_t below(std::size_t n) { return random_() % n; }
  /// Sums and products of small integers are exact, so both modes must give equal numbers.
  double integer() { return static_cast<double>(below(19)) - 9.0; }

  ProtoSparse triplets(std::size_t rows, std::size_t cols, std::size_t count) {
    ProtoSparse a(rows, cols);
    for (std::size_t i = 0; i < count; ++i) a.addElement(below(rows), below(cols), integer());
    return a;
  }

  std::mt19937 random_{7};
};

TEST_F(ProtoSparseProducts, WindowProductsMatchTheDenseModelInBothModes) {
  for (int round = 0; round < 4000; ++round) {
    ProtoSparse a = triplets(2 + below(9), 2 + below(9), below(60));
    // Shrinking leaves elements just outside the shape, which have no part in any product.
    if (round % 2)
      a.setSize(std::max<std::size_t>(a.rowCount - 1, 2), a.colCount - (a.colCount > 2));
    const Matrix model = denseOf(a);
    const bool full = round % 4 < 2;
    const std::size_t rows = full ? a.rowCount : 1 + below(14);
    const std::size_t inner = full ? a.colCount : 1 + below(14);
    const unsigned rowFirst = full || round % 3 == 0 ? 0 : static_cast<unsigned>(below(16));
    const unsigned colFirst = full || round % 5 == 0 ? 0 : static_cast<unsigned>(below(16));
    Matrix b(inner, 1 + below(5));
    for (std::size_t i = 0; i < b.rows * b.cols; ++i) b.data[i] = integer();
    for (bool dense : {false, true}) {
      SCOPED_TRACE(::testing::Message()
                   << "dense " << dense << ", " << a.rowCount << 'x' << a.colCount << ", c " << rows
                   << ", b " << inner << " rows, from " << rowFirst << ',' << colFirst);
      // An offset beyond the operand leaves nothing of a block; of a list it is no upper bound.
      const auto end = [dense](std::size_t size, unsigned first) {
        const auto wrapped = static_cast<unsigned>(size) - first;
        return dense && size < first ? 0 : std::min<std::size_t>(wrapped, first + size);
      };
      Matrix expected = zeros(rows, b.cols);
      for (std::size_t i = rowFirst; i < std::min(end(rows, rowFirst), model.rows); ++i) {
        for (std::size_t j = colFirst; j < std::min(end(inner, colFirst), model.cols); ++j) {
          for (std::size_t k = 0; k < b.cols; ++k) {
            expected(i - rowFirst, k) += model(i, j) * b(j - colFirst, k);
          }
        }
      }
      if (dense) a.makeDense();
      Block c(rows, b.cols);
      a.multiplyDenseSub(b, c.view, rowFirst, colFirst);
      ASSERT_TRUE(c.view == expected);
      if (full) a.multiplyDense(b, c.view);
      ASSERT_TRUE(c.view == expected && c.outsideUntouched());
      ZtVector x(inner), y(rows);
      for (std::size_t j = 0; j < inner; ++j) x.data[j] = b(j, 0);
      a.multiplyDenseSub(x, y, rowFirst, colFirst);
      for (std::size_t i = 0; i < rows; ++i) ASSERT_EQ(y.data[i], expected(i, 0));
    }
  }
}

TEST_F(ProtoSparseProducts, SumsInListOrderOnEveryProcessorLevelAndWidth) {
  using namespace korin::kernels;
  const ProcessorLevel before = processorLevel();
  for (auto level : {ProcessorLevel::Baseline, ProcessorLevel::Avx2, ProcessorLevel::Avx512}) {
    forceProcessorLevel(level);
    for (std::size_t cols = 1; cols < 70; ++cols) {
      ProtoSparse a(20, 15);
      for (int i = 0; i < 300; ++i) {
        a.addElement(i < 100 ? i / 5 : below(20), below(15), integer() / 7.0);
      }
      Block b(15, cols), c(20, cols);
      Matrix expected = zeros(20, cols);
      for (const auto& e : a.elements) {
        for (std::size_t k = 0; k < cols; ++k) expected(e.row, k) += e.value * b.view(e.col, k);
      }
      a.multiplyDense(b.view, c.view);
      ASSERT_TRUE(c.view == expected && c.outsideUntouched())
          << cols << " columns, level " << static_cast<int>(level);
    }
  }
  forceProcessorLevel(before);
}

TEST_F(ProtoSparseProducts, ScatteredListsSumInListOrderWithinEveryRow) {
  // Sums of fractions over hundreds of triplets a row show any change of order. The first case
  // takes the product by bands of rows, by its size; in the second the triplets of a row come
  // together.
  for (bool scattered : {true, false}) {
    const std::size_t rows = 60000, cols = 17, used = scattered ? 150 : 1;
    ProtoSparse a(rows, rows);
    for (int i = 0; i < 40000; ++i) {
      a.addElement(below(used) * 399 + (i < 20000), below(rows / 100) * 100, integer() / 7.0);
    }
    ASSERT_EQ(korin::kernels::bandsPay(a.elements.data(), a.elements.size(), rows, cols),
              scattered);
    Matrix b(rows, cols), c(rows, cols);
    for (std::size_t i = 0; i < rows * cols; ++i) b.data[i] = integer() / 3.0;
    for (unsigned first : {0u, 300u}) {
      Matrix expected = zeros(rows, cols);
      for (const auto& e : a.elements) {
        if (std::min(e.row, e.col) < first || std::max(e.row, e.col) >= rows - first) continue;
        for (std::size_t k = 0; k < cols; ++k) {
          expected(e.row - first, k) += e.value * b(e.col - first, k);
        }
      }
      a.multiplyDenseSub(b, c, first, first);
      EXPECT_TRUE(c == expected) << first;
    }
  }
}

TEST_F(ProtoSparseProducts, BandsOfAnySizeAndPortionGiveThePlainProduct) {
  using namespace korin::kernels;
  for (std::size_t count :
       {std::size_t{0}, std::size_t{1}, std::size_t{5000}, kBandPortion + 999}) {
    for (std::size_t rows : {1u, 255u, 256u, 257u, 100000u}) {
      for (std::size_t cols : {1u, 33u}) {
        if (count * cols > 10000000) continue;
        ProtoSparse a(rows, 9);
        for (std::size_t i = 0; i < count; ++i)
          a.addElement(below(rows), below(9), 1.0 / static_cast<double>(i + 1));
        Matrix b(9, cols), c = zeros(rows, cols), expected = zeros(rows, cols);
        for (std::size_t i = 0; i < 9 * cols; ++i) b.data[i] = integer() / 7.0;
        addTripletProduct(a.elements.data(), a.elements.size(), b.data, cols, expected.data, cols,
                          cols);
        addTripletProductInBands(a.elements.data(), a.elements.size(), b.data, cols, c.data, cols,
                                 rows, cols);
        EXPECT_TRUE(c == expected) << count << " triplets, " << rows << " x " << cols;
      }
    }
  }
}

TEST_F(ProtoSparseProducts, OperandsThatShareMemorySeeEverySum) {
  // Row 0 of c is row 1 of b: the first product is read back by the second.
  std::vector<double> memory = {1, 2, 7, 7, 7, 7};
  const Matrix b(2, 2, 2, memory.data(), kZtView);
  Matrix c(2, 2, 2, memory.data() + 2, kZtView);
  ProtoSparse a(2, 2);
  a.addElement(0, 0, 3.0);
  a.addElement(1, 1, 10.0);
  a.multiplyDense(b, c);
  EXPECT_EQ(memory, (std::vector<double>{1, 2, 3, 6, 30, 60}));
}

TEST_F(ProtoSparseProducts, AddPlacesEveryElementInEveryCombinationOfModes) {
  for (int round = 0; round < 560; ++round) {
    const bool transpose = round & 1, denseThis = round & 2, self = round % 7 == 0;
    const bool denseOther = self ? denseThis : (round & 4) != 0;
    const std::size_t order = 2 + below(5);
    const std::size_t rowOffset = self ? 0 : below(3), colOffset = self ? 0 : below(3);
    ProtoSparse other = triplets(order, self ? order : 2 + below(5), below(20));
    if (round % 40 == 0) other.scalarMultiplication(0.0);
    ProtoSparse target = self ? other : triplets(9, 9, below(30));
    Matrix expected = denseOf(target);
    const Matrix added = transpose ? transposed(denseOf(other)) : denseOf(other);
    Matrix window(added.rows, added.cols, expected, rowOffset, colOffset);
    window.setMatAddMat(window, added);
    const std::size_t before = target.nz(), count = other.nz();
    target.elements.shrink_to_fit();
    if (denseThis) target.makeDense();
    if (denseOther) other.makeDense();
    target.add(self ? target : other, rowOffset, colOffset, transpose);
    ASSERT_TRUE(denseOf(target) == expected) << round;
    if (!denseThis && !denseOther && !transpose && rowOffset + colOffset == 0) {
      ASSERT_EQ(target.nz(), before + count) << "stored zeros are copied";
      ASSERT_TRUE(count == 0 || target.elements.capacity() == before + std::max(before, count));
    }
  }
}

TEST_F(ProtoSparseProducts, TransposeSelfKeepsTheListOrder) {
  ProtoSparse a = triplets(4, 7, 30);
  for (bool dense : {false, true}) {
    if (dense) a.makeDense();
    const ProtoSparse before = a;
    a.transposeSelf();
    ASSERT_EQ(a.rowCount, before.colCount);
    ASSERT_EQ(denseOf(a), transposed(denseOf(before)));
    for (std::size_t i = 0; i < a.elements.size(); ++i) {
      ASSERT_EQ(a.elements[i].col, before.elements[i].row);
    }
  }
}

}  // namespace
}  // namespace zeph_solver
