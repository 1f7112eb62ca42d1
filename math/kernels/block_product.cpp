#include "math/kernels/block_product.h"

#include <algorithm>
#include <functional>
#include <memory>

#include "math/kernels/ordered_product.h"
#include "math/kernels/overlap.h"

namespace korin::kernels {
namespace {

using std::ptrdiff_t;
using std::size_t;

// Row-major blocks; a sub-block begins at row i and column j.
struct ConstBlock {
  const double* data;
  ptrdiff_t stride;
  const double* row(size_t i) const { return data + static_cast<ptrdiff_t>(i) * stride; }
  ConstBlock at(size_t i, size_t j) const { return {row(i) + j, stride}; }
};

struct Block {
  double* data;
  ptrdiff_t stride;
  operator ConstBlock() const { return {data, stride}; }
  double* row(size_t i) const { return data + static_cast<ptrdiff_t>(i) * stride; }
  Block at(size_t i, size_t j) const { return {row(i) + j, stride}; }
};

using Buffer = std::unique_ptr<double[]>;

Buffer allocate(size_t count) {
  return Buffer(new double[count]);
}

// out(i, j) = operation(x(i, j), y(i, j)); out may be x or y.
template <class Operation>
void combine(size_t rows, size_t cols, Block out, ConstBlock x, ConstBlock y, Operation operation) {
  for (size_t i = 0; i < rows; ++i) {
    double* to = out.row(i);
    const double* left = x.row(i);
    const double* right = y.row(i);
    for (size_t j = 0; j < cols; ++j) to[j] = operation(left[j], right[j]);
  }
}

constexpr std::plus<double> kAdd;
constexpr std::minus<double> kSubtract;

bool overlap(size_t rowsX, size_t colsX, ConstBlock x, size_t rowsY, size_t colsY, ConstBlock y) {
  return overlap(Extent{x.data, rowsX, colsX, static_cast<size_t>(x.stride)},
                 Extent{y.data, rowsY, colsY, static_cast<size_t>(y.stride)});
}

// The sums of one group of columns, each kept in C after every step as an overlapping operand
// would see it.
void sumInPlace(size_t m, size_t k, size_t firstCol, size_t cols, ConstBlock a, ConstBlock b,
                Block c) {
  for (size_t i = 0; i < m; ++i) {
    double* sums = c.row(i) + firstCol;
    for (size_t p = 0; p < k; ++p) {
      const double factor = a.row(i)[p];
      const double* row = b.row(p) + firstCol;
      for (size_t j = 0; j < cols; ++j) sums[j] += factor * row[j];
    }
  }
}

void overlappingProduct(size_t m, size_t n, size_t k, ConstBlock a, ConstBlock b, Block c) {
  for (size_t i = 0; i < m; ++i) std::fill_n(c.row(i), n, 0.0);
  constexpr size_t kGroup = 5;
  size_t j = 0;
  if (n > 14) {
    for (; n - j >= kGroup; j += kGroup) sumInPlace(m, k, j, kGroup, a, b, c);
  }
  for (; j < n; ++j) sumInPlace(m, k, j, 1, a, b, c);
}

void multiply(bool small, size_t m, size_t n, size_t k, ConstBlock a, ConstBlock b, Block c) {
  (small ? loopProduct : blockProduct)(m, n, k, a.data, a.stride, b.data, b.stride, c.data,
                                       c.stride);
}

// Seven products of h x h quarters. With the products written where their sums are wanted, one
// temporary beside the two operand sums is enough; each element of C is evaluated as
//   C11 = ((M1 + M4) - M5) + M7    C12 = M3 + M5
//   C21 = M2 + M4                  C22 = ((M1 + M3) - M2) + M6.
void sevenProducts(bool small, size_t h, ConstBlock a, ConstBlock b, Block c) {
  const Buffer buffer = allocate(3 * h * h);
  const auto stride = static_cast<ptrdiff_t>(h);
  const Block s{buffer.get(), stride};
  const Block u{buffer.get() + h * h, stride};
  const Block t{buffer.get() + 2 * h * h, stride};
  const ConstBlock a11 = a, a12 = a.at(0, h), a21 = a.at(h, 0), a22 = a.at(h, h);
  const ConstBlock b11 = b, b12 = b.at(0, h), b21 = b.at(h, 0), b22 = b.at(h, h);
  const Block c11 = c, c12 = c.at(0, h), c21 = c.at(h, 0), c22 = c.at(h, h);
  const auto add = [h](Block out, ConstBlock x, ConstBlock y) { combine(h, h, out, x, y, kAdd); };
  const auto subtract = [h](Block out, ConstBlock x, ConstBlock y) {
    combine(h, h, out, x, y, kSubtract);
  };
  const auto product = [small, h](ConstBlock x, ConstBlock y, Block out) {
    multiply(small, h, h, h, x, y, out);
  };

  add(s, a11, a22);
  add(u, b11, b22);
  product(s, u, c11);  // M1
  add(s, a21, a22);
  product(s, b11, c21);  // M2
  subtract(u, b12, b22);
  product(a11, u, c12);  // M3
  add(c22, c11, c12);
  subtract(c22, c22, c21);
  subtract(u, b21, b11);
  product(a22, u, t);  // M4
  add(c11, c11, t);
  add(c21, c21, t);
  add(s, a11, a12);
  product(s, b22, t);  // M5
  subtract(c11, c11, t);
  add(c12, c12, t);
  subtract(s, a21, a11);
  add(u, b11, b12);
  product(s, u, t);  // M6
  add(c22, c22, t);
  subtract(s, a12, a22);
  add(u, b21, b22);
  product(s, u, t);  // M7
  add(c11, c11, t);
}

// Each block of C is its first product plus the second, C22, C21, C11 and C12 in turn.
void eightProducts(bool small, size_t m, size_t n, size_t k, size_t hm, size_t hn, size_t hk,
                   ConstBlock a, ConstBlock b, Block c) {
  const Buffer buffer = allocate((m - hm) * (n - hn));
  const auto quarter = [&](size_t i, size_t rows, size_t j, size_t cols) {
    const Block out = c.at(i, j);
    const Block t{buffer.get(), static_cast<ptrdiff_t>(cols)};
    multiply(small, rows, cols, hk, a.at(i, 0), b.at(0, j), out);
    multiply(small, rows, cols, k - hk, a.at(i, hk), b.at(hk, j), t);
    combine(rows, cols, out, out, t, kAdd);
  };
  quarter(hm, m - hm, hn, n - hn);
  quarter(hm, m - hm, 0, hn);
  quarter(0, hm, 0, hn);
  quarter(0, hm, hn, n - hn);
}

}  // namespace

void loopProduct(size_t m, size_t n, size_t k, const double* a, ptrdiff_t lda, const double* b,
                 ptrdiff_t ldb, double* c, ptrdiff_t ldc) {
  const Block target{c, ldc};
  if (overlap(m, k, {a, lda}, m, n, target) || overlap(k, n, {b, ldb}, m, n, target)) {
    overlappingProduct(m, n, k, {a, lda}, {b, ldb}, target);
  } else {
    orderedProduct(m, n, k, a, lda, b, ldb, c, ldc);
  }
}

void blockProduct(size_t m, size_t n, size_t k, const double* a, ptrdiff_t lda, const double* b,
                  ptrdiff_t ldb, double* c, ptrdiff_t ldc) {
  const size_t hm = m / 2;
  size_t hn = n / 2;
  size_t hk = k / 2;
  const bool small = hm <= kBlockedLimit || hk <= kBlockedLimit || hn <= kBlockedLimit;
  const ConstBlock left{a, lda};
  const ConstBlock right{b, ldb};
  const Block target{c, ldc};
  // An odd order takes the other way: its halves would not be square.
  if (m % 2 == 0 && m == k && k == n) {
    if (!overlap(m, k, left, m, n, target) && !overlap(k, n, right, m, n, target)) {
      return sevenProducts(small, hm, left, right, target);
    }
    const Buffer whole = allocate(m * n);  // all products come before the first sum in C
    sevenProducts(small, hm, left, right, {whole.get(), static_cast<ptrdiff_t>(n)});
    for (size_t i = 0; i < m; ++i) std::copy_n(whole.get() + i * n, n, target.row(i));
    return;
  }
  hk &= ~size_t{1};
  hn &= ~size_t{1};
  eightProducts(small, m, n, k, hm, hn, hk, left, right, target);
}

}  // namespace korin::kernels
