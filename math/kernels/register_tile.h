#ifndef ZEPH_MATH_KERNELS_REGISTER_TILE_H
#define ZEPH_MATH_KERNELS_REGISTER_TILE_H

// The register tiles, written once for every vector width. Included only by the tile_*.cpp files,
// each with the Lane of its level (math/kernels/lane_*.h).

#include "math/kernels/tile.h"

namespace korin::kernels {

template <class Lane, int kRows, int kVectors, bool kFused, bool kPartial>
struct RegisterTile {
  using Vector = typename Lane::Vector;
  using Mask = typename Lane::Mask;
  static constexpr int kWidth = Lane::kWidth;

  static inline __attribute__((always_inline)) Vector load(const double* p, int v, Mask last) {
    return kPartial && v == kVectors - 1 ? Lane::loadPart(p + v * kWidth, last)
                                         : Lane::load(p + v * kWidth);
  }
  static inline __attribute__((always_inline)) void store(double* p, int v, Mask last, Vector x) {
    if (kPartial && v == kVectors - 1) {
      Lane::storePart(p + v * kWidth, x, last);
    } else {
      Lane::store(p + v * kWidth, x);
    }
  }

  static void run(size_t k, const double* a, ptrdiff_t ars, ptrdiff_t acs, const double* b,
                  ptrdiff_t brs, double* c, ptrdiff_t crs, size_t lastCols, unsigned flags) {
    const Mask last = Lane::mask(lastCols);
    Vector sum[kRows][kVectors];
    const bool carry = !kFused && (flags & kTileUpdate) != 0;
    const double* row = c;
#pragma GCC unroll 8
    for (int r = 0; r < kRows; ++r, row += crs) {
#pragma GCC unroll 6
      for (int v = 0; v < kVectors; ++v) sum[r][v] = carry ? load(row, v, last) : Lane::zero();
    }
    // Keeps the compiler from holding the addresses of all rows of C during the loop.
    asm("" : "+r"(c), "+r"(crs));
    for (; k != 0; --k, a += acs, b += brs) {
      Vector y[kVectors];
#pragma GCC unroll 6
      for (int v = 0; v < kVectors; ++v) y[v] = load(b, v, last);
#pragma GCC unroll 8
      for (int r = 0; r < kRows; ++r) {
        const double* x = a + r * ars;
#pragma GCC unroll 6
        for (int v = 0; v < kVectors; ++v) {
          sum[r][v] = kFused ? Lane::multiplyAdd(Lane::broadcast(x), y[v], sum[r][v])
                             : Lane::add(sum[r][v], Lane::multiplyScalar(x, y[v]));
        }
      }
    }
    const bool join = kFused && flags != kTileFresh;
#pragma GCC unroll 8
    for (int r = 0; r < kRows; ++r, c += crs) {
#pragma GCC unroll 6
      for (int v = 0; v < kVectors; ++v) {
        Vector x = sum[r][v];
        if (join) {
          const Vector old = (flags & kTileUpdate) != 0 ? load(c, v, last) : Lane::zero();
          x = (flags & kTileNegate) != 0 ? Lane::subtract(old, x) : Lane::add(old, x);
        }
        store(c, v, last, x);
      }
    }
  }
};

template <class Lane, int kRows, int kCols>
struct DotTile {
  using Vector = typename Lane::Vector;

  static void run(size_t k, const double* a, ptrdiff_t ars, const double* b, ptrdiff_t bcs,
                  double* c, ptrdiff_t crs, ptrdiff_t ccs, unsigned flags) {
    Vector sum[kRows][kCols];
#pragma GCC unroll 4
    for (int r = 0; r < kRows; ++r) {
#pragma GCC unroll 4
      for (int j = 0; j < kCols; ++j) sum[r][j] = Lane::zero();
    }
    const auto step = [&](auto load) __attribute__((always_inline)) {
      Vector y[kCols];
#pragma GCC unroll 4
      for (int j = 0; j < kCols; ++j) y[j] = load(b + j * bcs);
#pragma GCC unroll 4
      for (int r = 0; r < kRows; ++r) {
        const Vector x = load(a + r * ars);
#pragma GCC unroll 4
        for (int j = 0; j < kCols; ++j) sum[r][j] = Lane::multiplyAdd(x, y[j], sum[r][j]);
      }
    };
    for (; k >= Lane::kWidth; k -= Lane::kWidth, a += Lane::kWidth, b += Lane::kWidth) {
      step([](const double* p) { return Lane::load(p); });
    }
    if (k != 0) {
      const typename Lane::Mask rest = Lane::mask(k);
      step([rest](const double* p) { return Lane::loadPart(p, rest); });
    }
    const double sign = (flags & kTileNegate) != 0 ? -1.0 : 1.0;
#pragma GCC unroll 4
    for (int r = 0; r < kRows; ++r) {
#pragma GCC unroll 4
      for (int j = 0; j < kCols; ++j) {
        double* out = c + r * crs + j * ccs;
        const double old = (flags & kTileUpdate) != 0 ? *out : 0.0;
        *out = old + sign * Lane::total(sum[r][j]);
      }
    }
  }
};

}  // namespace korin::kernels

#endif
