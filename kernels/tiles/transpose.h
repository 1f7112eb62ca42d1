#ifndef ZEPH_KERNELS_TILES_TRANSPOSE_H
#define ZEPH_KERNELS_TILES_TRANSPOSE_H

#include <cstddef>

#include "kernels/tiles/tile.h"

namespace korin::kernels {

/// dst(j, i) = src(i, j) for i < rows, j < cols: out-of-place transposition of row-major data.
/// Element (i, j) of src is src[i*srcStride + j]; dst is cols x rows with row stride dstStride.
/// The two must not overlap; nothing is checked. Blocked so that both sides are walked a few cache
/// lines at a time.
void transpose(std::size_t rows, std::size_t cols, const double* src, std::ptrdiff_t srcStride,
               double* dst, std::ptrdiff_t dstStride);

/// The same with the kernels of a given level and without blocking for the cache: for blocks that
/// fit the first-level cache.
void transposeBlocks(const TileTable& table, std::size_t rows, std::size_t cols, const double* src,
                     std::ptrdiff_t srcStride, double* dst, std::ptrdiff_t dstStride);

}  // namespace korin::kernels

#endif
