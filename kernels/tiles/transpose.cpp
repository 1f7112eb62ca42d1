#include "kernels/tiles/transpose.h"

#include <algorithm>

#include "kernels/tiles/tile.h"

namespace korin::kernels {

// 64 x 64 doubles are 32 KiB on each side: the source block is read once and the 64 cache lines
// being filled in the target stay in the first-level cache until they are full.
static constexpr std::size_t kBlock = 64;

void transposeBlocks(const TileTable& table, std::size_t rows, std::size_t cols, const double* src,
                     std::ptrdiff_t srcStride, double* dst, std::ptrdiff_t dstStride) {
  const std::size_t width = table.width;
  const std::size_t fullRows = rows - rows % width;
  const std::size_t fullCols = cols - cols % width;
  const auto plain = [&](std::size_t i0, std::size_t i1, std::size_t j0, std::size_t j1) {
    for (std::size_t j = j0; j < j1; ++j) {
      double* out = dst + static_cast<std::ptrdiff_t>(j) * dstStride;
      for (std::size_t i = i0; i < i1; ++i) {
        out[i] = src[static_cast<std::ptrdiff_t>(i) * srcStride + static_cast<std::ptrdiff_t>(j)];
      }
    }
  };
  for (std::size_t j = 0; j < fullCols; j += width) {
    for (std::size_t i = 0; i < fullRows; i += width) {
      table.transpose(src + static_cast<std::ptrdiff_t>(i) * srcStride + j, srcStride,
                      dst + static_cast<std::ptrdiff_t>(j) * dstStride + i, dstStride);
    }
  }
  plain(fullRows, rows, 0, fullCols);
  plain(0, rows, fullCols, cols);
}

void transpose(std::size_t rows, std::size_t cols, const double* src, std::ptrdiff_t srcStride,
               double* dst, std::ptrdiff_t dstStride) {
  const TileTable& table = tiles();
  for (std::size_t i = 0; i < rows; i += kBlock) {
    for (std::size_t j = 0; j < cols; j += kBlock) {
      transposeBlocks(table, std::min(kBlock, rows - i), std::min(kBlock, cols - j),
                      src + static_cast<std::ptrdiff_t>(i) * srcStride + j, srcStride,
                      dst + static_cast<std::ptrdiff_t>(j) * dstStride + i, dstStride);
    }
  }
}

}  // namespace korin::kernels
