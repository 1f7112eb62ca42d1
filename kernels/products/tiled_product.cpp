#include "kernels/products/tiled_product.h"

#include <algorithm>

#include "kernels/products/pack.h"
#include "kernels/tiles/transpose.h"

namespace korin::kernels {
namespace {

// Block sizes. A block of B of kInner x kColumns doubles takes 396 KiB and is streamed once for
// every tile row from a second-level cache of 512 KiB or more; the tile row of A it meets, at most
// 8 x kInner doubles or 17 KiB, stays in the first-level cache meanwhile. kInner is a little above
// the largest sums of the loop kernel, which are made in one go.
constexpr std::size_t kInner = 264;
constexpr std::size_t kColumns = 192;

// B is packed where at least this many rows of C use it, unless its rows are so near to one another
// that it stays in the first-level cache as it is.
constexpr std::size_t kPackRows = 24;
constexpr std::ptrdiff_t kPackStride = 56;

// Most tiles side by side: of two vectors of two doubles each.
constexpr std::size_t kMaxTileColumns = PackedRight::kLargest / 4;

// Terms of a dot product at a time: four rows of A, 16 KiB, stay in the first-level cache while
// they meet the columns of B.
constexpr std::size_t kDotInner = 512;

// Cuts `count` into ceil(count / largest) parts whose sizes differ by at most one, so that no
// left-over part is too thin to hide the latency of the additions.
class EvenParts {
 public:
  EvenParts(std::size_t count, std::size_t largest) : parts_(1), size_(count), longer_(0) {
    if (count <= largest) return;  // spares small products the divisions
    parts_ = (count + largest - 1) / largest;
    size_ = count / parts_;
    longer_ = count % parts_;
  }
  std::size_t parts() const { return parts_; }
  // How many parts have size(0); the others are smaller by one.
  std::size_t largest() const { return longer_ == 0 ? parts_ : longer_; }
  // How many parts are larger than the last.
  std::size_t longer() const { return longer_; }
  std::size_t size(std::size_t part) const { return size_ + (part < longer_ ? 1 : 0); }

 private:
  std::size_t parts_;
  std::size_t size_;
  std::size_t longer_;
};

// One piece of a product: all rows of C, at most kColumns columns, at most kInner terms of the
// sums.
struct Piece {
  TileFamily family;
  std::size_t m, n, k;
  ConstBlock a, b;
  Block c;
  unsigned flags;
};

// Tiles that stand in one column of a piece: their columns and what they read of B.
struct TileColumn {
  std::size_t j, cols, vectors, lastCols;
  TileTail tail;
  const double* b;
  std::ptrdiff_t brs;
  TileFunction run;  // for the row of tiles at hand
};

TileTail tailOf(const TileTable& table, std::size_t lastCols, bool packed) {
  if (table.half != 0 && (packed ? lastCols <= table.half : lastCols == table.half)) {
    return TileTail::Half;
  }
  return packed || lastCols == table.width ? TileTail::Whole : TileTail::Masked;
}

// The tiles of a piece that stand side by side, and how B lies packed for them.
struct TileColumns {
  std::size_t count;
  PanelLayout layout;
  TileColumn tile[kMaxTileColumns];

  // Reading B where it lies.
  TileColumns(const TileTable& table, std::size_t k, std::size_t n, std::size_t vectors,
              const double* b, std::ptrdiff_t brs) {
    const EvenParts parts((n + table.width - 1) / table.width, vectors);
    count = parts.parts();
    layout = {k, parts.size(count - 1) * table.width, parts.longer()};
    for (std::size_t part = 0, j = 0; part < count; ++part) {
      const std::size_t stride = parts.size(part) * table.width;
      const std::size_t cols = std::min(stride, n - j);
      const std::size_t lastCols = cols - (stride - table.width);
      const TileTail tail = tailOf(table, lastCols, false);
      tile[part] = {j, cols, parts.size(part), lastCols, tail, b + j, brs, nullptr};
      j += stride;
    }
  }

  std::size_t panelAt(std::size_t part) const { return tile[part].j * layout.rows; }

