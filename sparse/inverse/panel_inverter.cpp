#include "sparse/inverse/panel_inverter.h"

#include <algorithm>
#include <vector>

#include "kernels/block.h"
#include "kernels/copy_placed.h"
#include "kernels/products/fused_product.h"
#include "kernels/tiles/transpose.h"

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
/// Rows and columns of a product that are one piece of work for a team: whole blocks of the
/// product.
constexpr size_t kPieceRows = 384;
constexpr size_t kPieceColumns = 128;
/// Columns of a strip that one thread gathers.
constexpr size_t kPieceGathered = 32;
/// Parts of more operations than this are shared.
constexpr double kWorthSharing = 8e6;
/// Most rows below a single column that goes without calls of the dense kernels.
constexpr size_t kFewRows = 24;
/// Blocks of columns in which products with a triangle skip its empty half.
constexpr size_t kTriangleBlock = 24;

using kernels::Block;
using kernels::ConstBlock;

enum class Write { Over, AddTo };

/// C = (C +) sign * A * B with A m x k and B k x n.
void product(size_t m, size_t n, size_t k, double sign, ConstBlock a, ConstBlock b, Write write,
             Block c) {
  kernels::fusedProduct(m, n, k, sign, a, b, write == Write::Over ? 0.0 : 1.0, c);
}

/// W = L^-1 by halves: W21 = -W22 L21 W11. L is column-major, W row-major with zeros above its
/// diagonal; room for kernels::kSmallTriangle values follows it. `scratch` holds n * n / 4 values.
void invertTriangle(kernels::TriangleInverseFunction invertSmall, size_t n, ConstBlock l, Block w,
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

/// Runs piece(i) for the pieces of a loop: by the team, where there is one, or in turn. Both make
/// the same calls, so that the bits are the same.
template <class Piece>
void forPieces(kernels::Team* team, size_t count, const Piece& piece) {
  if (team != nullptr && count > 1) {
    team->forEach(static_cast<int>(count), [&](int i) { piece(static_cast<size_t>(i)); });
  } else {
    for (size_t i = 0; i < count; ++i) piece(i);
  }
}

size_t pieces(size_t count, size_t size) {
  return (count + size - 1) / size;
}

}  // namespace

InverterSizes::InverterSizes(const PanelStructure& s) {
  for (Index g = 0; g < s.groups; ++g) {
    const size_t columns = s.width(g);
    const size_t width = std::min(columns, kPartColumns);
    const size_t below = columns > width ? s.height(g) : s.height(g) - width;
    widest = std::max(widest, width);
    y = std::max(y, below * width);
    strip = std::max(strip, below * std::min(below, kStripWidth));
    tallest = std::max(tallest, below);
  }
}

size_t InverterSizes::values() const {
  return triangle() + scratch() + y + strip;
}

size_t InverterSizes::triangle() const {
  return widest * widest + kernels::kSmallTriangle;
}

size_t InverterSizes::scratch() const {
  return widest * widest / 4 + 8 * widest;
}

double InverterSizes::bytes() const {
  return static_cast<double>(kernels::panelBytes(values())) +
         (sizeof(Index) + sizeof(PanelInverter::Run)) * static_cast<double>(tallest);
}

PanelInverter::PanelInverter(const PanelStructure& structure, const InverterSizes& sizes,
                             kernels::Team* team)
    : s_(structure),
      team_(team),
      invertSmall_(kernels::smallTriangleInverse()),
      workspace_(kernels::rawPanels(sizes.values())),
      w_(workspace_.get()),
      scratch_(w_ + sizes.triangle()),
      y_(scratch_ + sizes.scratch()),
      strip_(y_ + sizes.y),
      place_(sizes.tallest) {
  runs_.reserve(sizes.tallest);
}

void PanelInverter::findRuns(const Part& part) {
  runs_.clear();
  Index expected = 0;
  Index group = 0;
  for (size_t i = 0; i < part.count; ++i) {
    const Index row = part.below[i];
    if (i > 0 && row == expected && s_.groupOf[row] == group) {
      ++runs_.back().length;
    } else {
      group = s_.groupOf[row];
      runs_.push_back({i, 1});
    }
    expected = row + 1;
  }
}

