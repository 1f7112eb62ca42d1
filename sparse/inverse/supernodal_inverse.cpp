#include "sparse/inverse/supernodal_inverse.h"

#include <algorithm>
#include <vector>

#include "kernels/block.h"
#include "kernels/copy_placed.h"
#include "kernels/products/fused_product.h"
#include "kernels/tiles/transpose.h"
#include "kernels/triangles/triangle_inverse.h"

namespace korin::sparse {

namespace {

using std::ptrdiff_t;
using std::size_t;

/// Widest part of a group worked on at once: its triangle is inverted and multiplied as a whole,
/// which is wasteful for large ones, while each part gathers its Z22 afresh.
constexpr size_t kPartColumns = 256;
/// Columns of Z22 gathered at a time: a strip of a few hundred rows stays in the second-level
/// cache, and the products with it are deep enough to run at full rate.
constexpr size_t kStripWidth = 192;
/// Rows of a panel that are multiplied by all its columns in turn: with up to kPartColumns columns
/// they fit the second-level cache.
constexpr size_t kRowChunk = 192;
/// Columns of Z22 by which memory is asked for ahead of copying.
constexpr size_t kFetchedAhead = 4;
/// Most rows below a single column that goes without calls of the dense kernels.
constexpr size_t kFewRows = 24;
/// Blocks of columns in which products with a triangle skip its empty half.
constexpr size_t kTriangleBlock = 24;

using kernels::Block;

enum class Write { Over, AddTo };

/// C = (C +) sign * A * B with A m x k and B k x n.
void product(size_t m, size_t n, size_t k, double sign, Block a, Block b, Write write, Block c) {
  kernels::fusedProduct(m, n, k, sign, a, b, write == Write::Over ? 0.0 : 1.0, c);
}

/// W = L^-1 by halves: W21 = -W22 L21 W11. L is column-major, W row-major with zeros above its
/// diagonal; room for kernels::kSmallTriangle values follows it. `scratch` holds n * n / 4 values.
void invertTriangle(kernels::TriangleInverseFunction invertSmall, size_t n, Block l, Block w,
                    double* scratch) {
  if (n <= kernels::kSmallTriangle) {
    return invertSmall(n, l.data, l.colStride, w.data, w.rowStride);
  }
  const size_t top = (n / 2 + 7) / 8 * 8;
  const size_t rest = n - top;
  invertTriangle(invertSmall, top, l, w, scratch);
  for (size_t i = 0; i < top; ++i) std::fill_n(w.at(i, top).data, rest, 0.0);
  invertTriangle(invertSmall, rest, l.at(top, top), w.at(top, top), scratch);
  const Block t{scratch, static_cast<ptrdiff_t>(top), 1};
  product(rest, top, top, 1.0, l.at(top, 0), w, Write::Over, t);
  product(rest, top, rest, -1.0, w.at(top, top), t, Write::Over, w.at(top, 0));
}

/// Copies the lower triangle of a column-major square, from row and column `first` on, above the
/// diagonal: columns first .. end-1 and the rows below them down to n.
void mirror(double* square, size_t ld, size_t first, size_t end, size_t n) {
  for (size_t c = first; c < end; ++c) {
    for (size_t i = c + 1; i < end; ++i) square[i * ld + c] = square[c * ld + i];
  }
  if (end == n) return;
  kernels::transpose(end - first, n - end, square + first * ld + end, static_cast<ptrdiff_t>(ld),
                     square + end * ld + first, static_cast<ptrdiff_t>(ld));
}

/// Runs the recurrence group by group; the workspace is kept between groups.
class PanelInverter {
 public:
  explicit PanelInverter(const SupernodalFactor& factor);
  void invertGroup(unsigned int g);

 private:
  /// Some neighbouring columns of a group and the rows below them.
  struct Part {
    size_t columns;
    size_t count;
    const unsigned int* below;
    Block square;  // Z11, above Z21 in the panel
    Block under;
  };
  /// Consecutive rows, within one ancestor, among the rows below a part: local index of the first.
  struct Run {
    size_t first;
    size_t length;
  };

  size_t columns(unsigned int g) const { return f_.firstColumn[g + 1] - f_.firstColumn[g]; }
  size_t height(unsigned int g) const { return f_.rowStart[g + 1] - f_.rowStart[g]; }
  const unsigned int* rows(unsigned int g) const { return f_.rows + f_.rowStart[g]; }

  void invertPart(const Part& part);
  void invertColumn(const Part& part);
  void findRuns(const Part& part);
  void placeRows(const Part& part, size_t run, unsigned int ancestor);
  void gatherStrip(const Part& part, size_t first, size_t end, Block strip);
  void multiplyByKnown(const Part& part, Block y);
  void completeSquare(const Part& part, Block w, Block y);

