#include "kernels/products/outer_product.h"

#include <algorithm>

#include "kernels/tiles/tile.h"

namespace korin::kernels {

void PackedRows::pack(std::size_t row, std::size_t count, std::size_t first, std::size_t columns,
                      const double* a, std::size_t stride) const {
  for (const std::size_t end = row + count; row < end;) {
    const std::size_t rows = std::min(end - row, kPanelRows - row % kPanelRows);
    const std::size_t filled = (rows + kRowStep - 1) / kRowStep * kRowStep;
    double* out = data_ + (row / kPanelRows * columns_ + first) * kPanelRows + row % kPanelRows;
    const double* in = a;
    for (std::size_t k = 0; k < columns; ++k, in += stride, out += kPanelRows) {
      if (rows == kPanelRows) {
        std::copy_n(in, kPanelRows, out);  // a known length: no call
        continue;
      }
      for (std::size_t i = 0; i < rows; ++i) out[i] = in[i];
      for (std::size_t i = rows; i < filled; ++i) out[i] = 0.0;
    }
    row += rows;
    a += rows;
  }
}

void subtractOuterProduct(const RowPanels& a, std::size_t inner, const OuterPart& part, double* c,
                          std::size_t stride, bool update) {
  const TileTable& table = tiles();
  const auto& whole = table.fused[static_cast<int>(TileTail::Whole)];
  const auto& half = table.fused[static_cast<int>(TileTail::Half)];
  const auto& partial = a.padded ? whole : table.fused[static_cast<int>(TileTail::Masked)];
  const unsigned flags = kTileNegate | (update ? kTileUpdate : kTileFresh);
  const auto step = static_cast<std::ptrdiff_t>(stride);
  // Tiles are of C's transpose: their rows are columns of C, their vectors run along C's columns.
  for (std::size_t j = part.firstColumn; j < part.endColumn;) {
    const std::size_t left = std::min(part.endColumn - j, kPanelRows - j % kPanelRows);
    const std::size_t tilesLeft = (left + table.rows - 1) / table.rows;
    const std::size_t high = (left + tilesLeft - 1) / tilesLeft;
    const std::size_t vectors = table.vectors[high - 1];
    const std::size_t wide = vectors * table.width;
    const double* const x = a.at(j);
    double* const column = c + (j - part.firstColumn) * stride;
    for (std::size_t i = std::max(part.firstRow, j / kRowStep * kRowStep); i < part.endRow;) {
      const std::size_t end = std::min(part.endRow, i + kPanelRows - i % kPanelRows);
      const double* y = a.at(i);
      double* out = column + (i - part.firstRow);
      for (; i + wide <= end; i += wide, y += wide, out += wide) {
        whole[high - 1][vectors - 1](inner, x, 1, a.columnStep, y, a.columnStep, out, step,
                                     table.width, flags);
      }
      if (i == end) continue;
      const std::size_t count = (end - i + table.width - 1) / table.width;
      const std::size_t last = end - i - (count - 1) * table.width;
      const bool halved = a.padded ? last <= table.half : last == table.half;
      const auto& tail = halved ? half : last == table.width ? whole : partial;
      tail[high - 1][count - 1](inner, x, 1, a.columnStep, y, a.columnStep, out, step, last, flags);
      i = end;
    }
    j += high;
  }
}

}  // namespace korin::kernels
