#include "kernels/products/panel_product.h"

#include <algorithm>

namespace korin::kernels {

std::size_t PackedRows::panelWidth() {
  const TileTable& table = tiles();
  return std::max(kRowStep, table.vectors[table.rows - 1] * table.width);
}

namespace {

/// Copies whole rows of a panel for some columns; a constant width leaves no inner loop.
template <std::size_t kWidth>
void packWhole(std::size_t columns, const double* __restrict a, std::size_t stride,
               double* __restrict out) {
  for (; columns != 0; --columns, a += stride, out += kWidth) {
#pragma GCC unroll 24
    for (std::size_t i = 0; i < kWidth; ++i) out[i] = a[i];
  }
}

}  // namespace

void PackedRows::pack(std::size_t row, std::size_t count, std::size_t first, std::size_t columns,
                      const double* a, std::size_t stride) const {
  for (const std::size_t end = row + count; row < end;) {
    const std::size_t rows = std::min(end - row, width_ - row % width_);
    const std::size_t filled = wholeSteps(rows);
    double* out = place(row, first);
    if (rows == kRowStep && width_ == kRowStep) {
      packWhole<kRowStep>(columns, a, stride, out);
    } else if (rows == kPanelRows) {
      packWhole<kPanelRows>(columns, a, stride, out);
    } else {
      const double* in = a;
      for (std::size_t k = 0; k < columns; ++k, in += stride, out += width_) {
        for (std::size_t i = 0; i < rows; ++i) out[i] = in[i];
        for (std::size_t i = rows; i < filled; ++i) out[i] = 0.0;
      }
    }
    row += rows;
    a += rows;
  }
}

namespace {

/// `begin(j)` is the first row that is wanted of the tiles with column j.
template <class Begin>
void runTiles(const RowPanels& a, const RowPanels& b, std::size_t inner, const ProductPart& part,
              double* c, std::size_t stride, unsigned flags, const Begin& begin) {
  const TileTable& table = tiles();
  const auto& whole = table.fused[static_cast<int>(TileTail::Whole)];
  const auto& half = table.fused[static_cast<int>(TileTail::Half)];
  const auto& partial = a.padded ? whole : table.fused[static_cast<int>(TileTail::Masked)];
  const auto step = static_cast<std::ptrdiff_t>(stride);
  const auto across = static_cast<std::ptrdiff_t>(b.rowStep);
  // Tiles are of C's transpose: their rows are columns of C, their vectors run along C's columns.
  for (std::size_t j = part.firstColumn; j < part.endColumn;) {
    const std::size_t left = std::min(part.endColumn - j, b.width - j % b.width);
    const std::size_t tilesLeft = (left + table.rows - 1) / table.rows;
    const std::size_t high = (left + tilesLeft - 1) / tilesLeft;
    const std::size_t vectors = table.vectors[high - 1];
    const std::size_t wide = vectors * table.width;
    const double* const x = b.at(j);
    double* const column = c + (j - part.firstColumn) * stride;
    std::size_t i = begin(j);
    std::size_t within = i % a.width;
    for (const double* panel = a.at(i) - within; i < part.endRow;
         panel += a.panelStep, within = 0) {
      const std::size_t end = std::min(part.endRow, i + a.width - within);
      const double* y = panel + within;
      double* out = column + (i - part.firstRow);
      for (; i + wide <= end; i += wide, y += wide, out += wide) {
        whole[high - 1][vectors - 1](inner, x, across, b.columnStep, y, a.columnStep, out, step,
                                     table.width, flags);
      }
      if (i == end) continue;
      const std::size_t count = (end - i + table.width - 1) / table.width;
      const std::size_t last = end - i - (count - 1) * table.width;
      const bool halved = a.padded ? last <= table.half : last == table.half;
      const auto& tail = halved ? half : last == table.width ? whole : partial;
      tail[high - 1][count - 1](inner, x, across, b.columnStep, y, a.columnStep, out, step, last,
                                flags);
      i = end;
    }
    j += high;
  }
}

}  // namespace

void panelProduct(const RowPanels& a, const RowPanels& b, std::size_t inner,
                  const ProductPart& part, double* c, std::size_t stride, unsigned flags) {
  runTiles(a, b, inner, part, c, stride, flags, [&](std::size_t) { return part.firstRow; });
}

void lowerPanelProduct(const RowPanels& a, const RowPanels& b, std::size_t inner,
                       const ProductPart& part, double* c, std::size_t stride, unsigned flags) {
  runTiles(a, b, inner, part, c, stride, flags,
           [&](std::size_t j) { return std::max(part.firstRow, j / kRowStep * kRowStep); });
}

}  // namespace korin::kernels
