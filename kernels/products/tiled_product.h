#ifndef ZEPH_KERNELS_PRODUCTS_TILED_PRODUCT_H
#define ZEPH_KERNELS_PRODUCTS_TILED_PRODUCT_H

#include <cstddef>

#include "kernels/block.h"
#include "kernels/tiles/tile.h"

namespace korin::kernels {

/// Which family of register tiles a product uses; see TileFunction.
enum class TileFamily { Ordered, Fused };

/// C = [C] +- A*B by register tiles, the frame that both families share; A is m x k, B is k x n.
/// `flags` are TileFlags. C must not overlap A or B. With k = 0, C becomes zero or stays.
///
/// The vectors of a tile run along the columns of B and C: a B without unit column stride is
/// packed first, at the cost of one pass over it, and a C without it goes through copies of its
/// tiles.
void tiledProduct(TileFamily family, std::size_t m, std::size_t n, std::size_t k,
                  const ConstBlock& a, const ConstBlock& b, const Block& c, unsigned flags);

/// The right operand of ordered products, packed once for many left operands.
class PackedRight {
 public:
  /// The largest k and n.
  static constexpr std::size_t kLargest = 264;
  /// Doubles that a k x n operand needs.
  static std::size_t room(std::size_t k, std::size_t n);
  /// A k x n operand in `buffer`, which has room(k, n) doubles.
  PackedRight(std::size_t k, std::size_t n, double* buffer);
  /// B = x, x + y or x - y for row-major x and y.
  void fill(Combine how, const double* x, std::ptrdiff_t xrs, const double* y, std::ptrdiff_t yrs);
  /// C = A*B for a C of m rows, as tiledProduct with TileFamily::Ordered and kTileFresh.
  void multiply(std::size_t m, const ConstBlock& a, const Block& c) const;

 private:
  const TileTable& table_;
  std::size_t k_;
  std::size_t n_;
  double* buffer_;
};

/// The same for few columns, in the fused family, where rows of A and columns of B are contiguous
/// (a.colStride == 1, b.rowStride == 1; not checked): the vectors run along the sums, and nothing
/// is packed.
void dotProduct(std::size_t m, std::size_t n, std::size_t k, const ConstBlock& a,
                const ConstBlock& b, const Block& c, unsigned flags);

}  // namespace korin::kernels

#endif