/// Finds the rows from `run` on among the ancestor's rows. As all of them occur there, the first
/// row of a run tells where the whole run is.
void PanelInverter::placeRows(const Part& part, size_t run, Index ancestor, Index* place) const {
  const Index* const begin = s_.rowsOf(ancestor);
  const Index* const end = begin + s_.height(ancestor);
  const Index* at = begin;
  for (; run < runs_.size(); ++run) {
    const Index wanted = part.below[runs_[run].first];
    // Galloping: the next run is usually near.
    size_t step = 1;
    while (step < static_cast<size_t>(end - at) && at[step] < wanted) {
      at += step;
      step *= 2;
    }
    at = std::lower_bound(at, std::min(at + step + 1, end), wanted);
    auto next = static_cast<Index>(at - begin);
    Index* target = place + runs_[run].first;
    for (size_t i = 0; i < runs_[run].length; ++i) target[i] = next++;
  }
}

/// Copies the columns of Z22 that one ancestor owns, begin .. end-1, from row `begin` down, and
/// their transposes right of them in the strip of the columns first .. last-1. Strip row i is row
/// first + i of Z22.
void PanelInverter::gatherAncestor(const Part& part, Index ancestor, size_t first, size_t begin,
                                   size_t end, size_t last, Block strip, Index* place) const {
  const double* const panel = s_.inverse[ancestor];
  const size_t height = s_.height(ancestor);
  for (size_t c = begin; c < end; ++c) {
    const double* const source = panel + height * static_cast<size_t>(place[c]);
    double* const target = strip.at(0, c - first).data - first;
    const size_t later = std::min(c + kFetchedAhead, end - 1);
    kernels::copyPlaced(source, height * static_cast<size_t>(place[later] - place[c]),
                        place + begin, part.count - begin, target + begin);
  }
  // The ancestors' squares are full; what is below them is wanted right of them as well.
  if (end == last) return;
  kernels::transpose(end - begin, last - end, strip.at(end - first, begin - first).data,
                     strip.colStride, strip.at(begin - first, end - first).data, strip.colStride);
}

/// Columns first .. last-1 of Z22, from row `first` down, out of the ancestors' panels; the strip's
/// top square is made symmetric. Those of begin .. end-1 are gathered here.
void PanelInverter::gatherColumns(const Part& part, size_t first, size_t begin, size_t end,
                                  size_t last, Block strip, Index* place) const {
  auto run =
      static_cast<size_t>(std::upper_bound(runs_.begin(), runs_.end(), begin,
                                           [](size_t row, const Run& r) { return row < r.first; }) -
                          runs_.begin() - 1);
  for (size_t j = begin; j < end;) {
    const Index ancestor = s_.groupOf[part.below[j]];
    const Index nextColumn = s_.firstColumn[ancestor + 1];
    size_t owned = j + 1;
    while (owned < end && part.below[owned] < nextColumn) ++owned;
    while (runs_[run].first + runs_[run].length <= j) ++run;
    placeRows(part, run, ancestor, place);
    gatherAncestor(part, ancestor, first, j, owned, last, strip, place);
    j = owned;
  }
}

void PanelInverter::gatherStrip(const Part& part, size_t first, size_t last, Block strip,
                                kernels::Team* team) {
  if (team == nullptr) return gatherColumns(part, first, first, last, last, strip, place_.data());
  forPieces(team, pieces(last - first, kPieceGathered), [&](size_t piece) {
    std::vector<Index> place(part.count);
    const size_t begin = first + piece * kPieceGathered;
    const size_t end = std::min(begin + kPieceGathered, last);
    gatherColumns(part, first, begin, end, last, strip, place.data());
  });
}

/// Z21 = -Z22 Y. Each strip of Z22 serves its columns and, transposed, its rows.
void PanelInverter::multiplyByKnown(const Part& part, Block y, kernels::Team* team) {
  const size_t n = part.columns;
  const size_t count = part.count;
  findRuns(part);
  for (size_t first = 0; first < count; first += kStripWidth) {
    const size_t end = std::min(first + kStripWidth, count);
    const Block strip{strip_, 1, static_cast<ptrdiff_t>(count - first)};
    gatherStrip(part, first, end, strip, team);
    forPieces(team, pieces(count - first, kPieceRows), [&](size_t piece) {
      const size_t i = piece * kPieceRows;
      product(std::min(kPieceRows, count - first - i), n, end - first, -1.0, strip.at(i, 0),
              y.at(first, 0), first == 0 ? Write::Over : Write::AddTo, part.under.at(first + i, 0));
    });
    if (end == count) break;
    forPieces(team, pieces(n, kPieceColumns), [&](size_t piece) {
      const size_t j = piece * kPieceColumns;
      product(end - first, std::min(kPieceColumns, n - j), count - end, -1.0,
              strip.at(end - first, 0).transposed(), y.at(end, j), Write::AddTo,
              part.under.at(first, j));
    });
  }
}

