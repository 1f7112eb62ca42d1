#ifndef ZEPH_KERNELS_TILES_COMBINE_ROWS_H
#define ZEPH_KERNELS_TILES_COMBINE_ROWS_H

// Copies, sums and differences of row-major blocks, written once for every vector width. Included
// only by the tile_*.cpp files, each with the Lane of its level (kernels/tiles/lane_*.h).

#include "kernels/tiles/tile.h"

namespace korin::kernels {

template <class Lane>
struct CombineRows {
  using Vector = typename Lane::Vector;
  static constexpr int kWidth = Lane::kWidth;
  static constexpr size_t kCacheLine = 64 / sizeof(double);
  static constexpr size_t kAhead = 8 * kCacheLine;

  template <Combine kHow>
  static inline __attribute__((always_inline)) Vector join(Vector x, Vector y) {
    return kHow == Combine::Sum ? Lane::add(x, y) : Lane::subtract(x, y);
  }

  // One row of one panel; writes nothing beyond `cols`, or with `pad` zeros up to a whole vector.
  template <Combine kHow>
  static inline __attribute__((always_inline)) void row(size_t cols, const double* x,
                                                        const double* y, double* out, bool pad) {
    for (; cols >= kWidth; cols -= kWidth, x += kWidth, out += kWidth) {
      Vector v = Lane::load(x);
      if (kHow != Combine::Copy) {
        v = join<kHow>(v, Lane::load(y));
        y += kWidth;
      }
      Lane::store(out, v);
    }
    if (cols == 0) return;
    const typename Lane::Mask mask = Lane::mask(cols);
    Vector v = Lane::loadPart(x, mask);
    if (kHow != Combine::Copy) v = join<kHow>(v, Lane::loadPart(y, mask));
    if (pad) {
      Lane::store(out, v);
    } else {
      Lane::storePart(out, v, mask);
    }
  }

  template <Combine kHow>
  static void rows(size_t m, size_t n, const double* x, ptrdiff_t xrs, const double* y,
                   ptrdiff_t yrs, double* out, ptrdiff_t ors, const PanelLayout* panels) {
    for (size_t i = 0; i < m; ++i, x += xrs, y += yrs) {
      if (i + 1 < m) {  // the next rows may lie in other pages, which no prefetcher foresees
        for (size_t j = 0; j < kAhead; j += kCacheLine) {
          __builtin_prefetch(x + xrs + j);
          if (kHow != Combine::Copy) __builtin_prefetch(y + yrs + j);
        }
      }
      if (panels == nullptr) {
        row<kHow>(n, x, y, out, false);
        out += ors;
        continue;
      }
      size_t j = 0;
      for (size_t q = 0; j < n; ++q) {
        const size_t width = panels->width + (q < panels->wider ? kWidth : 0);
        row<kHow>(width < n - j ? width : n - j, x + j, y + j, out + j * panels->rows + i * width,
                  true);
        j += width;
      }
    }
  }

  static void run(Combine how, size_t m, size_t n, const double* x, ptrdiff_t xrs, const double* y,
                  ptrdiff_t yrs, double* out, ptrdiff_t ors, const PanelLayout* panels) {
    switch (how) {
      case Combine::Copy:
        return rows<Combine::Copy>(m, n, x, xrs, x, xrs, out, ors, panels);
      case Combine::Sum:
        return rows<Combine::Sum>(m, n, x, xrs, y, yrs, out, ors, panels);
      case Combine::Difference:
        return rows<Combine::Difference>(m, n, x, xrs, y, yrs, out, ors, panels);
    }
  }
};

}  // namespace korin::kernels

#endif
