// How the dense library's own files walk a record: rows, vectors as rows, square tiles.
#ifndef ZEPH_MATH_DENSE_KORIN_ROWS_H
#define ZEPH_MATH_DENSE_KORIN_ROWS_H

#include <algorithm>
#include <cstddef>

#include "math/dense/korin_matrix.h"

namespace korin {

inline ZtReal* rowOf(ZtMatrix& m, ZtSize r) {
  return m.data + r * m.stride;
}

inline const ZtReal* rowOf(const ZtMatrix& m, ZtSize r) {
  return m.data + r * m.stride;
}

/// The stride as the kernels take it.
inline std::ptrdiff_t step(const ZtMatrix& m) {
  return static_cast<std::ptrdiff_t>(m.stride);
}

/// The vector as a 1 x size matrix over the same elements, so that what holds for matrices need
/// not be written again for vectors.
inline Matrix asRow(ZtVector& v) {
  return Matrix(1, v.size, v.size, v.data, kZtView);
}

inline const Matrix asRow(const ZtVector& v) {
  return Matrix(1, v.size, v.size, v.data, kZtView);
}

/// Side of the tiles in which a matrix and the transpose of another are walked together: the
/// cache lines of one tile of each (32 * 4 + 32 * 4 lines of 64 bytes) stay in a 32 KiB cache.
inline constexpr ZtSize kTile = 32;

/// Calls tile(r0, r1, c0, c1) for the kTile x kTile tiles of a rows x cols matrix, row by row.
template <typename Tile>
void forEachTile(ZtSize rows, ZtSize cols, Tile tile) {
  for (ZtSize r = 0; r < rows; r += kTile) {
    for (ZtSize c = 0; c < cols; c += kTile) {
      tile(r, std::min(r + kTile, rows), c, std::min(c + kTile, cols));
    }
  }
}

}  // namespace korin

#endif
