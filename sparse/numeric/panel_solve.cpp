#include "sparse/numeric/panel_solve.h"

#include "kernels/products/tiled_product.h"

namespace korin::sparse {
namespace {

using std::ptrdiff_t;
using std::size_t;

/// Columns of a panel's triangle that are solved by plain loops.
constexpr Index kTriangle = 32;

}  // namespace

/// y = y - x M^T for the rows of x and y, with M column-major, rows x columns. The sums are those
/// of the fused tiles, whose bits do not depend on how many rows there are.
void subtractForward(Sides x, size_t rows, size_t columns, const double* m, size_t stride,
                     Sides y) {
  kernels::tiledProduct(kernels::TileFamily::Fused, static_cast<size_t>(y.count), rows, columns,
                        x.block(), {m, static_cast<ptrdiff_t>(stride), 1}, y.block(),
                        kernels::kTileUpdate | kernels::kTileNegate);
}

void subtractBackward(Sides x, size_t rows, size_t columns, const double* m, size_t stride,
                      Sides y) {
  kernels::dotProduct(static_cast<size_t>(y.count), columns, rows, x.block(),
                      {m, 1, static_cast<ptrdiff_t>(stride)}, y.block(),
                      kernels::kTileUpdate | kernels::kTileNegate);
}

void solveSquare(const double* l, size_t stride, Index width, Sides x) {
  for (Index first = 0; first < width; first += kTriangle) {
    const Index end = std::min(first + kTriangle, width);
    for (Index s = 0; s < x.count; ++s) {
      double* const v = x.row(s);
      for (Index j = first; j < end; ++j) {
        const double* const column = l + static_cast<size_t>(j) * stride;
        const double value = v[j] / column[j];
        v[j] = value;
        for (Index i = j + 1; i < end; ++i) v[i] -= column[i] * value;
      }
    }
    subtractForward(x.from(static_cast<size_t>(first)), static_cast<size_t>(width - end),
                    static_cast<size_t>(end - first), l + static_cast<size_t>(first) * stride + end,
                    stride, x.from(static_cast<size_t>(end)));
  }
}

void solveSquareTransposed(const double* l, size_t stride, Index width, Sides x) {
  for (Index end = width; end > 0;) {
    const Index first = (end - 1) / kTriangle * kTriangle;
    subtractBackward(x.from(static_cast<size_t>(end)), static_cast<size_t>(width - end),
                     static_cast<size_t>(end - first),
                     l + static_cast<size_t>(first) * stride + end, stride,
                     x.from(static_cast<size_t>(first)));
    for (Index s = 0; s < x.count; ++s) {
      double* const v = x.row(s);
      for (Index j = end; j-- > first;) {
        const double* const column = l + static_cast<size_t>(j) * stride;
        double sum = v[j];
        for (Index i = j + 1; i < end; ++i) sum -= column[i] * v[i];
        v[j] = sum / column[j];
      }
    }
    end = first;
  }
}

}  // namespace korin::sparse
