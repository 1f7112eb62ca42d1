#include "math/kernels/tiled_product.h"

#include <algorithm>

#include "math/kernels/pack.h"

namespace korin::kernels {
namespace {

// Block sizes. A block of B of kInner x kColumns doubles takes 384 KiB and is streamed once for
// every tile row from a second-level cache of 512 KiB or more; the tile row of A it meets, at most
// 8 x kInner doubles or 16 KiB, stays in the first-level cache meanwhile.
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
  std::size_t longer() const { return longer_; }
  std::size_t size(std::size_t part) const { return size_ + (part < longer_ ? 1 : 0); }

 private:
  std::size_t parts_;
  std::size_t size_;
  std::size_t longer_;
};

// One block: all rows of C, at most kColumns columns, at most kInner terms of the sums.
struct Block {
  TileFamily family;
  std::size_t m, n, k;
  Operand a, b;
  Target c;
  unsigned flags;
};

// The tiles of a block that stand in one column: what they read of B and how.
struct TileColumn {
  std::size_t j, vectors, lastCols;
  TileTail tail;
  const double* b;
  std::ptrdiff_t brs;
  double* packed;  // where the first tile has to pack B for those below it, or null
};

// Vectors, the last of which may be half a one, for `cols` columns that end in lastCols.
TileTail tailOf(const TileTable& table, std::size_t lastCols, bool packed) {
  if (table.half != 0 && (packed ? lastCols <= table.half : lastCols == table.half)) {
    return TileTail::Half;
  }
  return packed || lastCols == table.width ? TileTail::Whole : TileTail::Masked;
}

// The tile that begins in row i, made in a row-major c.
void runTile(const TileTable& table, const Block& block, const TileColumn& column, std::size_t i,
             std::size_t rows, double* c, std::ptrdiff_t crs) {
  const bool ordered = block.family == TileFamily::Ordered;
  const int tail = static_cast<int>(column.tail);
  const Operand a = block.a.from(i, 0);
  if (column.packed == nullptr) {
    (ordered ? table.ordered : table.fused)[tail][rows - 1][column.vectors - 1](
        block.k, a.data, a.rowStride, a.colStride, column.b, column.brs, c, crs, column.lastCols,
        block.flags);
  } else {
    (ordered ? table.orderedPacking : table.fusedPacking)[tail][column.vectors - 1](
        block.k, a.data, a.rowStride, a.colStride, column.b, column.brs, c, crs, column.lastCols,
        block.flags, column.packed);
  }
}

// The same where it belongs: for a C without unit column stride in a row-major copy first.
void runTile(const TileTable& table, const Block& block, const TileColumn& column, std::size_t i,
             std::size_t rows) {
  const Target c = block.c.from(i, column.j);
  if (c.colStride == 1) return runTile(table, block, column, i, rows, c.data, c.rowStride);
  alignas(64) double copy[kMaxTileRows * kMaxTileCols];
  const std::size_t cols = (column.vectors - 1) * table.width + column.lastCols;
  if ((block.flags & kTileUpdate) != 0) {
    for (std::size_t j = 0; j < cols; ++j) {
      for (std::size_t r = 0; r < rows; ++r) copy[r * kMaxTileCols + j] = *c.at(r, j);
    }
  }
  runTile(table, block, column, i, rows, copy, kMaxTileCols);
  for (std::size_t j = 0; j < cols; ++j) {
    for (std::size_t r = 0; r < rows; ++r) *c.at(r, j) = copy[r * kMaxTileCols + j];
  }
}

// The tiles of a block that stand side by side, and how they would lie packed.
struct TileColumns {
  std::size_t count = 0;
  PanelLayout layout{};
  TileColumn tile[kMaxTileColumns];

