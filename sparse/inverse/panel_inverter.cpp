#include "sparse/inverse/panel_inverter.h"

#include <algorithm>
#include <vector>

#include "kernels/block.h"
#include "kernels/copy_placed.h"
#include "kernels/packed_triangle.h"
#include "kernels/products/fused_product.h"
#include "kernels/products/pack.h"
#include "kernels/products/panel_product.h"
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
/// they fit the second-level cache. Whole panels of rows.
constexpr size_t kRowChunk = 192;
/// Columns from which on it pays to pack what is multiplied by them.
constexpr size_t kWorthPacking = 40;
/// Columns of Z22 by which memory is asked for ahead of copying.
constexpr size_t kFetchedAhead = 4;
/// Columns of a strip, whole panels, that are multiplied together as rows.
constexpr size_t kTurnedColumns = 96;
/// Columns of a strip that one thread gathers.
constexpr size_t kPieceGathered = 32;
/// Parts of more operations than this are shared.
constexpr double kWorthSharing = 8e6;
/// Most rows below a single column that goes without calls of the dense kernels.
constexpr size_t kFewRows = 24;

using kernels::Block;
using kernels::ConstBlock;
using kernels::kPanelRows;
using kernels::kTileFresh;
using kernels::kTileNegate;
using kernels::kTileUpdate;
using kernels::PackedRows;
using kernels::RowPanels;

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
  kernels::fusedProduct(rest, top, top, 1.0, l.at(top, 0), w, 0.0, t);
  kernels::fusedProduct(rest, top, rest, -1.0, w.at(top, top), t, 0.0, w.at(top, 0));
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

/// What is below the square of columns begin .. end-1, in a strip of the columns first .. last-1
/// that begins with row `first`, is wanted right of it as well.
void turnRight(size_t first, size_t begin, size_t end, size_t last, Block strip) {
  if (end == last) return;
  kernels::transpose(end - begin, last - end, strip.at(end - first, begin - first).data,
                     strip.colStride, strip.at(begin - first, end - first).data, strip.colStride);
}

}  // namespace

InverterSizes::InverterSizes(const PanelStructure& s) {
  for (Index g = 0; g < s.groups; ++g) {
    const size_t columns = s.width(g);
    const size_t width = std::min(columns, kPartColumns);
    const size_t below = columns > width ? s.height(g) : s.height(g) - width;
    widest = std::max(widest, width);
    y = std::max(y, below * kernels::wholePanels(width));
    strip = std::max(strip, below * std::min(below, kStripWidth));
    tallest = std::max(tallest, below);
  }
}

size_t InverterSizes::values() const {
  return packedTriangle() + y + triangle() + scratch() + strip;
}

size_t InverterSizes::packedTriangle() const {
  return kernels::wholePanels(widest) * widest;
}

size_t InverterSizes::triangle() const {
  return widest * widest + kernels::kSmallTriangle;
}

size_t InverterSizes::scratch() const {
  return widest * widest / 4 + 8 * widest;
}

double InverterSizes::bytes() const {
  return kernels::heldBytes(values()) +
         (sizeof(Index) + sizeof(PanelInverter::Run)) * static_cast<double>(tallest);
}

PanelInverter::PanelInverter(const PanelStructure& structure, const InverterSizes& sizes,
                             kernels::Team* team)
    : s_(structure),
      team_(team),
      invertSmall_(kernels::smallTriangleInverse()),
      workspace_(kernels::rawPanels(sizes.values())),
      packedW_(workspace_.get()),
      y_(packedW_ + sizes.packedTriangle()),
      w_(y_ + sizes.y),
      scratch_(w_ + sizes.triangle()),
      strip_(scratch_ + sizes.scratch()),
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

/// The run that a row below the part lies in.
size_t PanelInverter::runOf(size_t row) const {
  const auto after = std::upper_bound(runs_.begin(), runs_.end(), row,
                                      [](size_t r, const Run& run) { return r < run.first; });
  return static_cast<size_t>(after - runs_.begin()) - 1;
}

