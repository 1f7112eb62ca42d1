#ifndef ZEPH_MATH_KERNELS_TILED_PRODUCT_H
#define ZEPH_MATH_KERNELS_TILED_PRODUCT_H

#include <cstddef>

#include "math/kernels/tile.h"

namespace korin::kernels {

/// Which family of register tiles a product uses; see TileFunction.
enum class TileFamily { Ordered, Fused };

/// C = [C] +- A*B by register tiles: the frame that both families share. Element (i, j) of A lies
/// at a[i*ars + j*acs], of B at b[i*brs + j*bcs], of C at c[i*crs + j] (unit column stride).
/// `flags` are TileFlags. C must not overlap A or B. With k = 0, C becomes zero or stays.
void tiledProduct(TileFamily family, std::size_t m, std::size_t n, std::size_t k, const double* a,
                  std::ptrdiff_t ars, std::ptrdiff_t acs, const double* b, std::ptrdiff_t brs,
                  std::ptrdiff_t bcs, double* c, std::ptrdiff_t crs, unsigned flags);

}  // namespace korin::kernels

#endif
