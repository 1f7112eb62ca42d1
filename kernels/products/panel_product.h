// Products A B^T of matrices whose rows lie in panels, in free summation order.
#ifndef ZEPH_KERNELS_PRODUCTS_PANEL_PRODUCT_H
#define ZEPH_KERNELS_PRODUCTS_PANEL_PRODUCT_H

#include <cstddef>

#include "kernels/tiles/tile.h"

namespace korin::kernels {

/// Rows of which every level's panels are a part: whole tiles, as their rows and as their vectors.
inline constexpr std::size_t kPanelRows = 24;
/// Whole vectors, and what a tile may reach above a diagonal.
inline constexpr std::size_t kRowStep = 8;

/// The least multiple of kPanelRows that is not below `rows`.
inline std::size_t wholePanels(std::size_t rows) {
  return (rows + kPanelRows - 1) / kPanelRows * kPanelRows;
}

/// The least multiple of kRowStep that is not below `rows`.
inline std::size_t wholeSteps(std::size_t rows) {
  return (rows + kRowStep - 1) / kRowStep * kRowStep;
}

/// The rows of a matrix of few columns as register tiles read them, on their left and on their
/// right: row i of column k lies at
/// data[i / width * panelStep + i % width * rowStep + k * columnStep].
struct RowPanels {
  const double* data;
  std::size_t width;
  std::size_t panelStep;
  std::ptrdiff_t columnStep;
  /// Whether there are numbers behind the last row, up to a multiple of kRowStep.
  bool padded;
  std::size_t rowStep = 1;

  const double* at(std::size_t row) const {
    return data + row / width * panelStep + row % width * rowStep;
  }
};

/// A column-major matrix as it lies. The more columns, the farther apart is what a tile reads.
inline RowPanels unpackedRows(const double* a, std::size_t stride) {
  return {a, kPanelRows, kPanelRows, static_cast<std::ptrdiff_t>(stride), false};
}

/// Rows packed into panels, one after the other, each with its columns one after the other: packed
/// once, they serve both sides of all tiles. The panels of a level are as wide as its widest full
/// tile, and not narrower than kRowStep: what a tile reads on its right is then one stream.
class PackedRows {
 public:
  /// `data` has room for wholePanels(rows) * columns doubles.
  PackedRows(double* data, std::size_t columns)
      : data_(data), columns_(columns), width_(panelWidth()) {}

  /// Rows of a panel at the level in use: a part of kPanelRows, and a multiple of kRowStep.
  static std::size_t panelWidth();

  /// Packs rows row .. row+count-1 of columns first .. first+columns-1, element (row+i, first+k) of
  /// which lies at a[i + k * stride]; `row` is a multiple of kRowStep. The last rows are filled up
  /// with zeros to a whole step.
  void pack(std::size_t row, std::size_t count, std::size_t first, std::size_t columns,
            const double* a, std::size_t stride) const;

  /// Where row `row` of column `column` lies.
  double* place(std::size_t row, std::size_t column) const {
    return data_ + (row / width_ * columns_ + column) * width_ + row % width_;
  }

  /// From column `first` on.
  RowPanels panels(std::size_t first = 0) const {
    return {data_ + first * width_, width_, width_ * columns_, static_cast<std::ptrdiff_t>(width_),
            true};
  }

 private:
  double* data_;
  std::size_t columns_;
  std::size_t width_;
};

/// A block of a product.
struct ProductPart {
  std::size_t firstRow, endRow;
  std::size_t firstColumn, endColumn;
};

/// C(i, j) = [C(i, j)] +- sum over k < inner of A(i, k) B(j, k) for the rows i and columns j of a
/// part; `flags` are TileFlags, and A's rowStep is 1. Element (firstRow, firstColumn) of C lies at
/// c[0], columns are `stride` apart. No sum depends on how a product is cut into parts. Nothing is
/// checked or allocated.
void panelProduct(const RowPanels& a, const RowPanels& b, std::size_t inner,
                  const ProductPart& part, double* c, std::size_t stride, unsigned flags);

/// The same for i >= j alone, where firstRow is a multiple of kRowStep. Up to kRowStep - 1 elements
/// of a column above the diagonal may be read and written as well, but none above firstRow.
void lowerPanelProduct(const RowPanels& a, const RowPanels& b, std::size_t inner,
                       const ProductPart& part, double* c, std::size_t stride, unsigned flags);

}  // namespace korin::kernels

#endif
