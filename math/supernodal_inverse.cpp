#include "math/supernodal_inverse.h"

#include <algorithm>
#include <vector>

#include "math/kernels/fused_product.h"

namespace korin {

namespace {

using std::ptrdiff_t;
using std::size_t;

/// Columns of Z22 gathered at a time: a strip of a few hundred rows stays in the second-level
/// cache, and the products with it are deep enough to run at full rate.
constexpr size_t kStripWidth = 192;
/// Triangles up to this order are inverted row by row.
constexpr size_t kTriangleBase = 16;
/// Blocks of columns in which products with a triangle skip its empty half.
constexpr size_t kTriangleBlock = 96;

/// A block of a dense matrix with row and column strides.
struct Block {
  double* data;
  ptrdiff_t rowStride;
  ptrdiff_t colStride;
  Block at(size_t i, size_t j) const {
    return {data + static_cast<ptrdiff_t>(i) * rowStride + static_cast<ptrdiff_t>(j) * colStride,
            rowStride, colStride};
  }
  Block transposed() const { return {data, colStride, rowStride}; }
  double& operator()(size_t i, size_t j) const { return *at(i, j).data; }
};

enum class Write { Over, AddTo };

/// C = (C +) sign * A * B with A m x k and B k x n.
void product(size_t m, size_t n, size_t k, double sign, Block a, Block b, Write write, Block c) {
  kernels::fusedProduct(m, n, k, sign, a.data, a.rowStride, a.colStride, b.data, b.rowStride,
                        b.colStride, write == Write::Over ? 0.0 : 1.0, c.data, c.rowStride,
                        c.colStride);
}

/// W = L^-1 for lower-triangular L, row by row; w is row-major, its upper triangle becomes 0.
void invertSmallTriangle(size_t n, Block l, Block w) {
  for (size_t i = 0; i < n; ++i) {
    double* row = w.at(i, 0).data;
    std::fill_n(row, n, 0.0);
    for (size_t k = 0; k < i; ++k) {
      const double factor = l(i, k);
      const double* solved = w.at(k, 0).data;
      for (size_t j = 0; j <= k; ++j) row[j] += factor * solved[j];
    }
    const double reciprocal = 1.0 / l(i, i);
    for (size_t j = 0; j < i; ++j) row[j] *= -reciprocal;
    row[i] = reciprocal;
  }
}

/// W = L^-1 by halves: W21 = -W22 L21 W11. `scratch` holds n * n / 4 values.
void invertTriangle(size_t n, Block l, Block w, double* scratch) {
  if (n <= kTriangleBase) return invertSmallTriangle(n, l, w);
  const size_t top = (n / 2 + 7) / 8 * 8;
  const size_t rest = n - top;
  invertTriangle(top, l, w, scratch);
  invertTriangle(rest, l.at(top, top), w.at(top, top), scratch);
  const Block t{scratch, static_cast<ptrdiff_t>(top), 1};
  product(rest, top, top, 1.0, l.at(top, 0), w, Write::Over, t);
  product(rest, top, rest, -1.0, w.at(top, top), t, Write::Over, w.at(top, 0));
  for (size_t i = 0; i < top; ++i) std::fill_n(w.at(i, top).data, rest, 0.0);
}

/// Runs the recurrence group by group; the workspace is kept between groups.
class PanelInverter {
 public:
  explicit PanelInverter(const SupernodalFactor& factor);
  void invertGroup(unsigned int g);

 private:
  /// Consecutive rows, within one ancestor, among the group's rows below it: local index of the
  /// first, and its place in the rows of the ancestor being read.
  struct Run {
    size_t first;
    size_t place;
  };

  size_t columns(unsigned int g) const { return f_.firstColumn[g + 1] - f_.firstColumn[g]; }
  size_t height(unsigned int g) const { return f_.rowStart[g + 1] - f_.rowStart[g]; }
  const unsigned int* rows(unsigned int g) const { return f_.rows + f_.rowStart[g]; }

  void findRuns(const unsigned int* below, size_t count);
  void placeRuns(const unsigned int* below, size_t run, unsigned int ancestor);
  void gatherStrip(const unsigned int* below, size_t count, size_t first, size_t end, Block strip);
  void multiplyByKnown(unsigned int g, Block y, Block z21);
  void completeSquare(size_t n, size_t below, Block w, Block y, Block z21, Block z11);

