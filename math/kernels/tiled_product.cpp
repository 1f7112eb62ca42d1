#include "math/kernels/tiled_product.h"

#include <algorithm>

#include "math/kernels/pack.h"

namespace korin::kernels {
namespace {

// Block sizes. A block of B of kInner x kColumns doubles takes 384 KiB and is streamed once for
// every tile row from a second-level cache of 512 KiB or more; the tile row of A it meets, at most
// 8 x kInner doubles or 16 KiB, stays in the first-level cache meanwhile.
constexpr std::size_t kInner = 256;
constexpr std::size_t kColumns = 192;

// Rows of B that are far apart are packed where at least this many rows of C use them.
constexpr std::size_t kPackRows = 64;

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

// One tile of a block: its first row and column, its size, and the rows of B it reads.
struct Tile {
  std::size_t i, rows;
  std::size_t j, vectors, lastCols;
  const double* b;
  std::ptrdiff_t brs;
};

void runTile(const TileTable& table, const Block& block, const Tile& tile, double* c,
             std::ptrdiff_t crs) {
  const bool ordered = block.family == TileFamily::Ordered;
  const bool full = tile.rows == table.rows && tile.vectors == table.vectors[table.rows - 1] &&
                    tile.lastCols == table.width;
  const TileFunction run =
      full ? (ordered ? table.orderedFull : table.fusedFull)
           : (ordered ? table.ordered : table.fused)[tile.rows - 1][tile.vectors - 1];
  run(block.k, block.a.at(tile.i, 0), block.a.rowStride, block.a.colStride, tile.b, tile.brs, c,
      crs, tile.lastCols, block.flags);
}

// A tile of a C without unit column stride is made in a row-major copy.
void runScatteredTile(const TileTable& table, const Block& block, const Tile& tile) {
  alignas(64) double copy[kMaxTileRows * kMaxTileCols];
  const std::size_t cols = (tile.vectors - 1) * table.width + tile.lastCols;
  if ((block.flags & kTileUpdate) != 0) {
    for (std::size_t j = 0; j < cols; ++j) {
      for (std::size_t i = 0; i < tile.rows; ++i) {
        copy[i * kMaxTileCols + j] = *block.c.at(tile.i + i, tile.j + j);
      }
    }
  }
  runTile(table, block, tile, copy, kMaxTileCols);
  for (std::size_t j = 0; j < cols; ++j) {
    for (std::size_t i = 0; i < tile.rows; ++i) {
      *block.c.at(tile.i + i, tile.j + j) = copy[i * kMaxTileCols + j];
    }
  }
}

// Packs the columns of B that the tiles of a row read, tile by tile.
void packTiles(const TileTable& table, const Block& block, const EvenParts& colParts,
               double* packed) {
  for (std::size_t part = 0, j = 0; part < colParts.parts(); ++part) {
    const std::size_t stride = colParts.size(part) * table.width;
    packPanel(table, block.k, std::min(stride, block.n - j), block.b.at(0, j), block.b.rowStride,
              block.b.colStride, packed + j * block.k, stride);
    j += stride;
  }
}

void runBlock(const TileTable& table, const Block& block, bool pack) {
  const EvenParts rowParts(block.m, table.rows);
  const EvenParts colParts((block.n + table.width - 1) / table.width,
                           table.vectors[rowParts.size(0) - 1]);
  double* packed = pack ? packingBuffer(kInner * kColumns) : nullptr;
  if (pack) packTiles(table, block, colParts, packed);
  Tile tile{};
  for (std::size_t rowPart = 0; rowPart < rowParts.parts(); ++rowPart) {
    tile.rows = rowParts.size(rowPart);
    tile.j = 0;
    for (std::size_t part = 0; part < colParts.parts(); ++part) {
      tile.vectors = colParts.size(part);
      const std::size_t stride = tile.vectors * table.width;
      const std::size_t cols = std::min(stride, block.n - tile.j);
      tile.lastCols = cols - (stride - table.width);
      tile.b = pack ? packed + tile.j * block.k : block.b.at(0, tile.j);
      tile.brs = pack ? static_cast<std::ptrdiff_t>(stride) : block.b.rowStride;
      if (block.c.colStride == 1) {
        runTile(table, block, tile, block.c.at(tile.i, tile.j), block.c.rowStride);
      } else {
        runScatteredTile(table, block, tile);
      }
      tile.j += stride;
    }
    tile.i += tile.rows;
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
    const Tile tile{0, m, 0, vectors, n - (vectors - 1) * table.width, b.data, b.rowStride};
    return runTile(table, {family, m, n, k, a, b, c, flags}, tile, c.data, c.rowStride);
  }
  const bool pack =
      b.colStride != 1 || (b.rowStride >= table.packStride && m >= kPackRows && n > table.width);
  for (std::size_t j = 0; j < n; j += kColumns) {
    std::size_t p = 0;
    Block block{family, m, std::min(kColumns, n - j), 0, a, b, c.from(0, j), flags};
    do {
      block.k = std::min(kInner, k - p);
      block.a = a.from(0, p);
      block.b = b.from(p, j);
      runBlock(table, block, pack);
      block.flags |= kTileUpdate;
      p += block.k;
    } while (p < k);
  }
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
