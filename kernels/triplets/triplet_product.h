#ifndef ZEPH_KERNELS_TRIPLETS_TRIPLET_PRODUCT_H
#define ZEPH_KERNELS_TRIPLETS_TRIPLET_PRODUCT_H

#include <cstddef>

namespace korin::kernels {

/// C += A*B for A given as a list of triplets in any order: for each triplet in turn and each k,
/// c(row, k) += value * b(col, k). Every element of C receives its products in list order, each
/// rounded before it is added, so the result has the same bits on every processor level.
///
/// @param triplets  count records of 16 bytes: u32 row, u32 col, f64 value.
/// @param b,c       row-major with row strides ldb, ldc; rows are addressed as the triplets say.
/// @param cols      columns of B and C that take part.
///
/// C must not overlap B. Nothing is checked, nothing is thrown or allocated. 2*count*cols
/// operations; one pass over the list for every 32 columns (16 without AVX2).
void addTripletProduct(const void* triplets, std::size_t count, const double* b, std::size_t ldb,
                       double* c, std::size_t ldc, std::size_t cols);

}  // namespace korin::kernels

#endif