  SupernodalFactor f_;
  kernels::TriangleInverseFunction invertSmall_ = kernels::smallTriangleInverse();
  std::vector<unsigned int> groupOf_;
  std::vector<Run> runs_;
  /// Of each row below the part its place among the rows of the ancestor being read.
  std::vector<unsigned int> place_;
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
    const size_t width = std::min(columns(g), kPartColumns);
    const size_t below = columns(g) > width ? height(g) : height(g) - width;
    widest = std::max(widest, width);
    largestY = std::max(largestY, below * width);
    largestStrip = std::max(largestStrip, below * std::min(below, kStripWidth));
    tallest = std::max(tallest, below);
  }
  w_.resize(widest * widest + kernels::kSmallTriangle);
  scratch_.resize(widest * widest / 4 + 8 * widest);
  y_.resize(largestY);
  strip_.resize(largestStrip);
  place_.resize(tallest);
  runs_.reserve(tallest);
}

void PanelInverter::findRuns(const Part& part) {
  runs_.clear();
  unsigned int expected = 0;
  unsigned int group = 0;
  for (size_t i = 0; i < part.count; ++i) {
    const unsigned int row = part.below[i];
    if (i > 0 && row == expected && groupOf_[row] == group) {
      ++runs_.back().length;
    } else {
      group = groupOf_[row];
      runs_.push_back({i, 1});
    }
    expected = row + 1;
  }
}

/// Finds the rows from `run` on among the ancestor's rows. As all of them occur there, the first
/// row of a run tells where the whole run is.
void PanelInverter::placeRows(const Part& part, size_t run, unsigned int ancestor) {
  const unsigned int* const begin = rows(ancestor);
  const unsigned int* const end = begin + height(ancestor);
  const unsigned int* at = begin;
  for (; run < runs_.size(); ++run) {
    const unsigned int wanted = part.below[runs_[run].first];
    // Galloping: the next run is usually near.
    size_t step = 1;
    while (step < static_cast<size_t>(end - at) && at[step] < wanted) {
      at += step;
      step *= 2;
    }
    at = std::lower_bound(at, std::min(at + step + 1, end), wanted);
    auto place = static_cast<unsigned int>(at - begin);
    unsigned int* target = place_.data() + runs_[run].first;
    for (size_t i = 0; i < runs_[run].length; ++i) target[i] = place++;
  }
}

/// Copies columns first .. end-1 of Z22, from row `first` down, out of the ancestors' panels, and
/// makes the strip's top square symmetric. Strip row i is row first + i of Z22.
void PanelInverter::gatherStrip(const Part& part, size_t first, size_t end, Block strip) {
  const auto ld = static_cast<size_t>(strip.colStride);
  size_t run = 0;
  for (size_t j = first; j < end;) {
    const unsigned int ancestor = groupOf_[part.below[j]];
    const unsigned int nextColumn = f_.firstColumn[ancestor + 1];
    size_t owned = j + 1;
    while (owned < end && part.below[owned] < nextColumn) ++owned;
    while (runs_[run].first + runs_[run].length <= j) ++run;
    placeRows(part, run, ancestor);
    const double* panel = f_.values + f_.panelStart[ancestor];
    for (size_t c = j; c < owned; ++c) {
      const double* source = panel + height(ancestor) * place_[c];
      double* target = strip.at(0, c - first).data - first;
      const size_t later = std::min(c + kFetchedAhead, owned - 1);
      kernels::copyPlaced(source, height(ancestor) * (place_[later] - place_[c]), place_.data() + j,
                          part.count - j, target + j);
    }
    // The ancestors' squares are full; what is below them is wanted right of them as well.
    kernels::transpose(owned - j, end - owned, strip.at(owned - first, j - first).data,
                       strip.colStride, strip.data + (owned - first) * ld + (j - first),
                       strip.colStride);
    j = owned;
  }
}

/// Z21 = -Z22 Y. Each strip of Z22 serves its columns and, transposed, its rows.
void PanelInverter::multiplyByKnown(const Part& part, Block y) {
  const size_t n = part.columns;
  const size_t count = part.count;
  findRuns(part);
  for (size_t first = 0; first < count; first += kStripWidth) {
    const size_t end = std::min(first + kStripWidth, count);
    const Block strip{strip_.data(), 1, static_cast<ptrdiff_t>(count - first)};
    gatherStrip(part, first, end, strip);
    product(count - first, n, end - first, -1.0, strip, y.at(first, 0),
            first == 0 ? Write::Over : Write::AddTo, part.under.at(first, 0));
    if (end == count) break;
    product(end - first, n, count - end, -1.0, strip.at(end - first, 0).transposed(), y.at(end, 0),
            Write::AddTo, part.under.at(first, 0));
  }
}

/// Y = L21 W, some rows at a time, which stay in the second-level cache.
void multiplyByTriangle(size_t count, size_t n, Block l21, Block w, Block y) {
  for (size_t i = 0; i < count; i += kRowChunk) {
    const size_t rows = std::min(kRowChunk, count - i);
    for (size_t j = 0; j < n; j += kTriangleBlock) {
      product(rows, std::min(kTriangleBlock, n - j), n - j, 1.0, l21.at(i, j), w.at(j, j),
              Write::Over, y.at(i, j));
    }
  }
}

/// Z11 = W^T W - Y^T Z21, both triangles.
void PanelInverter::completeSquare(const Part& part, Block w, Block y) {
  const size_t n = part.columns;
  for (size_t j = 0; j < n; j += kTriangleBlock) {
    for (size_t i = j; i < n; i += kTriangleBlock) {
      product(std::min(kTriangleBlock, n - i), std::min(kTriangleBlock, n - j), n - i, 1.0,
              w.at(i, i).transposed(), w.at(i, j), Write::Over, part.square.at(i, j));
    }
  }
  for (size_t i = 0; i < part.count; i += kRowChunk) {
    const size_t rows = std::min(kRowChunk, part.count - i);
    for (size_t j = 0; j < n; j += kTriangleBlock) {
      product(n - j, std::min(kTriangleBlock, n - j), rows, -1.0, y.at(i, j).transposed(),
              part.under.at(i, j), Write::AddTo, part.square.at(j, j));
    }
  }
  for (size_t j = 0; j < n; j += kTriangleBlock) {
    mirror(part.square.data, static_cast<size_t>(part.square.colStride), j,
           std::min(j + kTriangleBlock, n), n);
  }
}

void PanelInverter::invertPart(const Part& part) {
  const size_t n = part.columns;
  if (n == 1 && part.count <= kFewRows) return invertColumn(part);
  const Block w{w_.data(), static_cast<ptrdiff_t>(n), 1};
  // Row-major, so that Y^T is read along its rows.
  const Block y{y_.data(), static_cast<ptrdiff_t>(n), 1};
  invertTriangle(invertSmall_, n, part.square, w, scratch_.data());
  if (part.count > 0) {
    multiplyByTriangle(part.count, n, part.under, w, y);
    multiplyByKnown(part, y);
  }
  completeSquare(part, w, y);
}

/// A single column with few rows below, where calls would cost more than the arithmetic:
/// y = l21 / d, z21 = -Z22 y, z11 = 1 / d^2 - y^T z21.
void PanelInverter::invertColumn(const Part& part) {
  const size_t count = part.count;
  const double reciprocal = 1.0 / *part.square.data;
  double* z = part.under.data;
  double* y = y_.data();
  for (size_t i = 0; i < count; ++i) y[i] = z[i] * reciprocal;
  const Block known{strip_.data(), 1, static_cast<ptrdiff_t>(count)};
  findRuns(part);
  gatherStrip(part, 0, count, known);
  double square = reciprocal * reciprocal;
  for (size_t j = 0; j < count; ++j) {
    const double* column = known.at(0, j).data;
    double sum = 0.0;
    for (size_t i = 0; i < count; ++i) sum += column[i] * y[i];
    z[j] = -sum;
    square += y[j] * sum;
  }
  *part.square.data = square;
}

void PanelInverter::invertGroup(unsigned int g) {
  const Block panel{f_.values + f_.panelStart[g], 1, static_cast<ptrdiff_t>(height(g))};
  for (size_t end = columns(g); end > 0;) {
    const size_t parts = (end + kPartColumns - 1) / kPartColumns;
    const size_t width = (end + parts - 1) / parts;
    const size_t first = end - width;
    const Block under = panel.at(end, first);
    invertPart({width, height(g) - end, rows(g) + end, panel.at(first, first), under});
    // The group's square is kept full across its parts.
    kernels::transpose(width, columns(g) - end, under.data, under.colStride,
                       panel.at(first, end).data, under.colStride);
    end = first;
  }
}

}  // namespace

void supernodalInverse(const SupernodalFactor& factor) {
  PanelInverter inverter(factor);
  for (unsigned int g = factor.groupCount; g-- > 0;) inverter.invertGroup(g);
}

}  // namespace korin::sparse
