#ifndef ZEPH_DENSE_MATRIX_H
#define ZEPH_DENSE_MATRIX_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "zeph/error.h"

namespace zeph {

/// Dense matrix, column after column: entry (r, c) is values[r + c * rows].
struct DenseMatrix {
  /// A matrix of zeros. Throws Error(Memory) where its bytes cannot be counted.
  static DenseMatrix zeros(std::size_t rowCount, std::size_t colCount) {
    constexpr std::size_t kMost = SIZE_MAX / sizeof(double);
    if (colCount > 0 && rowCount > kMost / colCount) {
      throw Error(ErrorKind::Memory, "a dense matrix of " + std::to_string(rowCount) + " x " +
                                         std::to_string(colCount) + " is beyond any memory");
    }
    DenseMatrix m;
    m.rows = rowCount;
    m.cols = colCount;
    m.values.assign(rowCount * colCount, 0.0);
    return m;
  }

  /// Entry (row, col), zero-based; not checked.
  double& operator()(std::size_t row, std::size_t col) { return values[row + col * rows]; }
  /// The same, to be read only.
  double operator()(std::size_t row, std::size_t col) const { return values[row + col * rows]; }

  std::string source = "the matrix";  ///< file name, for messages
  std::size_t rows = 0;               ///< number of rows
  std::size_t cols = 0;               ///< number of columns
  std::vector<double> values;         ///< rows * cols of them, column after column
};

}  // namespace zeph

#endif
