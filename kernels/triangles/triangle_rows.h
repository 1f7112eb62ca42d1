#ifndef ZEPH_KERNELS_TRIANGLES_TRIANGLE_ROWS_H
#define ZEPH_KERNELS_TRIANGLES_TRIANGLE_ROWS_H

// The inversion of a small triangle, written once for every vector width. Included only by the
// triangle_inverse_*.cpp files, each with the Lane of its level (kernels/tiles/lane_*.h).

#include "kernels/triangles/triangle_inverse.h"

namespace korin::kernels {
namespace {

/// kMinusUnit + 15 - i starts the negative of row i of the identity.
constexpr double kMinusUnit[31] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, -1};

/// Row i of W is (sum over k < i of l(i, k) W(k, :) - e_i) / -l(i, i).
template <class Lane>
void invertByRows(size_t n, const double* l, ptrdiff_t ld, double* w, ptrdiff_t wStride) {
  constexpr size_t kVectors = kSmallTriangle / Lane::kWidth;
  // Rows of W are read again from here: what the caller has behind a short row is written over.
  alignas(64) double rows[kSmallTriangle * kSmallTriangle];
  for (size_t i = 0; i < n; ++i, ++l, w += wStride) {
    double* const row = rows + i * kSmallTriangle;
    const double factor = -1.0 / l[static_cast<ptrdiff_t>(i) * ld];
    const size_t last = i / Lane::kWidth;
    for (size_t v = 0; v <= last; ++v) {
      const size_t first = v * Lane::kWidth;
      typename Lane::Vector sum = Lane::load(kMinusUnit + 15 - i + first);
      const double* entry = l + static_cast<ptrdiff_t>(first) * ld;
      const double* known = rows + first * kSmallTriangle + first;
      for (size_t k = first; k < i; ++k, entry += ld, known += kSmallTriangle) {
        sum = Lane::multiplyAdd(Lane::broadcast(entry), Lane::load(known), sum);
      }
      sum = Lane::multiplyScalar(&factor, sum);
      Lane::store(row + first, sum);
      Lane::store(w + first, sum);
    }
    for (size_t v = last + 1; v < kVectors; ++v) Lane::store(w + v * Lane::kWidth, Lane::zero());
  }
}

}  // namespace
}  // namespace korin::kernels

#endif
