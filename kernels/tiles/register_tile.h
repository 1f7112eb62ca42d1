#ifndef ZEPH_KERNELS_TILES_REGISTER_TILE_H
#define ZEPH_KERNELS_TILES_REGISTER_TILE_H

// The register tiles, written once for every vector width. Included only by the tile_*.cpp files,
// each with the Lane of its level (kernels/tiles/lane_*.h).

#include "kernels/tiles/tile.h"

namespace korin::kernels {

template <class Lane, TileTail kTail>
struct LastVector {
  using Type = Lane;
};
template <class Lane>
struct LastVector<Lane, TileTail::Half> {
  using Type = typename Lane::Half;
};

// The last vector of a row stands apart, because its loads may be masked, or it may be narrower.
template <class Lane, int kRows, int kVectors, bool kFused, TileTail kTail>
struct RegisterTile {
  using Last = typename LastVector<Lane, kTail>::Type;
  static constexpr int kBody = kVectors - 1;
  static constexpr int kLastAt = kBody * Lane::kWidth;

  template <class L>
  static inline __attribute__((always_inline)) typename L::Vector step(const double* x,
                                                                       typename L::Vector y,
                                                                       typename L::Vector sum) {
    return kFused ? L::multiplyAdd(L::broadcast(x), y, sum) : L::add(sum, L::multiplyScalar(x, y));
  }

  template <class L>
  static inline __attribute__((always_inline)) typename L::Vector join(typename L::Vector old,
                                                                       typename L::Vector sum,
                                                                       unsigned flags) {
    return (flags & kTileNegate) != 0 ? L::subtract(old, sum) : L::add(old, sum);
  }

  static void run(size_t k, const double* a, ptrdiff_t ars, ptrdiff_t acs, const double* b,
                  ptrdiff_t brs, double* c, ptrdiff_t crs, size_t lastCols, unsigned flags) {
    work<false>(k, a, ars, acs, b, brs, c, crs, lastCols, flags, nullptr);
  }

  static void pack(size_t k, const double* a, ptrdiff_t ars, ptrdiff_t acs, const double* b,
                   ptrdiff_t brs, double* c, ptrdiff_t crs, size_t lastCols, unsigned flags,
                   double* packed) {
    work<true>(k, a, ars, acs, b, brs, c, crs, lastCols, flags, packed);
  }

  template <bool kPack>
  static inline __attribute__((always_inline)) void work(size_t k, const double* a, ptrdiff_t ars,
                                                         ptrdiff_t acs, const double* b,
                                                         ptrdiff_t brs, double* c, ptrdiff_t crs,
                                                         size_t lastCols, unsigned flags,
                                                         double* packed) {
    const typename Last::Mask mask = Last::mask(lastCols);
    typename Lane::Vector sum[kRows][kBody == 0 ? 1 : kBody];
    typename Last::Vector lastSum[kRows];
    const bool update = (flags & kTileUpdate) != 0;
    const bool carry = !kFused && update;
    const double* row = c;
#pragma GCC unroll 8
    for (int r = 0; r < kRows; ++r, row += crs) {
#pragma GCC unroll 6
      for (int v = 0; v < kBody; ++v) {
        sum[r][v] = carry ? Lane::load(row + v * Lane::kWidth) : Lane::zero();
      }
      lastSum[r] = carry ? Last::loadPart(row + kLastAt, mask) : Last::zero();
    }
    // Keeps the compiler from holding the addresses of all rows of C during the loop.
    asm("" : "+r"(c), "+r"(crs));
    for (; k != 0; --k, a += acs, b += brs) {
      typename Lane::Vector y[kBody == 0 ? 1 : kBody];
#pragma GCC unroll 6
      for (int v = 0; v < kBody; ++v) y[v] = Lane::load(b + v * Lane::kWidth);
      const typename Last::Vector z =
          kTail == TileTail::Masked ? Last::loadPart(b + kLastAt, mask) : Last::load(b + kLastAt);
      if (kPack) {
#pragma GCC unroll 6
        for (int v = 0; v < kBody; ++v) Lane::store(packed + v * Lane::kWidth, y[v]);
        Last::store(packed + kLastAt, z);
        packed += kVectors * Lane::kWidth;
      }
#pragma GCC unroll 8
      for (int r = 0; r < kRows; ++r) {
        const double* x = a + r * ars;
#pragma GCC unroll 6
        for (int v = 0; v < kBody; ++v) sum[r][v] = step<Lane>(x, y[v], sum[r][v]);
        lastSum[r] = step<Last>(x, z, lastSum[r]);
      }
    }
    const bool joins = kFused && flags != kTileFresh;
#pragma GCC unroll 8
    for (int r = 0; r < kRows; ++r, c += crs) {
#pragma GCC unroll 6
      for (int v = 0; v < kBody; ++v) {
        double* out = c + v * Lane::kWidth;
        if (joins)
          sum[r][v] = join<Lane>(update ? Lane::load(out) : Lane::zero(), sum[r][v], flags);
        Lane::store(out, sum[r][v]);
      }
      double* out = c + kLastAt;
      if (joins) {
        lastSum[r] =
            join<Last>(update ? Last::loadPart(out, mask) : Last::zero(), lastSum[r], flags);
      }
      Last::storePart(out, lastSum[r], mask);
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
