#ifndef ZEPH_KERNELS_TILES_TILE_H
#define ZEPH_KERNELS_TILES_TILE_H

// The contract between the matrix products and the processor-specific register tiles. Files for
// one processor level include this header, so it must not pull in the standard library's templates.

#include <stddef.h>

namespace korin::kernels {

/// How a tile treats what C holds.
enum TileFlags : unsigned {
  kTileFresh = 0,   ///< C = sum; C is not read
  kTileUpdate = 1,  ///< the sum is added to C
  kTileNegate = 2,  ///< fused tiles only: the sum is subtracted instead of added
};

/// How a tile reads the last vector of a row of B.
enum class TileTail {
  Whole,   ///< all of it: B has readable elements there, whatever lastCols
  Half,    ///< half a vector, of which lastCols columns count; only where TileTable::half says so
  Masked,  ///< lastCols columns, at the cost of one more operation for every row of B
};
inline constexpr size_t kTileTails = 3;

/// One register tile: C (rows x cols) gets the sum over p = 0 .. k-1 of A(i, p) * B(p, j), where
/// A(i, p) is a[i*ars + p*acs], B(p, j) is b[p*brs + j] and C(i, j) is c[i*crs + j]. `lastCols`
/// is the number of columns in the last vector of a row; columns of C beyond it are neither read
/// nor written, those of B as the tile's TileTail says. The numbers of rows and vectors are those
/// of the table position.
///
/// An ordered tile adds in increasing p, one rounded multiplication and one rounded addition
/// each, starting from 0.0 or, with kTileUpdate, from what C holds: splitting k over several
/// calls does not change a bit. A fused tile uses fused multiply-add where there is one and joins
/// the finished sum with C at the end.
using TileFunction = void (*)(size_t k, const double* a, ptrdiff_t ars, ptrdiff_t acs,
                              const double* b, ptrdiff_t brs, double* c, ptrdiff_t crs,
                              size_t lastCols, unsigned flags);

/// The same, and row p of B is copied to packed[p * vectors * width], its last vector (with
/// TileTail::Half the half of it that counts; the other half is not written) filled up with zeros.
using PackingTileFunction = void (*)(size_t k, const double* a, ptrdiff_t ars, ptrdiff_t acs,
                                     const double* b, ptrdiff_t brs, double* c, ptrdiff_t crs,
                                     size_t lastCols, unsigned flags, double* packed);

/// dst(j, i) = src(i, j) for a square block of TileTable::width; strides in elements.
using TransposeFunction = void (*)(const double* src, ptrdiff_t srcStride, double* dst,
                                   ptrdiff_t dstStride);

/// Element (i, j) of C gets the dot product over p = 0 .. k-1 of row i of A, a[i*ars + p], with
/// column j of B, b[p + j*bcs]; C(i, j) is c[i*crs + j*ccs]. The vectors run along p and are summed
/// at the end, so this is for fused products only. Sizes are those of the table position.
using DotFunction = void (*)(size_t k, const double* a, ptrdiff_t ars, const double* b,
                             ptrdiff_t bcs, double* c, ptrdiff_t crs, ptrdiff_t ccs,
                             unsigned flags);

enum class Combine { Copy, Sum, Difference };

/// Columns side by side in panels, each row-major by itself: the first `wider` panels are one
/// vector wider than `width`. The panel that begins with column j lies at out[j*rows].
struct PanelLayout {
  size_t rows;
  size_t width;
  size_t wider;
};

/// out(i, j) = x(i, j), x(i, j) + y(i, j) or x(i, j) - y(i, j) for m x n row-major blocks; y is not
/// read for a copy. With `panels` (whose rows are m), out is laid out as they say, the last vector
/// of every row filled up with zeros, and ors does not count. out may be x or y.
using CombineFunction = void (*)(Combine how, size_t m, size_t n, const double* x, ptrdiff_t xrs,
                                 const double* y, ptrdiff_t yrs, double* out, ptrdiff_t ors,
                                 const PanelLayout* panels);

inline constexpr size_t kMaxTileRows = 8;
inline constexpr size_t kMaxTileVectors = 6;
inline constexpr size_t kMaxTileCols = 48;
inline constexpr size_t kMaxPackingVectors = 3;
inline constexpr size_t kDotRows = 4;
inline constexpr size_t kMaxDotCols = 4;

/// The kernels of one processor level.
struct TileTable {
  size_t width;  ///< doubles in a vector
  size_t rows;   ///< rows of a full tile
  /// Vectors in a row of the widest tile with [rows - 1] rows: low tiles are wider, to have as
  /// many independent sums and as few calls.
  unsigned char vectors[kMaxTileRows];
  size_t half;  ///< doubles in half a vector where there are tiles that end in one, otherwise 0
  /// [TileTail][rows - 1][vectors - 1]
  TileFunction ordered[kTileTails][kMaxTileRows][kMaxTileVectors];
  TileFunction fused[kTileTails][kMaxTileRows][kMaxTileVectors];
  /// [TileTail][vectors - 1], for the rows of a full tile
  PackingTileFunction orderedPacking[kTileTails][kMaxPackingVectors];
  PackingTileFunction fusedPacking[kTileTails][kMaxPackingVectors];
  size_t dotCols;                          ///< columns of the widest dot-product tile
  DotFunction dot[kDotRows][kMaxDotCols];  ///< [rows - 1][columns - 1]
  TransposeFunction transpose;
  CombineFunction combine;
};

extern const TileTable kBaselineTiles;
extern const TileTable kAvx2Tiles;
extern const TileTable kAvx512Tiles;

/// The table of the processor level in use.
const TileTable& tiles();

}  // namespace korin::kernels

#endif