  SupernodalFactor f_;
  std::vector<unsigned int> groupOf_;
  std::vector<Run> runs_;
  std::vector<double> w_;
  std::vector<double> scratch_;
  std::vector<double> y_;
  std::vector<double> strip_;
};

PanelInverter::PanelInverter(const SupernodalFactor& factor) : f_(factor), groupOf_(factor.n) {
  size_t widest = 0;
  size_t largestY = 0;
  size_t largestStrip = 0;
  size_t tallest = 0;
  for (unsigned int g = 0; g < f_.groupCount; ++g) {
    std::fill(groupOf_.begin() + f_.firstColumn[g], groupOf_.begin() + f_.firstColumn[g + 1], g);
    const size_t below = height(g) - columns(g);
    widest = std::max(widest, columns(g));
    largestY = std::max(largestY, below * columns(g));
    largestStrip = std::max(largestStrip, below * std::min(below, kStripWidth));
    tallest = std::max(tallest, below);
  }
  w_.resize(widest * widest);
  scratch_.resize(widest * widest / 4 + 8 * widest);
  y_.resize(largestY);
  strip_.resize(largestStrip);
  runs_.reserve(tallest + 1);
}

void PanelInverter::findRuns(const unsigned int* below, size_t count) {
  runs_.clear();
  for (size_t i = 0; i < count; ++i) {
    const bool continues =
        i > 0 && below[i] == below[i - 1] + 1 && groupOf_[below[i]] == groupOf_[below[i - 1]];
    if (!continues) runs_.push_back({i, 0});
  }
  runs_.push_back({count, 0});
}

/// Finds the runs from `run` on in the ancestor's rows. As all of them occur there, a run's first
/// row tells where the whole run is.
void PanelInverter::placeRuns(const unsigned int* below, size_t run, unsigned int ancestor) {
  const unsigned int* at = rows(ancestor);
  const unsigned int* const end = at + height(ancestor);
  for (; run + 1 < runs_.size(); ++run) {
    const unsigned int wanted = below[runs_[run].first];
    // Galloping: the next run is usually near.
    size_t step = 1;
    while (step < static_cast<size_t>(end - at) && at[step] < wanted) {
      at += step;
      step *= 2;
    }
    at = std::lower_bound(at, std::min(at + step + 1, end), wanted);
    runs_[run].place = static_cast<size_t>(at - rows(ancestor));
  }
}

/// Copies columns first .. end-1 of Z22, from row `first` down, out of the ancestors' panels, and
/// makes the strip's top square symmetric. Strip row i is row first + i of Z22.
void PanelInverter::gatherStrip(const unsigned int* below, size_t count, size_t first, size_t end,
                                Block strip) {
  size_t run = 0;
  for (size_t j = first; j < end;) {
    const unsigned int ancestor = groupOf_[below[j]];
    const unsigned int firstColumn = f_.firstColumn[ancestor];
    const size_t ld = height(ancestor);
    size_t owned = j + 1;
    while (owned < end && below[owned] < f_.firstColumn[ancestor + 1]) ++owned;
    while (runs_[run + 1].first <= j) ++run;
    placeRuns(below, run, ancestor);
    for (size_t c = j; c < owned; ++c) {
      const double* source = f_.values + f_.panelStart[ancestor] + ld * (below[c] - firstColumn);
      double* target = strip.at(j - first, c - first).data;
      size_t from = j;
      for (size_t r = run; runs_[r].first < count; ++r) {
        const double* values = source + runs_[r].place + (from - runs_[r].first);
        for (; from < runs_[r + 1].first; ++from) *target++ = *values++;
      }
    }
    for (size_t i = owned; i < end; ++i) {
      for (size_t c = j; c < owned; ++c) strip(c - first, i - first) = strip(i - first, c - first);
    }
    j = owned;
  }
}

/// Z21 = -Z22 Y. Each strip of Z22 serves its columns and, transposed, its rows.
void PanelInverter::multiplyByKnown(unsigned int g, Block y, Block z21) {
  const size_t n = columns(g);
  const size_t count = height(g) - n;
  const unsigned int* below = rows(g) + n;
  findRuns(below, count);
  for (size_t first = 0; first < count; first += kStripWidth) {
    const size_t end = std::min(first + kStripWidth, count);
    const Block strip{strip_.data(), 1, static_cast<ptrdiff_t>(count - first)};
    gatherStrip(below, count, first, end, strip);
    if (first == 0) {
      product(count, n, end, -1.0, strip, y, Write::Over, z21);
    } else {
      product(count - first, n, end - first, -1.0, strip, y.at(first, 0), Write::AddTo,
              z21.at(first, 0));
    }
    product(end - first, n, count - end, -1.0, strip.at(end - first, 0).transposed(), y.at(end, 0),
            Write::AddTo, z21.at(first, 0));
  }
}

/// Z11 = W^T W - Y^T Z21, both triangles.
void PanelInverter::completeSquare(size_t n, size_t below, Block w, Block y, Block z21, Block z11) {
  for (size_t j = 0; j < n; j += kTriangleBlock) {
    const size_t width = std::min(kTriangleBlock, n - j);
    for (size_t i = j; i < n; i += kTriangleBlock) {
      const size_t tall = std::min(kTriangleBlock, n - i);
      product(tall, width, n - i, 1.0, w.at(i, i).transposed(), w.at(i, j), Write::Over,
              z11.at(i, j));
    }
    product(n - j, width, below, -1.0, y.at(0, j).transposed(), z21.at(0, j), Write::AddTo,
            z11.at(j, j));
    for (size_t c = j; c < j + width; ++c) {
      for (size_t i = c + 1; i < n; ++i) z11(c, i) = z11(i, c);
    }
  }
}

void PanelInverter::invertGroup(unsigned int g) {
  const size_t n = columns(g);
  const size_t below = height(g) - n;
  const Block panel{f_.values + f_.panelStart[g], 1, static_cast<ptrdiff_t>(height(g))};
  const Block z21 = panel.at(n, 0);
  const Block w{w_.data(), static_cast<ptrdiff_t>(n), 1};
  const Block y{y_.data(), 1, static_cast<ptrdiff_t>(below)};
  invertTriangle(n, panel, w, scratch_.data());
  if (below > 0) {
    for (size_t j = 0; j < n; j += kTriangleBlock) {
      const size_t width = std::min(kTriangleBlock, n - j);
      product(below, width, n - j, 1.0, z21.at(0, j), w.at(j, j), Write::Over, y.at(0, j));
    }
    multiplyByKnown(g, y, z21);
  }
  completeSquare(n, below, w, y, z21, panel);
}

}  // namespace

void supernodalInverse(const SupernodalFactor& factor) {
  PanelInverter inverter(factor);
  for (unsigned int g = factor.groupCount; g-- > 0;) inverter.invertGroup(g);
}

}  // namespace korin