/// Finds the rows from `run` on among those of an ancestor. As all of them occur there, the first
/// row of a run tells where the whole run is.
void PanelInverter::placeRows(const Part& part, size_t run, const Index* begin, const Index* end,
                              Index* place) const {
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

/// Calls use(ancestor, first, end) for the rows first .. end-1 below the part, of begin .. end-1,
/// that are columns of one ancestor, when the places of these and all later rows are known.
template <class Use>
void PanelInverter::forAncestors(const Part& part, size_t begin, size_t end, Index* place,
                                 const Use& use) const {
  for (size_t j = begin; j < end;) {
    const Index ancestor = s_.groupOf[part.below[j]];
    const Index nextColumn = s_.firstColumn[ancestor + 1];
    size_t owned = j + 1;
    while (owned < end && part.below[owned] < nextColumn) ++owned;
    const Index* const rows = s_.rowsOf(ancestor);
    placeRows(part, runOf(j), rows, rows + s_.height(ancestor), place);
    use(ancestor, j, owned);
    j = owned;
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
  // The ancestors' squares are full.
  turnRight(first, begin, end, last, strip);
}

/// The same for columns that the known block has, of which only the lower triangle is there.
void PanelInverter::gatherKnown(const Part& part, size_t first, size_t begin, size_t end,
                                size_t last, Block strip, Index* place) const {
  const size_t order = known_->count;
  placeRows(part, runOf(begin), known_->rows, known_->rows + order, place);
  for (size_t c = begin; c < end; ++c) {
    const double* const source = known_->values + kernels::packedColumn(order, place[c]);
    double* const target = strip.at(0, c - first).data - first;
    const size_t later = kernels::packedColumn(order, place[std::min(c + kFetchedAhead, end - 1)]);
    kernels::copyPlaced(source, later - kernels::packedColumn(order, place[c]), place + c,
                        part.count - c, target + c);
    for (size_t i = begin; i < c; ++i) target[i] = strip.at(c - first, i - first).data[0];
  }
  turnRight(first, begin, end, last, strip);
}

/// Columns first .. last-1 of Z22, from row `first` down, out of the ancestors' panels; the strip's
/// top square is made symmetric. Those of begin .. end-1 are gathered here.
void PanelInverter::gatherColumns(const Part& part, size_t first, size_t begin, size_t end,
                                  size_t last, Block strip, Index* place) const {
  size_t fromKnown = end;
  if (known_ != nullptr) {
    const Index* const rows = part.below;
    fromKnown = std::lower_bound(rows + begin, rows + end, known_->firstRow) - rows;
  }
  forAncestors(part, begin, fromKnown, place, [&](Index ancestor, size_t j, size_t owned) {
    gatherAncestor(part, ancestor, first, j, owned, last, strip, place);
  });
  if (fromKnown < end) gatherKnown(part, first, fromKnown, end, last, strip, place);
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
void PanelInverter::multiplyByKnown(const Part& part, const PackedRows& y, kernels::Team* team) {
  findRuns(part);
  for (size_t first = 0; first < part.count; first += kStripWidth) {
    const size_t end = std::min(first + kStripWidth, part.count);
    const Block strip{strip_, 1, static_cast<ptrdiff_t>(part.count - first)};
    gatherStrip(part, first, end, strip, team);
    forPieces(team, pieces(part.count - first, kRowChunk), [&](size_t piece) {
      const size_t row = first + piece * kRowChunk;
      multiplyRows(part, y, first, end, row, std::min(kRowChunk, part.count - row), strip);
    });
    if (end == part.count) break;
    forPieces(team, pieces(kStripWidth, kTurnedColumns), [&](size_t piece) {
      const size_t column = piece * kTurnedColumns;
      multiplyTurned(part, y, first, end, column, std::min(kTurnedColumns, kStripWidth - column),
                     strip);
    });
  }
}

/// `count` rows from `row` on of Z21 lose their products of the strip of columns first .. end-1.
void PanelInverter::multiplyRows(const Part& part, const PackedRows& y, size_t first, size_t end,
                                 size_t row, size_t count, Block strip) {
  const size_t inner = end - first;
  const double* const source = strip.at(row - first, 0).data;
  const auto step = static_cast<size_t>(strip.colStride);
  RowPanels rows = kernels::unpackedRows(source, step);
  if (part.columns >= kWorthPacking && count > kPanelRows) {
    const PackedRows packed(kernels::packingBuffer(kRowChunk * kPartColumns), inner);
    packed.pack(0, count, 0, inner, source, step);
    rows = packed.panels();
  }
  kernels::panelProduct(rows, y.panels(first), inner, {0, count, 0, part.columns},
                        part.under.at(row, 0).data, static_cast<size_t>(part.under.colStride),
                        kTileNegate | (first == 0 ? kTileFresh : kTileUpdate));
}

/// Rows column .. column+count-1 of the strip's own lose their products of what lies right of the
/// strip's square, which is the transpose of what lies below it.
void PanelInverter::multiplyTurned(const Part& part, const PackedRows& y, size_t first, size_t end,
                                   size_t column, size_t count, Block strip) {
  double* const buffer = kernels::packingBuffer(kRowChunk * kPartColumns);
  const size_t width = PackedRows::panelWidth();
  for (size_t k = end; k < part.count; k += kRowChunk) {
    const size_t inner = std::min(kRowChunk, part.count - k);
    for (size_t c = 0; c < count; c += width) {
      kernels::transpose(width, inner, strip.at(k - first, column + c).data, strip.colStride,
                         buffer + c * inner, static_cast<ptrdiff_t>(width));
    }
    kernels::panelProduct(PackedRows(buffer, inner).panels(), y.panels(k), inner,
                          {0, count, 0, part.columns}, part.under.at(first + column, 0).data,
                          static_cast<size_t>(part.under.colStride), kTileNegate | kTileUpdate);
  }
}

/// Y = L21 W, some rows at a time, which stay in the second-level cache. Y and W are packed by
/// their columns.
void PanelInverter::multiplyByTriangle(const Part& part, const PackedRows& w, const PackedRows& y,
                                       kernels::Team* team) {
  const size_t n = part.columns;
  const auto stride = static_cast<size_t>(part.l21.colStride);
  forPieces(team, pieces(part.count, kRowChunk), [&](size_t piece) {
    const size_t i = piece * kRowChunk;
    const size_t rows = std::min(kRowChunk, part.count - i);
    const double* const l21 = part.l21.at(i, 0).data;
    RowPanels left = kernels::unpackedRows(l21, stride);
    if (n >= kWorthPacking) {
      const PackedRows packed(kernels::packingBuffer(kRowChunk * kPartColumns), n);
      packed.pack(0, rows, 0, n, l21, stride);
      left = packed.panels();
    }
    const size_t width = PackedRows::panelWidth();
    for (size_t j = 0; j < n; j += width) {
      const size_t columns = std::min(width, kernels::wholeSteps(n - j));
      RowPanels fromJ = left;
      fromJ.data += static_cast<ptrdiff_t>(j) * left.columnStep;
      kernels::panelProduct(w.panels(j), fromJ, n - j, {j, j + columns, 0, rows}, y.place(j, i),
                            width, kTileFresh);
    }
  });
}

/// Z11 = W^T W - Y^T Z21, both triangles.
void PanelInverter::completeSquare(const Part& part, const PackedRows& w, const PackedRows& y,
                                   kernels::Team* team) {
  const size_t n = part.columns;
  const auto stride = static_cast<size_t>(part.square.colStride);
  for (size_t i = 0; i < n; i += kPanelRows) {
    const size_t end = std::min(i + kPanelRows, n);
    const RowPanels rows = w.panels(i);
    kernels::lowerPanelProduct(rows, rows, n - i, {i, end, 0, end}, part.square.at(i, 0).data,
                               stride, kTileFresh);
  }
  const auto subtract = [&](size_t k, size_t j, size_t end) {
    const RowPanels columns{
        part.under.at(k, 0).data, kPanelRows, kPanelRows * stride, 1, false, stride};
    kernels::lowerPanelProduct(y.panels(k), columns, std::min(kRowChunk, part.count - k),
                               {j, n, j, end}, part.square.at(j, j).data, stride,
                               kTileNegate | kTileUpdate);
  };
  if (team == nullptr) {
    for (size_t k = 0; k < part.count; k += kRowChunk) subtract(k, 0, n);
  } else {
    forPieces(team, pieces(n, kPanelRows), [&](size_t piece) {
      const size_t j = piece * kPanelRows;
      for (size_t k = 0; k < part.count; k += kRowChunk) {
        subtract(k, j, std::min(j + kPanelRows, n));
      }
    });
  }
  for (size_t j = 0; j < n; j += kPanelRows) {
    mirror(part.square.data, stride, j, std::min(j + kPanelRows, n), n);
  }
}

void PanelInverter::invertPart(const Part& part) {
  const size_t n = part.columns;
  if (n == 1 && part.count <= kFewRows) return invertColumn(part);
  const double operations = 2.0 * static_cast<double>(n) * static_cast<double>(part.count) *
                            static_cast<double>(part.count + n);
  kernels::Team* const team = operations > kWorthSharing ? team_ : nullptr;
  const Block w{w_, static_cast<ptrdiff_t>(n), 1};
  // Both by their columns.
  const PackedRows packedW(packedW_, n);
  const PackedRows y(y_, part.count);
  invertTriangle(invertSmall_, n, part.l11, w, scratch_);
  packedW.pack(0, n, 0, n, w.data, n);
  if (part.count > 0) {
    multiplyByTriangle(part, packedW, y, team);
    multiplyByKnown(part, y, team);
  }
  completeSquare(part, packedW, y, team);
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

KnownBlock PanelInverter::collectKnown(Index g, double* values) {
  Part part{};
  part.count = s_.height(g) - s_.width(g);
  part.below = s_.rowsOf(g) + s_.width(g);
  findRuns(part);
  const auto copy = [&](size_t begin, size_t end, Index* place) {
    forAncestors(part, begin, end, place, [&](Index ancestor, size_t first, size_t owned) {
      const size_t height = s_.height(ancestor);
      for (size_t c = first; c < owned; ++c) {
        const size_t later = std::min(c + kFetchedAhead, owned - 1);
        kernels::copyPlaced(s_.inverse[ancestor] + height * static_cast<size_t>(place[c]),
                            height * static_cast<size_t>(place[later] - place[c]), place + c,
                            part.count - c, values + kernels::packedColumn(part.count, c) + c);
      }
    });
  };
  const bool large =
      static_cast<double>(part.count) * static_cast<double>(part.count) > kWorthSharing;
  if (team_ == nullptr || !large) {
    copy(0, part.count, place_.data());
  } else {
    forPieces(team_, pieces(part.count, kPieceGathered), [&](size_t piece) {
      std::vector<Index> place(part.count);
      const size_t begin = piece * kPieceGathered;
      copy(begin, std::min(begin + kPieceGathered, part.count), place.data());
    });
  }
  return {part.below, part.count, s_.firstColumn[g + 1], values};
}

void PanelInverter::invertGroup(Index g, const double* factor, const KnownBlock* known) {
  known_ = known;
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
