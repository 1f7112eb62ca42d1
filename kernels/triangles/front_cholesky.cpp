#include "kernels/triangles/front_cholesky.h"

#include <algorithm>
#include <vector>

#include "kernels/products/panel_product.h"
#include "kernels/team.h"
#include "kernels/triangles/panel_leaf.h"

namespace korin::kernels {
namespace {

using std::size_t;

/// Most columns that are factorised before the others lose their products with them: a block of
/// kRowBlock packed rows of them stays in a second-level cache of 512 KiB.
constexpr size_t kMostColumns = 192;
constexpr size_t kRowBlock = 192;
/// Columns of a product that meet a block of rows in one piece of work.
constexpr size_t kColumnBlock = 384;
/// Rows below a square that are solved together.
constexpr size_t kSolvedRows = 96;
/// Most rows of a leaf's panel that are neither packed nor shared.
constexpr size_t kFewRows = 400;
/// Operations of a step that are worth sharing.
constexpr double kWorthSharing = 4e6;

/// Columns of the first chunk of those that are left: a multiple of a leaf's, and all chunks of
/// about the same size.
size_t chunkOf(size_t columns) {
  const size_t chunks = (columns + kMostColumns - 1) / kMostColumns;
  const size_t even = (columns + chunks - 1) / chunks;
  return std::min(columns, (even + kLeafColumns - 1) / kLeafColumns * kLeafColumns);
}

/// Some columns of a panel, from the diagonal down, and what they do to the rest of the front.
///
/// Rows are counted from the first of these columns. Packed, the rows below the panel's square
/// begin with a panel of their own, and so do the columns of the update matrix.
class Chunk {
 public:
  /// `height` rows, `columns` of the `width` columns that are left of the panel.
  Chunk(size_t height, size_t columns, size_t width, double* l, size_t stride, double* scratch,
        Team* team)
      : height_(height),
        columns_(columns),
        width_(width),
        below_(wholePanels(width)),
        l_(l),
        stride_(stride),
        packed_(scratch, columns),
        team_(team) {}

  /// Returns the columns whose pivots are positive and finite up to their own.
  size_t factorise() {
    for (size_t j = 0; j < columns_; j += kLeafColumns) {
      const size_t n = std::min(kLeafColumns, columns_ - j);
      double* const leaf = l_ + j + j * stride_;
      if (j > 0) subtract(j, {j, columns_, j, j + n}, leaf, stride_, true);
      const size_t done = panelLeaf()(columns_ - j, n, leaf, stride_);
      if (done < n) return j + done;
      packed_.pack(j, columns_ - j, j, n, leaf, stride_);
    }
    const auto operations = static_cast<double>((height_ - columns_) * columns_ * columns_);
    forPieces<Rows>(
        operations,
        [&](const auto& visit) {
          for (size_t i = columns_; i < height_;) {
            const size_t count = std::min(kSolvedRows, (i < width_ ? width_ : height_) - i);
            visit({i, count});
            i += count;
          }
        },
        [&](const Rows& rows) { solve(rows.first, slotOf(rows.first), rows.count); });
    return columns_;
  }

  /// The other columns of the panel lose their products with these, and so does the update matrix.
  void updateRest(double* update, bool first) {
    const size_t end = below_ + height_ - width_;
    const auto order = static_cast<double>(height_ - columns_);
    forPieces<Product>(
        order * order * static_cast<double>(columns_),
        [&](const auto& visit) {
          double* const rest = l_ + columns_ * stride_;
          cut({{columns_, width_, columns_, width_}, rest + columns_, stride_, true}, visit);
          cut({{below_, end, columns_, width_}, rest + width_, stride_, true}, visit);
          if (update == nullptr) return;
          cut({{below_, end, below_, end}, update, height_ - width_, !first}, visit);
        },
        [&](const Product& p) { subtract(columns_, p.part, p.c, p.stride, p.update); });
  }

 private:
  struct Rows {
    size_t first, count;
  };
  struct Product {
    ProductPart part;
    double* c;
    size_t stride;
    bool update;
  };

  void subtract(size_t inner, const ProductPart& part, double* c, size_t stride,
                bool update) const {
    const RowPanels rows = packed_.panels();
    lowerPanelProduct(rows, rows, inner, part, c, stride,
                      kTileNegate | (update ? kTileUpdate : kTileFresh));
  }

  size_t slotOf(size_t row) const { return row < width_ ? row : row - width_ + below_; }

  /// X = X L11^-T for some rows, leaf by leaf, and packs them.
  void solve(size_t row, size_t slot, size_t count) {
    for (size_t j = 0; j < columns_; j += kLeafColumns) {
      const size_t n = std::min(kLeafColumns, columns_ - j);
      double* const x = l_ + row + j * stride_;
      if (j > 0) subtract(j, {slot, slot + count, j, j + n}, x, stride_, true);
      leafSolve()(count, n, l_ + j + j * stride_, stride_, x, stride_);
      packed_.pack(slot, count, j, n, x, stride_);
    }
  }

  template <class Visit>
  static void cut(const Product& whole, const Visit& visit) {
    const auto& [firstRow, lastRow, firstColumn, lastColumn] = whole.part;
    for (size_t i = firstRow; i < lastRow; i += kRowBlock) {
      const size_t endRow = std::min(i + kRowBlock, lastRow);
      const size_t end = std::min(endRow, lastColumn);
      for (size_t j = firstColumn; j < end; j += kColumnBlock) {
        visit({{i, endRow, j, std::min(j + kColumnBlock, end)},
               whole.c + (i - firstRow) + (j - firstColumn) * whole.stride,
               whole.stride,
               whole.update});
      }
    }
  }

  /// Has work(piece) done for the pieces that list(visit) visits, by the team where that pays.
  template <class Piece, class List, class Work>
  void forPieces(double operations, const List& list, const Work& work) const {
    if (team_ == nullptr || operations < kWorthSharing) {
      return list([&](const Piece& piece) { work(piece); });
    }
    std::vector<Piece> pieces;
    list([&](const Piece& piece) { pieces.push_back(piece); });
    team_->forEach(static_cast<int>(pieces.size()),
                   [&](int i) { work(pieces[static_cast<size_t>(i)]); });
  }

  const size_t height_;
  const size_t columns_;
  const size_t width_;
  const size_t below_;
  double* const l_;
  const size_t stride_;
  const PackedRows packed_;
  Team* const team_;
};

}  // namespace

size_t frontScratch(size_t rows, size_t columns) {
  return (wholePanels(columns) + wholePanels(rows - columns)) * chunkOf(columns);
}

size_t frontCholesky(size_t rows, size_t columns, double* panel, size_t stride, double* update,
                     double* scratch, Team* team) {
  if (columns <= kLeafColumns && rows <= kFewRows) {
    const size_t done = panelLeaf()(rows, columns, panel, stride);
    const size_t below = rows - columns;
    if (done == columns && update != nullptr) {
      const RowPanels l21 = unpackedRows(panel + columns, stride);
      lowerPanelProduct(l21, l21, columns, {0, below, 0, below}, update, below, kTileNegate);
    }
    return done;
  }
  for (size_t first = 0; first < columns;) {
    const size_t chunk = chunkOf(columns - first);
    Chunk current(rows - first, chunk, columns - first, panel + first * (stride + 1), stride,
                  scratch, team);
    const size_t done = current.factorise();
    if (done < chunk) return first + done;
    current.updateRest(update, first == 0);
    first += chunk;
  }
  return columns;
}

}  // namespace korin::kernels
