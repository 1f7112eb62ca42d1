#ifndef ZEPH_KERNELS_PRODUCTS_ORDERED_PRODUCT_H
#define ZEPH_KERNELS_PRODUCTS_ORDERED_PRODUCT_H

#include <cstddef>

namespace korin::kernels {

/// C = A*B with ordered sums: every element is the sum over p = 0 .. k-1, in increasing order, of
/// the rounded products a(i, p)*b(p, j), started at 0.0, without fused multiply-add; bit for bit
/// what the plain triple loop gives, on every processor level.
///
/// Row-major operands with row strides: A is m x k at a[i*lda + p], B is k x n at b[p*ldb + j], C
/// is m x n at c[i*ldc + j]. C must not overlap A or B. Nothing is checked. May throw
/// std::bad_alloc when a thread's packing buffer is first made. Cost: 2*m*n*k operations.
void orderedProduct(std::size_t m, std::size_t n, std::size_t k, const double* a,
                    std::ptrdiff_t lda, const double* b, std::ptrdiff_t ldb, double* c,
                    std::ptrdiff_t ldc);

/// The same for C = A*B^T with B stored n x k: b(p, j) lies at b[j*ldb + p].
void orderedProductTransposed(std::size_t m, std::size_t n, std::size_t k, const double* a,
                              std::ptrdiff_t lda, const double* b, std::ptrdiff_t ldb, double* c,
                              std::ptrdiff_t ldc);

/// The same for C = A^T*B with A stored k x m: a(p, i) lies at a[p*lda + i].
void orderedTransposedProduct(std::size_t m, std::size_t n, std::size_t k, const double* a,
                              std::ptrdiff_t lda, const double* b, std::ptrdiff_t ldb, double* c,
                              std::ptrdiff_t ldc);

}  // namespace korin::kernels

#endif
