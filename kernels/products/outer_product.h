// Products of the rows of a matrix with each other, A A^T, in free summation order.
#ifndef ZEPH_KERNELS_PRODUCTS_OUTER_PRODUCT_H
#define ZEPH_KERNELS_PRODUCTS_OUTER_PRODUCT_H

#include <cstddef>

namespace korin::kernels {

/// Rows that share a panel where they are packed: whole tiles on every level, as their rows and as
/// their vectors.
inline constexpr std::size_t kPanelRows = 24;
/// Whole vectors, and what a tile may reach above a diagonal.
inline constexpr std::size_t kRowStep = 8;

/// The least multiple of kPanelRows that is not below `rows`.
inline std::size_t wholePanels(std::size_t rows) {
  return (rows + kPanelRows - 1) / kPanelRows * kPanelRows;
}

/// The rows of a matrix of few columns as register tiles read them, on their left and on their
/// right: row i of column k lies at data[i / kPanelRows * panelStep + i % kPanelRows + k *
/// columnStep].
struct RowPanels {
  const double* data;
  std::size_t panelStep;
  std::ptrdiff_t columnStep;
  /// Whether there are numbers behind the last row, up to a multiple of kRowStep.
  bool padded;

  const double* at(std::size_t row) const {
    return data + row / kPanelRows * panelStep + row % kPanelRows;
  }
};

/// A column-major matrix as it lies. The more columns, the farther apart is what a tile reads.
inline RowPanels unpackedRows(const double* a, std::size_t stride) {
  return {a, kPanelRows, static_cast<std::ptrdiff_t>(stride), false};
}

/// Rows packed into panels, one after the other, each with its columns one after the other: packed
/// once, they serve both sides of all tiles.
class PackedRows {
 public:
  /// `data` has room for wholePanels(rows) * columns doubles.
  PackedRows(double* data, std::size_t columns) : data_(data), columns_(columns) {}

  /// Packs rows row .. row+count-1 of columns first .. first+columns-1, element (row+i, first+k) of
  /// which lies at a[i + k * stride]; `row` is a multiple of kRowStep. The last rows are filled up
  /// with zeros to a whole step.
  void pack(std::size_t row, std::size_t count, std::size_t first, std::size_t columns,
            const double* a, std::size_t stride) const;

  RowPanels panels() const {
    return {data_, kPanelRows * columns_, static_cast<std::ptrdiff_t>(kPanelRows), true};
  }

 private:
  double* data_;
  std::size_t columns_;
};

/// A block of a product. firstRow is a multiple of kRowStep.
struct OuterPart {
  std::size_t firstRow, endRow;
  std::size_t firstColumn, endColumn;
};

/// C(i, j) = [C(i, j)] - sum over k < inner of A(i, k) A(j, k) for the rows i and columns j of a
/// part, i >= j; with `update` C is read, otherwise only written. Element (firstRow, firstColumn)
/// lies at c[0], columns are `stride` apart. Up to kRowStep - 1 elements of a column above the
/// diagonal may be written as well, but none above firstRow. No sum depends on how a product is cut
/// into parts. Nothing is checked or allocated.
void subtractOuterProduct(const RowPanels& a, std::size_t inner, const OuterPart& part, double* c,
                          std::size_t stride, bool update);

}  // namespace korin::kernels

#endif
