#ifndef ZEPH_KERNELS_TRIANGLES_TRIANGLE_INVERSE_H
#define ZEPH_KERNELS_TRIANGLES_TRIANGLE_INVERSE_H

// Files for one processor level include this header, so it must not pull in the standard library's
// templates.

#include <stddef.h>

namespace korin::kernels {

/// Largest order of a triangle inverted row by row in vector registers.
inline constexpr size_t kSmallTriangle = 16;

/// W = L^-1 for lower-triangular L of order n <= kSmallTriangle.
///
/// Element (i, k) of L is l[i + k*ld] (column-major), of W w[i*wStride + k] (row-major). Rows of W
/// are written with zeros right of the diagonal up to column kSmallTriangle - 1, whatever n: the
/// caller makes room for that behind the last row, and fills in later what it wants there.
/// A zero on the diagonal gives infinities and NaN.
using TriangleInverseFunction = void (*)(size_t n, const double* l, ptrdiff_t ld, double* w,
                                         ptrdiff_t wStride);

void invertTriangleBaseline(size_t n, const double* l, ptrdiff_t ld, double* w, ptrdiff_t wStride);
void invertTriangleAvx2(size_t n, const double* l, ptrdiff_t ld, double* w, ptrdiff_t wStride);
void invertTriangleAvx512(size_t n, const double* l, ptrdiff_t ld, double* w, ptrdiff_t wStride);

/// The function of the processor level in use.
TriangleInverseFunction smallTriangleInverse();

}  // namespace korin::kernels

#endif
