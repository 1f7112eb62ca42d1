#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "kernels/triplets/triplet_bands.h"
#include "kernels/triplets/triplet_product.h"
#include "solver/assembly/matrix_views.h"
#include "solver/assembly/protosparse.h"

namespace zeph_solver {

namespace {

using korin::Matrix;

static_assert(offsetof(MatrixElement, row) == 0 && offsetof(MatrixElement, col) == 4 &&
                  offsetof(MatrixElement, value) == 8 && sizeof(MatrixElement) == 16,
              "addTripletProduct reads elements as {u32, u32, f64}");

// c(row, k) += value * b(col, k) for each element in list order, by bands of rows of c or not.
// Operands that share memory see every single sum, as written here.
void addProduct(const MatrixElement* elements, std::size_t count, bool bands, const ZtMatrix& b,
                ZtMatrix& c) {
  if (!sharesMemory(b, c)) {
    if (bands) {
      korin::kernels::addTripletProductInBands(elements, count, b.data, b.stride, c.data, c.stride,
                                               c.rows, b.cols);
    } else {
      korin::kernels::addTripletProduct(elements, count, b.data, b.stride, c.data, c.stride,
                                        b.cols);
    }
    return;
  }
  for (const MatrixElement* e = elements; e != elements + count; ++e) {
    const ZtReal* bRow = b.data + e->col * b.stride;
    ZtReal* cRow = c.data + e->row * c.stride;
    for (std::size_t k = 0; k < b.cols; ++k) cRow[k] += e->value * bRow[k];
  }
}

// The part of the matrix that takes part in a product: from a corner to a last row and column, both
// counted from the corner.
struct Window {
  std::uint32_t rowFirst, colFirst, rowLast, colLast;