  // Reading the panels from now on.
  void readPacked(const TileTable& table, const double* panels) {
    for (std::size_t part = 0; part < count; ++part) {
      TileColumn& t = tile[part];
      t.tail = tailOf(table, t.lastCols, true);
      t.b = panels + panelAt(part);
      t.brs = static_cast<std::ptrdiff_t>(t.vectors * table.width);
    }
  }
};

// Has tile(c, crs), which makes a tile of C in row-major order, make it in a copy: for a C without
// unit column stride.
template <class Tile>
__attribute__((noinline)) void runInCopy(const TileTable& table, const Block& c, std::size_t rows,
                                         std::size_t cols, unsigned flags, Tile tile) {
  alignas(64) double copy[kMaxTileRows * kMaxTileCols];
  if (c.rowStride == 1) {
    if ((flags & kTileUpdate) != 0) {
      transposeBlocks(table, cols, rows, c.data, c.colStride, copy, kMaxTileCols);
    }
    tile(copy, kMaxTileCols);
    return transposeBlocks(table, rows, cols, copy, kMaxTileCols, c.data, c.colStride);
  }
  if ((flags & kTileUpdate) != 0) {
    for (std::size_t j = 0; j < cols; ++j) {
      for (std::size_t r = 0; r < rows; ++r) copy[r * kMaxTileCols + j] = c(r, j);
    }
  }
  tile(copy, kMaxTileCols);
  for (std::size_t j = 0; j < cols; ++j) {
    for (std::size_t r = 0; r < rows; ++r) c(r, j) = copy[r * kMaxTileCols + j];
  }
}

// `count` rows of tiles of the same height from row i on.
void runTileRows(const TileTable& table, const Piece& piece, TileColumns& columns, std::size_t i,
                 std::size_t rows, std::size_t count) {
  const auto& tiles = piece.family == TileFamily::Ordered ? table.ordered : table.fused;
  TileColumn* const end = columns.tile + columns.count;
  for (TileColumn* t = columns.tile; t != end; ++t) {
    t->run = tiles[static_cast<int>(t->tail)][rows - 1][t->vectors - 1];
  }
  const bool inPlace = piece.c.colStride == 1;
  for (; count != 0; --count, i += rows) {
    const double* a = piece.a.at(i, 0).data;
    double* out = piece.c.at(i, 0).data;
    for (const TileColumn* t = columns.tile; t != end; ++t) {
      const auto tile = [&](double* c, std::ptrdiff_t crs) {
        t->run(piece.k, a, piece.a.rowStride, piece.a.colStride, t->b, t->brs, c, crs, t->lastCols,
               piece.flags);
      };
      if (inPlace) {
        tile(out + t->j, piece.c.rowStride);
      } else {
        runInCopy(table, piece.c.at(i, t->j), rows, t->cols, piece.flags, tile);
      }
    }
  }
}

// The first row of tiles, which packs B for those below it.
void runPackingRow(const TileTable& table, const Piece& piece, const TileColumns& columns,
                   double* panels) {
  const auto& tiles =
      piece.family == TileFamily::Ordered ? table.orderedPacking : table.fusedPacking;
  for (std::size_t part = 0; part < columns.count; ++part) {
    const TileColumn& t = columns.tile[part];
    const auto tile = [&](double* c, std::ptrdiff_t crs) {
      tiles[static_cast<int>(t.tail)][t.vectors - 1](
          piece.k, piece.a.data, piece.a.rowStride, piece.a.colStride, t.b, t.brs, c, crs,
          t.lastCols, piece.flags, panels + columns.panelAt(part));
    };
    if (piece.c.colStride == 1) {
      tile(piece.c.data + t.j, piece.c.rowStride);
    } else {
      runInCopy(table, piece.c.at(0, t.j), table.rows, t.cols, piece.flags, tile);
    }
  }
}

void packTransposed(const TileTable& table, const Piece& piece, const TileColumns& columns,
                    double* panels) {
  for (std::size_t part = 0; part < columns.count; ++part) {
    const TileColumn& t = columns.tile[part];
    packPanel(table, piece.k, t.cols, piece.b.at(0, t.j).data, piece.b.rowStride, piece.b.colStride,
              panels + columns.panelAt(part), t.vectors * table.width);
  }
}

// `pack` where B is to be packed first; with a B of unit column stride only where the first row of
// tiles is a full one.
void runPiece(const TileTable& table, const Piece& piece, TileColumns& columns, bool pack) {
  const EvenParts rows(piece.m, table.rows);
  std::size_t done = 0;
  if (pack) {
    double* panels = packingBuffer(kInner * kColumns);
    if (piece.b.colStride != 1) {
      packTransposed(table, piece, columns, panels);
    } else {
      runPackingRow(table, piece, columns, panels);
      done = 1;
    }
    columns.readPacked(table, panels);
  }
  const std::size_t high = rows.size(0), largest = rows.largest();
  runTileRows(table, piece, columns, done * high, high, largest - done);
  if (largest != rows.parts()) {
    runTileRows(table, piece, columns, largest * high, high - 1, rows.parts() - largest);
  }
}

// Products of one column of tiles that read B where it lies.
void runColumn(const TileTable& table, TileFamily family, std::size_t m, std::size_t n,
               std::size_t k, const ConstBlock& a, const ConstBlock& b, const Block& c,
               unsigned flags) {
  const std::size_t vectors = (n + table.width - 1) / table.width;
  const std::size_t lastCols = n - (vectors - 1) * table.width;
  const int tail = static_cast<int>(tailOf(table, lastCols, false));
  const auto& tile = (family == TileFamily::Ordered ? table.ordered : table.fused)[tail];
  if (m <= table.rows) {
    return tile[m - 1][vectors - 1](k, a.data, a.rowStride, a.colStride, b.data, b.rowStride,
                                    c.data, c.rowStride, lastCols, flags);
  }
  const EvenParts rows(m, table.rows);
  for (std::size_t part = 0, i = 0; part < rows.parts(); i += rows.size(part), ++part) {
    tile[rows.size(part) - 1][vectors - 1](k, a.at(i, 0).data, a.rowStride, a.colStride, b.data,
                                           b.rowStride, c.at(i, 0).data, c.rowStride, lastCols,
                                           flags);
  }
}

// Products piece by piece. Not to be inlined, for the sake of small products.
__attribute__((noinline)) void runPieces(const TileTable& table, TileFamily family, std::size_t m,
                                         std::size_t n, std::size_t k, const ConstBlock& a,
                                         const ConstBlock& b, const Block& c, bool pack,
                                         unsigned flags) {
  const std::size_t vectors = table.vectors[EvenParts(m, table.rows).size(0) - 1];
  const EvenParts inner(k, kInner);
  for (std::size_t j = 0; j < n; j += kColumns) {
    for (std::size_t part = 0, p = 0; part < inner.parts(); p += inner.size(part), ++part) {
      const Piece piece{family,
                        m,
                        std::min(kColumns, n - j),
                        inner.size(part),
                        a.at(0, p),
                        b.at(p, j),
                        c.at(0, j),
                        part == 0 ? flags : flags | kTileUpdate};
      TileColumns columns(table, piece.k, piece.n, vectors, piece.b.data, piece.b.rowStride);
      runPiece(table, piece, columns, pack);
    }
  }
}

}  // namespace

void tiledProduct(TileFamily family, std::size_t m, std::size_t n, std::size_t k,
                  const ConstBlock& a, const ConstBlock& b, const Block& c, unsigned flags) {
  if (m == 0 || n == 0) return;
  const TileTable& table = tiles();
  const std::size_t highest = EvenParts(m, table.rows).size(0);
  const bool reused = m >= kPackRows && b.rowStride >= kPackStride && n > table.width;
  const bool pack = b.colStride != 1 || (reused && highest == table.rows);
  if (n <= table.width * table.vectors[highest - 1] && k <= kInner && !pack && c.colStride == 1) {
    runColumn(table, family, m, n, k, a, b, c, flags);
  } else {
    runPieces(table, family, m, n, k, a, b, c, pack, flags);
  }
}

PackedRight::PackedRight(std::size_t k, std::size_t n, double* buffer)
    : table_(tiles()), k_(k), n_(n), buffer_(buffer) {}

std::size_t PackedRight::room(std::size_t k, std::size_t n) {
  const std::size_t width = tiles().width;
  return k * ((n + width - 1) / width * width);
}

void PackedRight::fill(Combine how, const double* x, std::ptrdiff_t xrs, const double* y,
                       std::ptrdiff_t yrs) {
  const TileColumns columns(table_, k_, n_, table_.vectors[table_.rows - 1], buffer_, 0);
  table_.combine(how, k_, n_, x, xrs, y, yrs, buffer_, 0, &columns.layout);
}

void PackedRight::multiply(std::size_t m, const ConstBlock& a, const Block& c) const {
  TileColumns columns(table_, k_, n_, table_.vectors[table_.rows - 1], buffer_, 0);
  columns.readPacked(table_, buffer_);
  const ConstBlock b{buffer_, 0, 1};
  runPiece(table_, {TileFamily::Ordered, m, n_, k_, a, b, c, kTileFresh}, columns, false);
}

void dotProduct(std::size_t m, std::size_t n, std::size_t k, const ConstBlock& a,
                const ConstBlock& b, const Block& c, unsigned flags) {
  if (m == 0 || n == 0) return;
  const TileTable& table = tiles();
  const EvenParts rowParts(m, kDotRows);
  const EvenParts colParts(n, table.dotCols);
  std::size_t p = 0;
  do {
    const std::size_t inner = std::min(kDotInner, k - p);
    for (std::size_t rowPart = 0, i = 0; rowPart < rowParts.parts(); ++rowPart) {
      const std::size_t rows = rowParts.size(rowPart);
      for (std::size_t colPart = 0, j = 0; colPart < colParts.parts(); ++colPart) {
        const std::size_t cols = colParts.size(colPart);
        table.dot[rows - 1][cols - 1](inner, a.at(i, p).data, a.rowStride, b.at(p, j).data,
                                      b.colStride, c.at(i, j).data, c.rowStride, c.colStride,
                                      flags);
        j += cols;
      }
      i += rows;
    }
    flags |= kTileUpdate;
    p += inner;
  } while (p < k);
}

}  // namespace korin::kernels
