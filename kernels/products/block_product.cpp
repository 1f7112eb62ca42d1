#include "kernels/products/block_product.h"

#include <algorithm>
#include <functional>

#include "kernels/products/ordered_product.h"
#include "kernels/products/overlap.h"
#include "kernels/products/pack.h"
#include "kernels/products/tiled_product.h"
#include "kernels/tiles/tile.h"

namespace korin::kernels {
namespace {

using std::ptrdiff_t;
using std::size_t;

// All blocks here are row-major.
Block rowMajor(double* data, ptrdiff_t stride) {
  return {data, stride, 1};
}

ConstBlock rowMajor(const double* data, ptrdiff_t stride) {
  return {data, stride, 1};
}

template <class Element>
Element* row(const StridedBlock<Element>& block, size_t i) {
  return block.at(i, 0).data;
}

void combine(Combine how, size_t m, size_t n, ConstBlock x, ConstBlock y, Block out) {
  tiles().combine(how, m, n, x.data, x.rowStride, y.data, y.rowStride, out.data, out.rowStride,
                  nullptr);
}

bool overlap(size_t rowsX, size_t colsX, ConstBlock x, size_t rowsY, size_t colsY, ConstBlock y) {
  return overlap(Extent{x.data, rowsX, colsX, static_cast<size_t>(x.rowStride)},
                 Extent{y.data, rowsY, colsY, static_cast<size_t>(y.rowStride)});
}

// The sums of one group of columns, each kept in C after every step as an overlapping operand
// would see it.
void sumInPlace(size_t m, size_t k, size_t firstCol, size_t cols, ConstBlock a, ConstBlock b,
                Block c) {
  for (size_t i = 0; i < m; ++i) {
    double* sums = row(c, i) + firstCol;
    for (size_t p = 0; p < k; ++p) {
      const double factor = row(a, i)[p];
      const double* terms = row(b, p) + firstCol;
      for (size_t j = 0; j < cols; ++j) sums[j] += factor * terms[j];
    }
  }
}

void overlappingProduct(size_t m, size_t n, size_t k, ConstBlock a, ConstBlock b, Block c) {
  for (size_t i = 0; i < m; ++i) std::fill_n(row(c, i), n, 0.0);
  constexpr size_t kGroup = 5;
  size_t j = 0;
  if (n > 14) {
    for (; n - j >= kGroup; j += kGroup) sumInPlace(m, k, j, kGroup, a, b, c);
  }
  for (; j < n; ++j) sumInPlace(m, k, j, 1, a, b, c);
}

void multiply(bool small, size_t m, size_t n, size_t k, ConstBlock a, ConstBlock b, Block c) {
  (small ? loopProduct : blockProduct)(m, n, k, a.data, a.rowStride, b.data, b.rowStride, c.data,
                                       c.rowStride);
}

// A factor of one of the seven products: x, x + y or x - y.
struct Factor {
  Combine how;
  ConstBlock x;
  ConstBlock y;
};

// The seven products of h x h quarters, one after the other. Where they are the loop kernel's, the
// right factor is formed packed, and the product is made in strips of rows, so that the strips of
// the left factor and of the product stay in the second-level cache between the passes over them.
class SevenProducts {
 public:
  SevenProducts(bool small, size_t h)
      : h_(h),
        packs_(small && h <= PackedRight::kLargest),
        strip_(packs_ ? std::min(h, kStripRows) : h) {
    const size_t right = packs_ ? PackedRight::room(h, h) : h * h;
    const auto stride = static_cast<ptrdiff_t>(h);
    buffer_ = allocateAligned(right + 2 * strip_ * h);
    right_ = rowMajor(buffer_.get(), stride);
    left_ = rowMajor(buffer_.get() + right, stride);
    product_ = left_.at(strip_, 0);
  }

  void run(ConstBlock a, ConstBlock b, Block c);

 private:
  static constexpr size_t kStripRows = 64;

  // Writes x*y to `out`, or to a buffer where out is null, and calls use(first, rows, product) for
  // strips of the product in turn.
  template <class Use>
  void multiplyAndUse(const Factor& x, const Factor& y, Block out, Use use) {
    PackedRight packed(h_, h_, buffer_.get());
    if (packs_) {
      packed.fill(y.how, y.x.data, y.x.rowStride, y.y.data, y.y.rowStride);
    } else if (y.how != Combine::Copy) {
      combine(y.how, h_, h_, y.x, y.y, right_);
    }
    const ConstBlock right = y.how == Combine::Copy ? y.x : right_;
    for (size_t first = 0; first < h_; first += strip_) {
      const size_t rows = std::min(strip_, h_ - first);
      ConstBlock left = x.x.at(first, 0);
      if (x.how != Combine::Copy) {
        combine(x.how, rows, h_, left, x.y.at(first, 0), left_);
        left = left_;
      }
      const Block product = out.data == nullptr ? product_ : out.at(first, 0);
      if (packs_) {
        packed.multiply(rows, left, product);
      } else {
        blockProduct(rows, h_, h_, left.data, left.rowStride, right.data, right.rowStride,
                     product.data, product.rowStride);
      }
      for (size_t i = 0; i < rows; i += kStripRows) {
        use(first + i, std::min(kStripRows, rows - i), product.at(i, 0));
      }
    }
  }

