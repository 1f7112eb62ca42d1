#ifndef ZEPH_KERNELS_PRODUCTS_FUSED_PRODUCT_H
#define ZEPH_KERNELS_PRODUCTS_FUSED_PRODUCT_H

#include <cstddef>

#include "kernels/block.h"

namespace korin::kernels {

/// General matrix product C = beta*C + alpha*A*B with fused multiply-add and free summation order.
/// For factorisations and inverses, whose results are wanted to rounding only; where the order of a
/// sum matters, see ordered_product.h.
///
/// @param m,n,k  C is m x n, A is m x k, B is k x n; any of them may be 0. With k = 0 and
///               beta = 0, C is set to zero.
/// @param alpha  +1.0 or -1.0; other values are not supported.
/// @param beta   0.0 (C is written, never read) or 1.0 (C is updated).
///
/// C must overlap neither A nor B; its stride along at least one dimension should be 1 for speed.
/// Nothing is checked. Allocates on the heap only in a thread's first call, which may throw
/// std::bad_alloc. Cost: 2*m*n*k operations.
void fusedProduct(std::size_t m, std::size_t n, std::size_t k, double alpha, const ConstBlock& a,
                  const ConstBlock& b, double beta, const Block& c);

}  // namespace korin::kernels

#endif
