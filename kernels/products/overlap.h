#ifndef ZEPH_KERNELS_PRODUCTS_OVERLAP_H
#define ZEPH_KERNELS_PRODUCTS_OVERLAP_H

#include <cstddef>
#include <functional>

namespace korin::kernels {

/// A row-major block of doubles: rows x cols, rows `stride` elements apart.
struct Extent {
  const double* data;
  std::size_t rows;
  std::size_t cols;
  std::size_t stride;
};

/// Whether two blocks may share an element. Exact for blocks of one matrix side by side, which
/// share address ranges but no element; otherwise goes by the address ranges.
inline bool overlap(const Extent& x, const Extent& y) {
  if (x.rows == 0 || x.cols == 0 || y.rows == 0 || y.cols == 0) return false;
  const auto end = [](const Extent& e) { return e.data + (e.rows - 1) * e.stride + e.cols; };
  const std::less<const double*> before;
  if (!before(x.data, end(y)) || !before(y.data, end(x))) return false;
  if (x.stride != y.stride || x.stride == 0) return true;
  const Extent& low = before(y.data, x.data) ? y : x;
  const Extent& high = before(y.data, x.data) ? x : y;
  const std::size_t col = static_cast<std::size_t>(high.data - low.data) % low.stride;
  return col < low.cols || col + high.cols > low.stride;
}

}  // namespace korin::kernels

#endif