  bool holds(const MatrixElement& e) const {
    return (e.row - rowFirst <= rowLast) & (e.col - colFirst <= colLast);
  }
  // Of a window at the origin, whether it holds all of a range. Both indices are tested by one
  // addition: the top bit of a half shows an index beyond the last.
  bool holdsAll(const MatrixElement* first, const MatrixElement* last) const {
    constexpr std::uint32_t kMost = 0x7FFFFFFF;
    if (rowLast > kMost || colLast > kMost) return false;
    const std::uint64_t room = std::uint64_t{kMost - colLast} << 32 | (kMost - rowLast);
    std::uint64_t seen = 0;
    for (; first != last; ++first) {
      const std::uint64_t indices = std::uint64_t{first->col} << 32 | first->row;
      seen |= indices | (indices + room);
    }
    return (seen & 0x8000000080000000) == 0;
  }
};

// Indices from `first` on that a matrix has (below `count`), that the operand has room for, and
// that lie before `end`. The end is the operand's size less the offset in 32 bits: an offset trims
// the window at both ends, on purpose, and an end that wraps is merely a large one.
std::size_t windowSize(std::uint64_t count, std::size_t operandSize, std::uint32_t first,
                       std::uint32_t end) {
  const std::uint64_t last = std::min<std::uint64_t>({count, first + operandSize, end});
  return last > first ? last - first : 0;
}

// c += W * b, every element shifted to the window's corner. Elements that `setSize` left outside
// the shape are not in the window. In portions that stay in the second-level cache between the test
// and the product or, where that pays, are large enough for the product to put them into an order
// of its own.
void addWindowProduct(const std::vector<MatrixElement>& elements, const Window& w,
                      const ZtMatrix& b, ZtMatrix& c) {
  constexpr std::size_t kPortion = 2048;
  std::array<MatrixElement, kPortion> cached;
  std::unique_ptr<MatrixElement[]> large;
  const MatrixElement* const end = elements.data() + elements.size();
  std::size_t portion = kPortion;
  MatrixElement* inside = cached.data();
  if (korin::kernels::bandsPay(elements.data(), elements.size(), c.rows, b.cols)) {
    const std::size_t most = std::min(elements.size(), korin::kernels::kBandPortion);
    large.reset(new (std::nothrow) MatrixElement[most]);
    if (large != nullptr) portion = most, inside = large.get();
  }
  const bool shifted = w.rowFirst != 0 || w.colFirst != 0;
  for (const MatrixElement* e = elements.data(); e != end;) {
    const auto size = std::min(portion, static_cast<std::size_t>(end - e));
    if (!shifted && w.holdsAll(e, e + size)) {
      addProduct(e, size, large != nullptr, b, c);
      e += size;
      continue;
    }
    std::size_t count = 0;
    for (const MatrixElement* const last = e + size; e != last; ++e) {
      inside[count] = {e->row - w.rowFirst, e->col - w.colFirst, e->value};
      count += w.holds(*e);
    }
    addProduct(inside, count, large != nullptr, b, c);
  }
}

// c = W * b for the part of the window that the block has; c is zero already. A block has nothing
// beyond an end that wraps.
void setBlockWindowProduct(Matrix& block, const ZtMatrix& b, ZtMatrix& c, std::uint32_t rowFirst,
                           std::uint32_t colFirst) {
  const auto sizeOf = [](ZtSize blockSize, ZtSize operandSize, std::uint32_t first) {
    const auto size = static_cast<std::uint32_t>(operandSize);
    return size < first ? 0 : windowSize(blockSize, operandSize, first, size - first);
  };
  const std::size_t rows = sizeOf(block.rows, c.rows, rowFirst);
  const std::size_t inner = sizeOf(block.cols, b.rows, colFirst);
  if (rows == 0 || inner == 0) return;
  const Matrix window(rows, inner, block, rowFirst, colFirst);
  viewOf(rows, b.cols, c.stride, c.data)
      .setMatMulMat(window, viewOf(inner, b.cols, b.stride, b.data));
}

}  // namespace

void ProtoSparse::add(const ProtoSparse& other, std::size_t rowOffset, std::size_t colOffset,
                      bool transpose) {
  if (other.denseBlock) {
    addDenseMatrix(*other.denseBlock, rowOffset, colOffset, transpose);
    return;
  }
  // Counted and indexed, because `other` may be this object, whose list grows and moves.
  const std::size_t count = other.elements.size();
  if (!denseBlock && !transpose && rowOffset == 0 && colOffset == 0) {
    const std::size_t size = elements.size();
    if (elements.capacity() - size < count) elements.reserve(size + std::max(size, count));
    const auto first = other.elements.begin();
    if (&other != this) {
      elements.insert(elements.end(), first, other.elements.end());
    } else {
      for (std::size_t i = 0; i < count; ++i) elements.push_back(MatrixElement(elements[i]));
    }
    return;
  }
  for (std::size_t i = 0; i < count; ++i) {
    const MatrixElement e = other.elements[i];
    addElement(rowOffset + (transpose ? e.col : e.row), colOffset + (transpose ? e.row : e.col),
               e.value);
  }
}

void ProtoSparse::transposeSelf() {
  std::swap(rowCount, colCount);
  if (denseBlock) {
    denseBlock->setTransposeSelf();
  } else {
    for (MatrixElement& e : elements) std::swap(e.row, e.col);
  }
}

void ProtoSparse::multiplyDense(const ZtMatrix& b, ZtMatrix& c) {
  if (denseBlock) {
    viewOf(c.rows, c.cols, c.stride, c.data).setMatMulMat(*denseBlock, b);
    return;
  }
  multiplyDenseSub(b, c, 0, 0);
}

void ProtoSparse::multiplyDenseSub(const ZtMatrix& b, ZtMatrix& c, unsigned int rowFirst,
                                   unsigned int colFirst) {
  ZtMatrix_setZero(&c);
  if (denseBlock) return setBlockWindowProduct(*denseBlock, b, c, rowFirst, colFirst);
  const std::size_t rows =
      windowSize(rowCount, c.rows, rowFirst, static_cast<std::uint32_t>(c.rows) - rowFirst);
  const std::size_t cols =
      windowSize(colCount, b.rows, colFirst, static_cast<std::uint32_t>(b.rows) - colFirst);
  if (rows == 0 || cols == 0) return;
  addWindowProduct(elements,
                   {rowFirst, colFirst, static_cast<std::uint32_t>(rows - 1),
                    static_cast<std::uint32_t>(cols - 1)},
                   b, c);
}

void ProtoSparse::multiplyDenseSub(const ZtVector& x, ZtVector& y, unsigned int rowFirst,
                                   unsigned int colFirst) {
  const Matrix b = viewOf(x.size, 1, 1, x.data);
  Matrix c = viewOf(y.size, 1, 1, y.data);
  multiplyDenseSub(b, c, rowFirst, colFirst);
}

}  // namespace zeph_solver
