#ifndef ZEPH_KERNELS_TRIANGLES_PANEL_LEAF_ROWS_H
#define ZEPH_KERNELS_TRIANGLES_PANEL_LEAF_ROWS_H

// The factorisation of a panel of few columns, written once for every vector width. Included only
// by the panel_leaf_*.cpp files, each with the Lane of its level (kernels/tiles/lane_*.h).

#include "kernels/triangles/panel_leaf.h"

namespace korin::kernels {

template <class Lane, int kColumns>
struct PanelLeaf {
  using Vector = typename Lane::Vector;

  /// -L below the diagonal and 1 / L(j, j) on it, row by row.
  struct Triangle {
    double value[kColumns][kColumns];
  };

  /// Returns kColumns, or the first column without a positive finite pivot.
  static inline __attribute__((always_inline)) int square(double* panel, size_t stride,
                                                          Triangle& t) {
    double a[kColumns][kColumns];
#pragma GCC unroll 8
    for (int j = 0; j < kColumns; ++j) {
#pragma GCC unroll 8
      for (int i = j; i < kColumns; ++i) a[i][j] = panel[i + j * stride];
    }
#pragma GCC unroll 8
    for (int j = 0; j < kColumns; ++j) {
      const double pivot = a[j][j];
      // Written so that a NaN fails as well.
      if (!(pivot > 0.0 && pivot <= __DBL_MAX__)) return j;
      const double root = __builtin_sqrt(pivot);
      const double reciprocal = 1.0 / root;
      panel[j + j * stride] = root;
      t.value[j][j] = reciprocal;
#pragma GCC unroll 8
      for (int i = j + 1; i < kColumns; ++i) {
        a[i][j] *= reciprocal;
        panel[i + j * stride] = a[i][j];
        t.value[i][j] = -a[i][j];
      }
#pragma GCC unroll 8
      for (int k = j + 1; k < kColumns; ++k) {
#pragma GCC unroll 8
        for (int i = k; i < kColumns; ++i) a[i][k] -= a[i][j] * a[k][j];
      }
    }
    return kColumns;
  }

  template <int kVectors, class Load, class Store>
  static inline __attribute__((always_inline)) void rows(double* x, size_t stride,
                                                         const Triangle& t, Load load,
                                                         Store store) {
    Vector v[kColumns][kVectors];
#pragma GCC unroll 8
    for (int j = 0; j < kColumns; ++j) {
#pragma GCC unroll 2
      for (int q = 0; q < kVectors; ++q) v[j][q] = load(x + j * stride + q * Lane::kWidth);
    }
#pragma GCC unroll 8
    for (int j = 0; j < kColumns; ++j) {
#pragma GCC unroll 2
      for (int q = 0; q < kVectors; ++q) {
        v[j][q] = Lane::multiplyScalar(&t.value[j][j], v[j][q]);
        store(x + j * stride + q * Lane::kWidth, v[j][q]);
      }
#pragma GCC unroll 8
      for (int k = j + 1; k < kColumns; ++k) {
        const Vector factor = Lane::broadcast(&t.value[k][j]);
#pragma GCC unroll 2
        for (int q = 0; q < kVectors; ++q) v[k][q] = Lane::multiplyAdd(factor, v[j][q], v[k][q]);
      }
    }
  }

  static size_t run(size_t count, double* panel, size_t stride) {
    Triangle t;
    const int done = square(panel, stride, t);
    if (done == kColumns) solve(count - kColumns, t, panel + kColumns, stride);
    return static_cast<size_t>(done);
  }

  static void runSolve(size_t count, const double* l, size_t lStride, double* x, size_t stride) {
    Triangle t;
#pragma GCC unroll 8
    for (int j = 0; j < kColumns; ++j) {
      t.value[j][j] = 1.0 / l[j + j * lStride];
#pragma GCC unroll 8
      for (int i = j + 1; i < kColumns; ++i) t.value[i][j] = -l[i + j * lStride];
    }
    solve(count, t, x, stride);
  }

  static inline __attribute__((always_inline)) void solve(size_t count, const Triangle& t,
                                                          double* x, size_t stride) {
    const auto load = [](const double* p) { return Lane::load(p); };
    const auto store = [](double* p, Vector value) { Lane::store(p, value); };
    // Two vectors a column where the registers hold them.
    constexpr int kPair = kColumns <= 5 || Lane::kWidth == 8 ? 2 : 1;
    size_t i = 0;
    for (; i + kPair * Lane::kWidth <= count; i += kPair * Lane::kWidth) {
      rows<kPair>(x, stride, t, load, store);
      x += kPair * Lane::kWidth;
    }
    for (; i + Lane::kWidth <= count; i += Lane::kWidth, x += Lane::kWidth) {
      rows<1>(x, stride, t, load, store);
    }
    if (i < count) {
      const typename Lane::Mask rest = Lane::mask(count - i);
      rows<1>(
          x, stride, t, [rest](const double* p) { return Lane::loadPart(p, rest); },
          [rest](double* p, Vector value) { Lane::storePart(p, value, rest); });
    }
  }
};

/// visit(PanelLeaf<Lane, columns>()).
template <class Lane, class Visit>
inline __attribute__((always_inline)) void withColumns(size_t columns, Visit visit) {
  switch (columns) {
    case 1:
      return visit(PanelLeaf<Lane, 1>());
    case 2:
      return visit(PanelLeaf<Lane, 2>());
    case 3:
      return visit(PanelLeaf<Lane, 3>());
    case 4:
      return visit(PanelLeaf<Lane, 4>());
    case 5:
      return visit(PanelLeaf<Lane, 5>());
    case 6:
      return visit(PanelLeaf<Lane, 6>());
    case 7:
      return visit(PanelLeaf<Lane, 7>());
    case 8:
      return visit(PanelLeaf<Lane, 8>());
    default:
      return;
  }
}

template <class Lane>
size_t runPanelLeaf(size_t rows, size_t columns, double* panel, size_t stride) {
  size_t done = 0;
  withColumns<Lane>(columns, [&](auto leaf) { done = leaf.run(rows, panel, stride); });
  return done;
}

template <class Lane>
void runLeafSolve(size_t rows, size_t columns, const double* l, size_t lStride, double* x,
                  size_t xStride) {
  withColumns<Lane>(columns, [&](auto leaf) { leaf.runSolve(rows, l, lStride, x, xStride); });
}

}  // namespace korin::kernels

#endif
