#ifndef ZEPH_KERNELS_TRIPLETS_TRIPLET_STRIP_H
#define ZEPH_KERNELS_TRIPLETS_TRIPLET_STRIP_H

// Product of a triplet list with a strip of columns that fits the registers, written once for every
// vector width. Included only by the triplet_product*.cpp files, each with the Lane of its level
// (kernels/tiles/lane_*.h). Products and sums are rounded separately.

#include <stddef.h>
#include <stdint.h>

namespace korin::kernels {

/// Adds the product for the strip's columns; `lastCols` of them lie in the strip's last vector.
using TripletStripFunction = void (*)(const char* triplets, size_t count, const double* b,
                                      size_t ldb, double* c, size_t ldc, size_t lastCols);

/// The strips of one processor level, by number of vectors; `partial` ones may end within a vector.
constexpr size_t kMaxStripVectors = 8;
struct TripletStrips {
  size_t width;    ///< doubles in a vector
  size_t vectors;  ///< vectors in the widest strip
  TripletStripFunction full[kMaxStripVectors];
  TripletStripFunction partial[kMaxStripVectors];
};

extern const TripletStrips kAvx2TripletStrips;
extern const TripletStrips kAvx512TripletStrips;

template <class Lane, int kVectors, bool kPartial>
struct TripletStrip {
  using Vector = typename Lane::Vector;
  using Mask = typename Lane::Mask;
  static constexpr size_t kDoubles = size_t{kVectors} * Lane::kWidth;
  static constexpr size_t kCacheLine = 64 / sizeof(double);
  /// How many triplets ahead the rows of B and C are asked for: their addresses are known from the
  /// list long before, while the hardware cannot guess them.
  static constexpr size_t kAhead = 16;

  struct Triplet {
    uint32_t row;
    uint32_t col;
    double value;
  };
  static Triplet at(const char* triplets, size_t i) {
    Triplet t;
    __builtin_memcpy(&t, triplets + i * sizeof t, sizeof t);
    return t;
  }
  static Vector load(const double* p, int v, [[maybe_unused]] Mask last) {
    if constexpr (kPartial) {
      if (v == kVectors - 1) return Lane::loadPart(p + v * Lane::kWidth, last);
    }
    return Lane::load(p + v * Lane::kWidth);
  }
  static void store(double* p, int v, [[maybe_unused]] Mask last, Vector x) {
    if constexpr (kPartial) {
      if (v == kVectors - 1) return Lane::storePart(p + v * Lane::kWidth, x, last);
    }
    Lane::store(p + v * Lane::kWidth, x);
  }
  static void prefetchRow(const double* row) {
    for (size_t k = 0; k < kDoubles; k += kCacheLine) __builtin_prefetch(row + k);
  }

  /// A row of C in registers.
  struct RowSums {
    double* row;
    Vector sum[kVectors];

    void read(double* from, Mask last) {
      row = from;
#pragma GCC unroll 8
      for (int v = 0; v < kVectors; ++v) sum[v] = load(row, v, last);
    }
    void write(Mask last) const {
#pragma GCC unroll 8
      for (int v = 0; v < kVectors; ++v) store(row, v, last, sum[v]);
    }
  };

  /// Adds one triplet's product. The row of C stays in registers while the triplets stay in it.
  static inline __attribute__((always_inline)) void add(const Triplet& t, const double* b,
                                                        size_t ldb, double* c, size_t ldc,
                                                        Mask last, RowSums& sums) {
    double* row = c + t.row * ldc;
    if (row != sums.row) {
      sums.write(last);
      sums.read(row, last);
    }
    const Vector value = Lane::broadcast(&t.value);
    const double* bRow = b + t.col * ldb;
#pragma GCC unroll 8
    for (int v = 0; v < kVectors; ++v) {
      sums.sum[v] = Lane::add(sums.sum[v], Lane::multiply(value, load(bRow, v, last)));
    }
  }

  static void run(const char* triplets, size_t count, const double* b, size_t ldb, double* c,
                  size_t ldc, size_t lastCols) {
    if (count == 0) return;
    const Mask last = Lane::mask(lastCols);
    RowSums sums;
    sums.read(c + at(triplets, 0).row * ldc, last);
    size_t i = 0;
    for (; i + kAhead < count; ++i) {
      const Triplet later = at(triplets, i + kAhead);
      prefetchRow(c + later.row * ldc);
      prefetchRow(b + later.col * ldb);
      add(at(triplets, i), b, ldb, c, ldc, last, sums);
    }
    for (; i < count; ++i) add(at(triplets, i), b, ldb, c, ldc, last, sums);
    sums.write(last);
  }
};

}  // namespace korin::kernels

#endif
