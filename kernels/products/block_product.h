#ifndef ZEPH_KERNELS_PRODUCTS_BLOCK_PRODUCT_H
#define ZEPH_KERNELS_PRODUCTS_BLOCK_PRODUCT_H

#include <cstddef>

namespace korin::kernels {

/// Halves of at most this size are multiplied by the loop kernel; the block recursion pays only
/// for products whose three dimensions all exceed it.
inline constexpr std::size_t kBlockedLimit = 258;

/// C = A*B by the loop kernel: orderedProduct, except that C may overlap A or B. Then the columns
/// of C are zeroed first and summed in place in groups of five, reading what was just written.
void loopProduct(std::size_t m, std::size_t n, std::size_t k, const double* a, std::ptrdiff_t lda,
                 const double* b, std::ptrdiff_t ldb, double* c, std::ptrdiff_t ldc);

/// C = A*B by recursive halving: seven products of quarters when A and B are square of the same
/// even order (Strassen, 1969), otherwise eight products of a 2 x 2 partition whose splits of k
/// and n are rounded down to even. Where half of m, n or k is at most kBlockedLimit, the products
/// are loopProduct's. The order of products and sums is fixed, so results are the same to the bit
/// everywhere, but differ in rounding from loopProduct's.
///
/// Row-major operands with row strides as in orderedProduct; nothing is checked. Takes temporary
/// memory of about one C; throws std::bad_alloc before C is complete when there is none.
void blockProduct(std::size_t m, std::size_t n, std::size_t k, const double* a, std::ptrdiff_t lda,
                  const double* b, std::ptrdiff_t ldb, double* c, std::ptrdiff_t ldc);

}  // namespace korin::kernels

#endif
