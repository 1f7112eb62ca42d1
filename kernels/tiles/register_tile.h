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

#define ZEPH_INLINE inline __attribute__((always_inline))

// Everything here works on rows of kVectors vectors. The last one stands apart, because its loads
// may be masked, or it may be narrower.
template <class Lane, int kRows, int kVectors, bool kFused, TileTail kTail>
struct RegisterTile {
  using Last = typename LastVector<Lane, kTail>::Type;
  using Mask = typename Last::Mask;
  static constexpr int kBody = kVectors - 1;
  static constexpr int kLastAt = kBody * Lane::kWidth;

  using Body = typename Lane::Vector[kBody == 0 ? 1 : kBody];
  // A row in registers, as references to two arrays: in an array of structures the compiler would
  // lose some of them to memory.
  struct Row {
    Body& body;
    typename Last::Vector& last;
  };

  // x = 0
  static ZEPH_INLINE void clear(Row x) {
#pragma GCC unroll 6
    for (int v = 0; v < kBody; ++v) x.body[v] = Lane::zero();
    x.last = Last::zero();
  }

  // x = c, but for the columns that do not count
  static ZEPH_INLINE void load(Row x, const double* c, Mask mask) {
#pragma GCC unroll 6
    for (int v = 0; v < kBody; ++v) x.body[v] = Lane::load(c + v * Lane::kWidth);
    x.last = Last::loadPart(c + kLastAt, mask);
  }

  // y = b
  static ZEPH_INLINE void loadOfB(Row y, const double* b, Mask mask) {
#pragma GCC unroll 6
    for (int v = 0; v < kBody; ++v) y.body[v] = Lane::load(b + v * Lane::kWidth);
    y.last =
        kTail == TileTail::Masked ? Last::loadPart(b + kLastAt, mask) : Last::load(b + kLastAt);
  }

  // packed = y
  static ZEPH_INLINE void storeWhole(Row y, double* packed) {
#pragma GCC unroll 6
    for (int v = 0; v < kBody; ++v) Lane::store(packed + v * Lane::kWidth, y.body[v]);
    Last::store(packed + kLastAt, y.last);
  }

  // sum += *x * y
  static ZEPH_INLINE void addProduct(Row sum, const double* x, Row y) {
#pragma GCC unroll 6
    for (int v = 0; v < kBody; ++v) sum.body[v] = step<Lane>(x, y.body[v], sum.body[v]);
    sum.last = step<Last>(x, y.last, sum.last);
  }

  template <class L>
  static ZEPH_INLINE typename L::Vector step(const double* x, typename L::Vector y,
                                             typename L::Vector sum) {
    return kFused ? L::multiplyAdd(L::broadcast(x), y, sum) : L::add(sum, L::multiplyScalar(x, y));
  }

  // c = sum, or where a fused sum joins what there is, c = (c or 0) +- sum
  static ZEPH_INLINE void store(Row sum, double* c, Mask mask, unsigned flags) {
    const bool joins = kFused && flags != kTileFresh;
    const bool update = (flags & kTileUpdate) != 0;
#pragma GCC unroll 6
    for (int v = 0; v < kBody; ++v) {
      double* out = c + v * Lane::kWidth;
      if (joins) {
        sum.body[v] = join<Lane>(update ? Lane::load(out) : Lane::zero(), sum.body[v], flags);
      }
      Lane::store(out, sum.body[v]);
    }
    double* out = c + kLastAt;
    if (joins) {
      sum.last = join<Last>(update ? Last::loadPart(out, mask) : Last::zero(), sum.last, flags);
    }
    Last::storePart(out, sum.last, mask);
  }

  template <class L>
  static ZEPH_INLINE typename L::Vector join(typename L::Vector old, typename L::Vector sum,
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

  // C = [C] + A B, one term of the sums at a time: C(r, :) += A(r, p) B(p, :).
  template <bool kPack>
  static ZEPH_INLINE void work(size_t k, const double* a, ptrdiff_t ars, ptrdiff_t acs,
                               const double* b, ptrdiff_t brs, double* c, ptrdiff_t crs,
                               size_t lastCols, unsigned flags, double* packed) {
    const Mask mask = Last::mask(lastCols);
    const bool carry = !kFused && (flags & kTileUpdate) != 0;
    Body sums[kRows];
    typename Last::Vector lastSums[kRows];
    const double* row = c;
#pragma GCC unroll 8
    for (int r = 0; r < kRows; ++r, row += crs) {
      if (carry) {
        load({sums[r], lastSums[r]}, row, mask);
      } else {
        clear({sums[r], lastSums[r]});
      }
    }
    // Keeps the compiler from holding the addresses of all rows of C during the loop.
    asm("" : "+r"(c), "+r"(crs));
    for (; k != 0; --k, a += acs, b += brs) {
      Body body;
      typename Last::Vector last;
      const Row y{body, last};
      loadOfB(y, b, mask);
      if (kPack) {
        storeWhole(y, packed);
        packed += kVectors * Lane::kWidth;
      }
#pragma GCC unroll 8
      for (int r = 0; r < kRows; ++r) addProduct({sums[r], lastSums[r]}, a + r * ars, y);
    }
#pragma GCC unroll 8
    for (int r = 0; r < kRows; ++r, c += crs) store({sums[r], lastSums[r]}, c, mask, flags);
  }
};

#undef ZEPH_INLINE

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
