#ifndef ZEPH_KERNELS_PACKED_TRIANGLE_H
#define ZEPH_KERNELS_PACKED_TRIANGLE_H

#include <algorithm>
#include <cstddef>

namespace korin::kernels {

/// Doubles of a lower triangle whose columns follow each other without what is above the diagonal.
inline std::size_t packedSize(std::size_t order) {
  return order * (order + 1) / 2;
}

/// Where entry (i, j), i >= j, of such a triangle is, less i.
inline std::size_t packedColumn(std::size_t order, std::size_t j) {
  return j * order - j * (j + 1) / 2;
}

/// Packs the lower triangle of a column-major square where it is.
inline void packTriangle(std::size_t order, double* square) {
  for (std::size_t j = 1; j < order; ++j) {
    std::copy_n(square + j * order + j, order - j, square + packedColumn(order, j) + j);
  }
}

}  // namespace korin::kernels

#endif
