#ifndef ZEPH_KERNELS_TRIPLETS_TRIPLET_BANDS_H
#define ZEPH_KERNELS_TRIPLETS_TRIPLET_BANDS_H

#include <cstddef>

namespace korin::kernels {

/// Most triplets that are put into bands at a time; each takes 16 bytes of workspace.
constexpr std::size_t kBandPortion = std::size_t{1} << 20;

/// Whether addTripletProductInBands is worth its workspace for this list and a C of `rows` rows and
/// `cols` columns: C is larger than the cache, its rows are wide, and the list visits rows of A and
/// columns of A here and there (judged by a sample of some hundred triplets).
bool bandsPay(const void* triplets, std::size_t count, std::size_t rows, std::size_t cols);

/// addTripletProduct (kernels/triplets/triplet_product.h) by bands of rows of C that stay in the
/// cache: a stable counting sort takes portions of the list into bands first. Every row of C still
/// receives its products in list order, so the result is the same bit for bit.
///
/// All rows of the triplets must be less than `rows`. Allocates 16 bytes a triplet, at most 16 MiB;
/// takes the plain product if there is no memory. Nothing is thrown.
void addTripletProductInBands(const void* triplets, std::size_t count, const double* b,
                              std::size_t ldb, double* c, std::size_t ldc, std::size_t rows,
                              std::size_t cols);

}  // namespace korin::kernels

#endif