  // Reading B where it lies.
  TileColumns(const TileTable& table, std::size_t k, std::size_t n, std::size_t vectors,
              const Operand& b) {
    const EvenParts parts((n + table.width - 1) / table.width, vectors);
    count = parts.parts();
    layout = {k, parts.size(count - 1) * table.width, parts.longer()};
    for (std::size_t part = 0, j = 0; part < count; ++part) {
      const std::size_t stride = parts.size(part) * table.width;
      const std::size_t lastCols = std::min(stride, n - j) - (stride - table.width);
      tile[part] = {j,          parts.size(part), lastCols, tailOf(table, lastCols, false),
                    b.at(0, j), b.rowStride,      nullptr};
      j += stride;
    }
  }
  std::size_t cols(const TileTable& table, std::size_t part) const {
    return (tile[part].vectors - 1) * table.width + tile[part].lastCols;
  }
  // From now on tile column `part` reads its panel of `panels`.
  void readPacked(const TileTable& table, std::size_t part, const double* panels) {
    TileColumn& t = tile[part];
    t.tail = tailOf(table, t.lastCols, true);
    t.b = panels + t.j * layout.rows;
    t.brs = static_cast<std::ptrdiff_t>(t.vectors * table.width);
    t.packed = nullptr;
  }
};

// The tiles of the first row, which pack B for those below them. A B without unit column stride is
// packed before.
void runFirstTiles(const TileTable& table, const Block& block, std::size_t rows,
                   TileColumns& columns, bool pack) {
  double* panels = pack ? packingBuffer(kInner * kColumns) : nullptr;
  for (std::size_t part = 0; part < columns.count; ++part) {
    TileColumn& column = columns.tile[part];
    if (pack && block.b.colStride != 1) {
      packPanel(table, block.k, columns.cols(table, part), block.b.at(0, column.j),
                block.b.rowStride, block.b.colStride, panels + column.j * block.k,
                column.vectors * table.width);
      columns.readPacked(table, part, panels);
    } else if (pack) {
      column.packed = panels + column.j * block.k;
    }
    runTile(table, block, column, 0, rows);
    if (column.packed != nullptr) columns.readPacked(table, part, panels);
  }
}

void runTiles(const TileTable& table, const Block& block, TileColumns& columns, bool pack) {
  const EvenParts rowParts(block.m, table.rows);
  std::size_t i = rowParts.size(0);
  runFirstTiles(table, block, i, columns, pack);
  for (std::size_t rowPart = 1; rowPart < rowParts.parts(); ++rowPart) {
    const std::size_t rows = rowParts.size(rowPart);
    for (std::size_t part = 0; part < columns.count; ++part) {
      runTile(table, block, columns.tile[part], i, rows);
    }
    i += rows;
  }
}

// Small products skip the blocking.
bool fitsOneTile(const TileTable& table, std::size_t m, std::size_t n, std::size_t k) {
  return m <= table.rows && n <= table.width * table.vectors[m - 1] && k <= kInner;
}

}  // namespace

void tiledProduct(TileFamily family, std::size_t m, std::size_t n, std::size_t k, const Operand& a,
                  const Operand& b, const Target& c, unsigned flags) {
  if (m == 0 || n == 0) return;
  const TileTable& table = tiles();
  if (fitsOneTile(table, m, n, k) && b.colStride == 1 && c.colStride == 1) {
    const std::size_t vectors = (n + table.width - 1) / table.width;
    const std::size_t lastCols = n - (vectors - 1) * table.width;
    const TileColumn column{0,      vectors,     lastCols, tailOf(table, lastCols, false),
                            b.data, b.rowStride, nullptr};
    return runTile(table, {family, m, n, k, a, b, c, flags}, column, 0, m, c.data, c.rowStride);
  }
  const std::size_t firstRows = EvenParts(m, table.rows).size(0);
  const bool reused = m >= kPackRows && b.rowStride >= kPackStride && n > table.width;
  const bool pack = b.colStride != 1 || (reused && firstRows == table.rows);
  const std::size_t vectors = table.vectors[firstRows - 1];
  for (std::size_t j = 0; j < n; j += kColumns) {
    const EvenParts inner(k, kInner);
    Block block{family, m, std::min(kColumns, n - j), 0, a, b, c.from(0, j), flags};
    for (std::size_t part = 0, p = 0; part < inner.parts(); ++part) {
      block.k = inner.size(part);
      block.a = a.from(0, p);
      block.b = b.from(p, j);
      TileColumns columns(table, block.k, block.n, vectors, block.b);
      runTiles(table, block, columns, pack);
      block.flags |= kTileUpdate;
      p += block.k;
    }
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
  const TileColumns columns(table_, k_, n_, table_.vectors[table_.rows - 1], {buffer_, 0, 1});
  table_.combine(how, k_, n_, x, xrs, y, yrs, buffer_, 0, &columns.layout);
}

void PackedRight::multiply(std::size_t m, const Operand& a, const Target& c) const {
  TileColumns columns(table_, k_, n_, table_.vectors[table_.rows - 1], {buffer_, 0, 1});
  for (std::size_t part = 0; part < columns.count; ++part) {
    columns.readPacked(table_, part, buffer_);
  }
  runTiles(table_, {TileFamily::Ordered, m, n_, k_, a, {}, c, kTileFresh}, columns, false);
}

void dotProduct(std::size_t m, std::size_t n, std::size_t k, const Operand& a, const Operand& b,
                const Target& c, unsigned flags) {
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
        table.dot[rows - 1][cols - 1](inner, a.at(i, p), a.rowStride, b.at(p, j), b.colStride,
                                      c.at(i, j), c.rowStride, c.colStride, flags);
        j += cols;
      }
      i += rows;
    }
    flags |= kTileUpdate;
    p += inner;
  } while (p < k);
}

}  // namespace korin::kernels
