#ifndef ZEPH_KERNELS_TRIANGLES_TRIANGLE_ROWS_H
#define ZEPH_KERNELS_TRIANGLES_TRIANGLE_ROWS_H

// The inversion of a small triangle, written once on vectors of eight doubles that the compiler
// splits as the processor level asks for. Included only by the triangle_inverse_*.cpp files, each
// of which gets a copy of its own.

#include "kernels/triangles/triangle_inverse.h"

namespace korin::kernels {
namespace {

typedef double Half __attribute__((vector_size(64)));
typedef double LooseHalf __attribute__((vector_size(64), aligned(8), may_alias));

/// kUnit + 15 - i starts row i of the identity.
constexpr double kUnit[31] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};

/// Row i of W is (e_i - sum over k < i of l(i, k) W(k, :)) / l(i, i).
inline __attribute__((always_inline)) void invertByRows(size_t n, const double* l, ptrdiff_t ld,
                                                        double* w, ptrdiff_t wStride) {
  Half left[kSmallTriangle];
  Half right[kSmallTriangle];
  for (size_t i = 0; i < n; ++i, ++l, w += wStride) {
    const double reciprocal = 1.0 / l[static_cast<ptrdiff_t>(i) * ld];
    Half x = *reinterpret_cast<const LooseHalf*>(kUnit + 15 - i);
    Half y = *reinterpret_cast<const LooseHalf*>(kUnit + 23 - i);
    const double* entry = l;
    size_t k = 0;
    for (; k < i && k < 8; ++k, entry += ld) x -= *entry * left[k];
    for (; k < i; ++k, entry += ld) {
      x -= *entry * left[k];
      y -= *entry * right[k];
    }
    left[i] = x *= reciprocal;
    right[i] = y *= reciprocal;
    *reinterpret_cast<LooseHalf*>(w) = x;
    *reinterpret_cast<LooseHalf*>(w + 8) = y;
  }
}

}  // namespace
}  // namespace korin::kernels

#endif