/// Y = L21 W, some rows at a time, which stay in the second-level cache.
void PanelInverter::multiplyByTriangle(const Part& part, Block w, Block y, kernels::Team* team) {
  const size_t n = part.columns;
  forPieces(team, pieces(part.count, kRowChunk), [&](size_t piece) {
    const size_t i = piece * kRowChunk;
    const size_t rows = std::min(kRowChunk, part.count - i);
    for (size_t j = 0; j < n; j += kTriangleBlock) {
      product(rows, std::min(kTriangleBlock, n - j), n - j, 1.0, part.l21.at(i, j), w.at(j, j),
              Write::Over, y.at(i, j));
    }
  });
}

/// Z11 = W^T W - Y^T Z21, both triangles.
void PanelInverter::completeSquare(const Part& part, Block w, Block y, kernels::Team* team) {
  const size_t n = part.columns;
  for (size_t j = 0; j < n; j += kTriangleBlock) {
    for (size_t i = j; i < n; i += kTriangleBlock) {
      product(std::min(kTriangleBlock, n - i), std::min(kTriangleBlock, n - j), n - i, 1.0,
              w.at(i, i).transposed(), w.at(i, j), Write::Over, part.square.at(i, j));
    }
  }
  const auto subtract = [&](size_t i, size_t j) {
    product(n - j, std::min(kTriangleBlock, n - j), std::min(kRowChunk, part.count - i), -1.0,
            y.at(i, j).transposed(), part.under.at(i, j), Write::AddTo, part.square.at(j, j));
  };
  if (team == nullptr) {
    for (size_t i = 0; i < part.count; i += kRowChunk) {
      for (size_t j = 0; j < n; j += kTriangleBlock) subtract(i, j);
    }
  } else {
    forPieces(team, pieces(n, kTriangleBlock), [&](size_t piece) {
      for (size_t i = 0; i < part.count; i += kRowChunk) subtract(i, piece * kTriangleBlock);
    });
  }
  for (size_t j = 0; j < n; j += kTriangleBlock) {
    mirror(part.square.data, static_cast<size_t>(part.square.colStride), j,
           std::min(j + kTriangleBlock, n), n);
  }
}

void PanelInverter::invertPart(const Part& part) {
  const size_t n = part.columns;
  if (n == 1 && part.count <= kFewRows) return invertColumn(part);
  const double operations = 2.0 * static_cast<double>(n) * static_cast<double>(part.count) *
                            static_cast<double>(part.count + n);
  kernels::Team* const team = operations > kWorthSharing ? team_ : nullptr;
  const Block w{w_, static_cast<ptrdiff_t>(n), 1};
  // Row-major, so that Y^T is read along its rows.
  const Block y{y_, static_cast<ptrdiff_t>(n), 1};
  invertTriangle(invertSmall_, n, part.l11, w, scratch_);
  if (part.count > 0) {
    multiplyByTriangle(part, w, y, team);
    multiplyByKnown(part, y, team);
  }
  completeSquare(part, w, y, team);
}

/// A single column with few rows below, where calls would cost more than the arithmetic:
/// y = l21 / d, z21 = -Z22 y, z11 = 1 / d^2 - y^T z21.
void PanelInverter::invertColumn(const Part& part) {
  const size_t count = part.count;
  const double reciprocal = 1.0 / *part.l11.data;
  const double* const l21 = part.l21.data;
  double* const z = part.under.data;
  double* const y = y_;
  for (size_t i = 0; i < count; ++i) y[i] = l21[i] * reciprocal;
  const Block known{strip_, 1, static_cast<ptrdiff_t>(count)};
  findRuns(part);
  gatherStrip(part, 0, count, known, nullptr);
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

void PanelInverter::invertGroup(Index g, const double* factor) {
  const size_t columns = s_.width(g);
  const size_t height = s_.height(g);
  const auto stride = static_cast<ptrdiff_t>(height);
  const ConstBlock l{factor, 1, stride};
  const Block z{s_.inverse[g], 1, stride};
  for (size_t end = columns; end > 0;) {
    const size_t parts = (end + kPartColumns - 1) / kPartColumns;
    const size_t width = (end + parts - 1) / parts;
    const size_t first = end - width;
    const Block under = z.at(end, first);
    invertPart({width, height - end, s_.rowsOf(g) + end, l.at(first, first), l.at(end, first),
                z.at(first, first), under});
    // The group's square is kept full across its parts.
    kernels::transpose(width, columns - end, under.data, stride, z.at(first, end).data, stride);
    end = first;
  }
}

}  // namespace korin::sparse