  size_t h_;
  bool packs_;
  size_t strip_;
  AlignedBuffer buffer_;
  Block right_;
  Block left_;
  Block product_;
};

// With the products added up where they are wanted, each element of C is evaluated as
//   C11 = ((M1 + M4) - M5) + M7    C12 = M3 + M5
//   C21 = M2 + M4                  C22 = ((M1 + M3) - M2) + M6.
void SevenProducts::run(ConstBlock a, ConstBlock b, Block c) {
  const size_t h = h_;
  const ConstBlock a11 = a, a12 = a.at(0, h), a21 = a.at(h, 0), a22 = a.at(h, h);
  const ConstBlock b11 = b, b12 = b.at(0, h), b21 = b.at(h, 0), b22 = b.at(h, h);
  const Block c11 = c, c12 = c.at(0, h), c21 = c.at(h, 0), c22 = c.at(h, h);
  const auto alone = [](ConstBlock x) { return Factor{Combine::Copy, x, x}; };
  const auto sum = [](ConstBlock x, ConstBlock y) { return Factor{Combine::Sum, x, y}; };
  const auto difference = [](ConstBlock x, ConstBlock y) {
    return Factor{Combine::Difference, x, y};
  };
  const Block buffer;
  const auto nothing = [](size_t, size_t, ConstBlock) {};
  // Rows i ... of a quarter of C become themselves plus or minus the rows of a product.
  const auto join = [h](Combine how, Block quarter, size_t i, size_t rows, ConstBlock product) {
    combine(how, rows, h, quarter.at(i, 0), product, quarter.at(i, 0));
  };

  multiplyAndUse(sum(a11, a22), sum(b11, b22), c11, nothing);  // M1
  multiplyAndUse(sum(a21, a22), alone(b11), c21, nothing);     // M2
  multiplyAndUse(alone(a11), difference(b12, b22), c12, [&](size_t i, size_t rows, ConstBlock m3) {
    combine(Combine::Sum, rows, h, c11.at(i, 0), m3, c22.at(i, 0));
    join(Combine::Difference, c22, i, rows, c21.at(i, 0));
  });
  multiplyAndUse(alone(a22), difference(b21, b11), buffer,
                 [&](size_t i, size_t rows, ConstBlock m4) {
                   join(Combine::Sum, c11, i, rows, m4);
                   join(Combine::Sum, c21, i, rows, m4);
                 });
  multiplyAndUse(sum(a11, a12), alone(b22), buffer, [&](size_t i, size_t rows, ConstBlock m5) {
    join(Combine::Difference, c11, i, rows, m5);
    join(Combine::Sum, c12, i, rows, m5);
  });
  multiplyAndUse(
      difference(a21, a11), sum(b11, b12), buffer,
      [&](size_t i, size_t rows, ConstBlock m6) { join(Combine::Sum, c22, i, rows, m6); });
  multiplyAndUse(
      difference(a12, a22), sum(b21, b22), buffer,
      [&](size_t i, size_t rows, ConstBlock m7) { join(Combine::Sum, c11, i, rows, m7); });
}

// Each block of C is its first product plus the second, C22, C21, C11 and C12 in turn.
void eightProducts(bool small, size_t m, size_t n, size_t k, size_t hm, size_t hn, size_t hk,
                   ConstBlock a, ConstBlock b, Block c) {
  const AlignedBuffer buffer = allocateAligned((m - hm) * (n - hn));
  const auto quarter = [&](size_t i, size_t rows, size_t j, size_t cols) {
    const Block out = c.at(i, j);
    const Block t = rowMajor(buffer.get(), static_cast<ptrdiff_t>(cols));
    multiply(small, rows, cols, hk, a.at(i, 0), b.at(0, j), out);
    multiply(small, rows, cols, k - hk, a.at(i, hk), b.at(hk, j), t);
    combine(Combine::Sum, rows, cols, out, t, out);
  };
  quarter(hm, m - hm, hn, n - hn);
  quarter(hm, m - hm, 0, hn);
  quarter(0, hm, 0, hn);
  quarter(0, hm, hn, n - hn);
}

}  // namespace

void loopProduct(size_t m, size_t n, size_t k, const double* a, ptrdiff_t lda, const double* b,
                 ptrdiff_t ldb, double* c, ptrdiff_t ldc) {
  const Block target = rowMajor(c, ldc);
  const ConstBlock left = rowMajor(a, lda);
  const ConstBlock right = rowMajor(b, ldb);
  if (overlap(m, k, left, m, n, target) || overlap(k, n, right, m, n, target)) {
    overlappingProduct(m, n, k, left, right, target);
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
  const ConstBlock left = rowMajor(a, lda);
  const ConstBlock right = rowMajor(b, ldb);
  const Block target = rowMajor(c, ldc);
  // An odd order takes the other way: its halves would not be square.
  if (m % 2 == 0 && m == k && k == n) {
    if (!overlap(m, k, left, m, n, target) && !overlap(k, n, right, m, n, target)) {
      return SevenProducts(small, hm).run(left, right, target);
    }
    const AlignedBuffer whole =
        allocateAligned(m * n);  // all products come before the first sum in C
    SevenProducts(small, hm).run(left, right, rowMajor(whole.get(), static_cast<ptrdiff_t>(n)));
    for (size_t i = 0; i < m; ++i) std::copy_n(whole.get() + i * n, n, row(target, i));
    return;
  }
  hk &= ~size_t{1};
  hn &= ~size_t{1};
  eightProducts(small, m, n, k, hm, hn, hk, left, right, target);
}

}  // namespace korin::kernels
