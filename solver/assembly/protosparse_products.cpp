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

// c(row, k) += value * b(col, k) for each element in list order. Operands that share memory see
// every single sum, as written here.
void addProduct(const MatrixElement* elements, std::size_t count, const ZtMatrix& b, ZtMatrix& c) {
  if (!sharesMemory(b, c)) {
    if (korin::kernels::bandsPay(elements, count, c.rows, b.cols)) {
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

// Rows rowFirst .. rowEnd-1 and columns colFirst .. colEnd-1.
struct Window {
  std::uint32_t rowFirst, rowEnd, colFirst, colEnd;
  bool empty() const { return rowFirst >= rowEnd || colFirst >= colEnd; }
};

// The window's extent in one direction is measured from the operand's size minus the offset, so an
// offset trims it at both ends, on purpose. An offset beyond the size leaves nothing.
std::uint32_t windowEnd(std::size_t operandSize, std::uint32_t first) {
  const auto size = static_cast<std::uint32_t>(operandSize);
  return size < first ? 0 : size - first;
}

// Bounds that no element of a matrix can violate, and that need no test.
enum FreeBound : unsigned { kRowLow = 1, kRowHigh = 2, kColLow = 4, kColHigh = 8, kAllFree = 15 };

// c += W * b, testing each element only against the bounds that are not free. Elements inside are
// gathered, shifted to the window's corner, in portions that stay in the first-level cache or,
// where that pays, are large enough for the product to put them into an order of its own.
template <unsigned kFree>
void addWindowProduct(const std::vector<MatrixElement>& elements, const Window& w,
                      const ZtMatrix& b, ZtMatrix& c) {
  constexpr std::size_t kPortion = 512;
  std::array<MatrixElement, kPortion> cached;
  std::unique_ptr<MatrixElement[]> large;
  const std::size_t size = elements.size();
  std::size_t portion = std::min(size, korin::kernels::kBandPortion);
  if (korin::kernels::bandsPay(elements.data(), size, c.rows, b.cols)) {
    large.reset(new (std::nothrow) MatrixElement[portion]);
  }
  if (large == nullptr) portion = kPortion;
  MatrixElement* const inside = large == nullptr ? cached.data() : large.get();
  for (std::size_t i = 0; i < size;) {
    const std::size_t end = std::min(size, i + portion);
    std::size_t count = 0;
    for (; i < end; ++i) {
      const MatrixElement e = elements[i];
      inside[count] = {e.row - w.rowFirst, e.col - w.colFirst, e.value};
      count += ((kFree & kRowLow) != 0 || e.row >= w.rowFirst) &
               ((kFree & kRowHigh) != 0 || e.row < w.rowEnd) &
               ((kFree & kColLow) != 0 || e.col >= w.colFirst) &
               ((kFree & kColHigh) != 0 || e.col < w.colEnd);
    }
    addProduct(inside, count, b, c);
  }
}

using WindowProduct = void (*)(const std::vector<MatrixElement>&, const Window&, const ZtMatrix&,
                               ZtMatrix&);

template <unsigned... kFree>
constexpr std::array<WindowProduct, sizeof...(kFree)> windowProducts(
    std::integer_sequence<unsigned, kFree...>) {
  return {&addWindowProduct<kFree>...};
}
constexpr auto kWindowProducts = windowProducts(std::make_integer_sequence<unsigned, kAllFree>());

// c = W * b for the part of the window that the block has; c is zero already.
void setBlockWindowProduct(Matrix& block, const Window& w, const ZtMatrix& b, ZtMatrix& c) {
  const std::size_t rowEnd = std::min<std::size_t>(w.rowEnd, block.rows);
  const std::size_t colEnd = std::min<std::size_t>(w.colEnd, block.cols);
  if (w.rowFirst >= rowEnd || w.colFirst >= colEnd) return;
  const std::size_t rows = rowEnd - w.rowFirst;
  const std::size_t inner = colEnd - w.colFirst;
  const Matrix window(rows, inner, block, w.rowFirst, w.colFirst);
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
  ZtMatrix_setZero(&c);
  addProduct(elements.data(), elements.size(), b, c);
}

void ProtoSparse::multiplyDenseSub(const ZtMatrix& b, ZtMatrix& c, unsigned int rowFirst,
                                   unsigned int colFirst) {
  const Window w = {rowFirst, windowEnd(c.rows, rowFirst), colFirst, windowEnd(b.rows, colFirst)};
  ZtMatrix_setZero(&c);
  if (w.empty()) return;
  if (denseBlock) {
    setBlockWindowProduct(*denseBlock, w, b, c);
    return;
  }
  const unsigned free = (w.rowFirst == 0 ? kRowLow : 0u) | (w.rowEnd >= rowCount ? kRowHigh : 0u) |
                        (w.colFirst == 0 ? kColLow : 0u) | (w.colEnd >= colCount ? kColHigh : 0u);
  if (free == kAllFree) {
    addProduct(elements.data(), elements.size(), b, c);
  } else {
    kWindowProducts[free](elements, w, b, c);
  }
}

void ProtoSparse::multiplyDenseSub(const ZtVector& x, ZtVector& y, unsigned int rowFirst,
                                   unsigned int colFirst) {
  const Matrix b = viewOf(x.size, 1, 1, x.data);
  Matrix c = viewOf(y.size, 1, 1, y.data);
  multiplyDenseSub(b, c, rowFirst, colFirst);
}

}  // namespace zeph_solver
