#ifndef ZEPH_KERNELS_TRIANGLES_CHOLESKY_H
#define ZEPH_KERNELS_TRIANGLES_CHOLESKY_H

#include <cstddef>

namespace korin::kernels {

/// Lower Cholesky factor in place, A = L*L^T, of the symmetric n x n matrix whose lower triangle
/// lies row-major at a[i*stride + j]. The strict upper triangle is neither read nor written.
///
/// Returns n, or the first k whose pivot is not positive (0 >= pivot, so that NaN passes). Then
/// columns before k are those of L and the rest has been updated with them, as after k steps of
/// the right-looking loop
///   a(k, k) = sqrt(a(k, k)); a(i, k) *= 1 / a(k, k); a(i, j) -= a(i, k) * a(j, k),
/// which it reproduces to the bit: every element loses its products in increasing k, one rounded
/// multiplication and subtraction each. n^3 / 3 operations, most of them in register tiles.
std::size_t cholesky(std::size_t n, double* a, std::ptrdiff_t stride);

}  // namespace korin::kernels

#endif
