#include "solver/assembly/protosparse.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "solver/assembly/matrix_views.h"

namespace zeph_solver {

namespace {

// Default capacity rule: small matrices get room for twice their full size, large ones for about
// two entries per row and column.
constexpr std::size_t kMinCapacity = 1024;
constexpr std::size_t kFullCapacityLimit = 10000;

// Largest element count whose size in bytes fits 64 bits.
constexpr std::size_t kMaxElements = (std::size_t{1} << 60) - 1;

bool isVectorShape(std::size_t rows, std::size_t cols) {
  return rows == 1 || cols == 1;
}

void reserveElements(std::vector<MatrixElement>& elements, std::size_t n) {
  // Between the container's own limit and ours the request is well formed and merely too large.
  if (n > elements.max_size() && n <= kMaxElements) throw std::bad_alloc();
  elements.reserve(n);
}

std::size_t defaultCapacity(std::uint64_t rows, std::uint64_t cols) {
  const std::uint64_t twiceFull = 2 * rows * cols;  // wraps on purpose
  if (twiceFull < kMinCapacity) return kMinCapacity;
  return twiceFull <= kFullCapacityLimit ? twiceFull : 2 * (rows + cols);
}

// The compiler emits what is inline here only where it is called: asked for as symbols too.
[[gnu::used]] void (ProtoSparse::*const kInlineInsertions[])(std::size_t, std::size_t, double) = {
    &ProtoSparse::addElement, &ProtoSparse::addSparseElement, &ProtoSparse::addDenseElement};
[[gnu::used]] bool (ProtoSparse::*const kInlineQuery)() const = &ProtoSparse::isDense;

std::unique_ptr<korin::Matrix> makeZeroBlock(std::size_t rows, std::size_t cols) {
  auto block = std::make_unique<korin::Matrix>(rows, cols);
  ZtMatrix_setZero(block.get());
  return block;
}

}  // namespace

ProtoSparse::ProtoSparse() {
  reserve(0);
}

ProtoSparse::ProtoSparse(std::size_t rows, std::size_t cols) : rowCount(rows), colCount(cols) {
  if (isVectorShape(rows, cols)) denseBlock = std::make_unique<korin::Matrix>(rows, cols);
  reserve(0);
}

ProtoSparse::ProtoSparse(const ZtMatrix& m, bool transpose)
    : rowCount(transpose ? m.cols : m.rows), colCount(transpose ? m.rows : m.cols) {
  if (isVectorShape(rowCount, colCount)) {
    if (!transpose) {
      denseBlock = std::make_unique<korin::Matrix>(m);
      return;
    }
    denseBlock = std::make_unique<korin::Matrix>(rowCount, colCount);
  }
  reserve(0);
  addDenseMatrix(m, 0, 0, transpose);
}

ProtoSparse::ProtoSparse(const ProtoSparse& other) {
  if (!other.denseBlock) reserve(0);
  *this = other;
}

ProtoSparse& ProtoSparse::operator=(const ProtoSparse& other) {
  if (this == &other) return *this;
  // All memory is obtained before anything changes.
  if (other.denseBlock) {
    if (denseBlock) {
      ZtMatrix_copy(denseBlock.get(), other.denseBlock.get());
    } else {
      denseBlock = std::make_unique<korin::Matrix>(*other.denseBlock);
    }
    std::vector<MatrixElement>().swap(elements);
  } else {
    // The source's capacity, not its size: a copy has the same room to grow.
    std::size_t capacity = other.elements.capacity();
    if (capacity == 0) capacity = defaultCapacity(other.rowCount, other.colCount);
    if (elements.capacity() < capacity) {
      std::vector<MatrixElement> fresh;
      reserveElements(fresh, capacity);
      elements.swap(fresh);
    }
    elements = other.elements;
    denseBlock.reset();
  }
  rowCount = other.rowCount;
  colCount = other.colCount;
  return *this;
}

ProtoSparse::~ProtoSparse() = default;

void ProtoSparse::clear() {
  if (denseBlock) {
    ZtMatrix_setZero(denseBlock.get());
  } else {
    elements.clear();
  }
}

std::size_t ProtoSparse::nz() const {
  return denseBlock ? denseBlock->countNonZeros() : elements.size();
}

void ProtoSparse::reserve(std::size_t n) {
  if (denseBlock) {
    // Zeroing the block is on purpose: the constructors rely on it.
    clear();
    elements.shrink_to_fit();
    return;
  }
  if (n == 0) n = defaultCapacity(rowCount, colCount);
  reserveElements(elements, n);
}

void ProtoSparse::setSize(std::size_t rows, std::size_t cols) {
  if (rows < rowCount || cols < colCount) {
    // Strictly greater on purpose: elements just outside the new shape survive.
    const auto outside = [=](const MatrixElement& e) { return e.row > rows || e.col > cols; };
    elements.erase(std::remove_if(elements.begin(), elements.end(), outside), elements.end());
  }
  rowCount = rows;
  colCount = cols;
  if (denseBlock) {
    const bool wasEmpty = denseBlock->rows == 0 || denseBlock->cols == 0;
    denseBlock->changeSize(rows, cols);
    if (wasEmpty) ZtMatrix_setZero(denseBlock.get());  // a first allocation is left unset
  } else if (isVectorShape(rows, cols)) {
    denseBlock = makeZeroBlock(rows, cols);
    denseBlock->changeSize(rows, cols);  // 1 x 0 and 0 x 1, which the constructor makes 0 x 0
  } else {
    reserve(0);
  }
}

void ProtoSparse::addDenseVector(const ZtVector& v, std::size_t row, std::size_t col,
                                 Direction dir) {
  if (v.size == 0) return;
  const bool vertical = dir == Vertical;
  if (denseBlock) {
    const std::size_t rows = vertical ? v.size : 1;
    const std::size_t cols = vertical ? 1 : v.size;
    korin::Matrix target(rows, cols, *denseBlock, row, col);
    target.setMatAddMat(target, viewOf(rows, cols, cols, v.data));
    return;
  }
  for (std::size_t i = 0; i < v.size; ++i) {
    addSparseElement(vertical ? row + i : row, vertical ? col : col + i, v.data[i]);
  }
}

void ProtoSparse::addDenseMatrix(const ZtMatrix& m, std::size_t row, std::size_t col,
                                 bool transpose) {
  if (denseBlock) {
    korin::Matrix target(transpose ? m.cols : m.rows, transpose ? m.rows : m.cols, *denseBlock, row,
                         col);
    if (!transpose) {
      target.setMatAddMat(target, m);
    } else if (sharesMemory(target, m)) {
      // Written in place, the transposed operand would change under the reader.
      target.setMatAddTransMatMulSca(target, korin::Matrix(m), 1.0);
    } else {
      target.setMatAddTransMatMulSca(target, m, 1.0);
    }
    return;
  }
  // Both orders append column by column of this matrix: one call on an empty list leaves it
  // compressed.
  if (transpose) {
    for (std::size_t i = 0; i < m.rows; ++i) {
      const double* values = m.data + i * m.stride;
      for (std::size_t j = 0; j < m.cols; ++j) addSparseElement(row + j, col + i, values[j]);
    }
  } else {
    for (std::size_t j = 0; j < m.cols; ++j) {
      for (std::size_t i = 0; i < m.rows; ++i) {
        addSparseElement(row + i, col + j, m.data[i * m.stride + j]);
      }
    }
  }
}

void ProtoSparse::makeDense() {
  if (denseBlock) return;
  denseBlock = makeZeroBlock(rowCount, colCount);
  std::vector<MatrixElement> taken;
  taken.swap(elements);
  for (const MatrixElement& e : taken) {
    // `setSize` can leave elements just outside the shape; they have no place in the block.
    if (e.row < rowCount && e.col < colCount) addDenseElement(e.row, e.col, e.value);
  }
}

bool ProtoSparse::makeSparse() {
  if (!denseBlock) return true;
  if (rowCount < 2 || colCount < 2) return false;
  const std::size_t before = elements.size();
  try {
    for (std::size_t c = 0; c < denseBlock->cols; ++c) {
      for (std::size_t r = 0; r < denseBlock->rows; ++r) {
        const double value = (*denseBlock)(r, c);
        if (std::fabs(value) > kDoubleEpsilon) addSparseElement(r, c, value);
      }
    }
  } catch (...) {
    elements.resize(before);
    throw;
  }
  denseBlock.reset();
  return true;
}

void ProtoSparse::scalarMultiplication(double s) {
  if (!denseBlock) {
    for (MatrixElement& e : elements) e.value *= s;
    return;
  }
  for (std::size_t r = 0; r < denseBlock->rows; ++r) {
    double* row = denseBlock->data + r * denseBlock->stride;
    for (std::size_t c = 0; c < denseBlock->cols; ++c) row[c] *= s;
  }
}

}  // namespace zeph_solver
