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

// Rows of B are read where they lie as long as two of them share a page of memory (512 doubles);
// beyond that, and in transposed operands, a block is packed if at least this many rows use it.
constexpr std::ptrdiff_t kPackStride = 512;
constexpr std::size_t kPackRows = 64;

struct Operand {
  const double* data;
  std::ptrdiff_t rowStride;
  std::ptrdiff_t colStride;
  const double* at(std::size_t i, std::size_t j) const {
    return data + static_cast<std::ptrdiff_t>(i) * rowStride +
           static_cast<std::ptrdiff_t>(j) * colStride;
  }
};

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
  double* c;
  std::ptrdiff_t crs;
  unsigned flags;
};

void runTile(const TileTable& table, const Block& block, std::size_t i, std::size_t rows,
             std::size_t vectors, std::size_t lastCols, const double* a, const double* b,
             std::ptrdiff_t brs, std::size_t j) {
  const bool full = rows == table.rows && vectors == table.vectors && lastCols == table.width;
  const bool ordered = block.family == TileFamily::Ordered;
  const TileFunction part = (ordered ? table.ordered : table.fused)[rows - 1][vectors - 1];
  const TileFunction whole = ordered ? table.orderedFull : table.fusedFull;
  (full ? whole : part)(block.k, a, block.a.rowStride, block.a.colStride, b, brs,
                        block.c + static_cast<std::ptrdiff_t>(i) * block.crs + j, block.crs,
                        lastCols, block.flags);
}

void runBlock(const TileTable& table, const Block& block, bool pack) {
  const EvenParts rowParts(block.m, table.rows);
  const EvenParts colParts((block.n + table.width - 1) / table.width, table.vectors);
  double* packed = pack ? packingBuffer(kInner * kColumns) : nullptr;
  if (pack) {
    for (std::size_t part = 0, j = 0; part < colParts.parts(); ++part) {
      const std::size_t stride = colParts.size(part) * table.width;
      packPanel(table, block.k, std::min(stride, block.n - j), block.b.at(0, j), block.b.rowStride,
                block.b.colStride, packed + j * block.k, stride);
      j += stride;
    }
  }
  for (std::size_t rowPart = 0, i = 0; rowPart < rowParts.parts(); ++rowPart) {
    const std::size_t rows = rowParts.size(rowPart);
    const double* a = block.a.at(i, 0);
    for (std::size_t part = 0, j = 0; part < colParts.parts(); ++part) {
      const std::size_t vectors = colParts.size(part);
      const std::size_t stride = vectors * table.width;
      const std::size_t cols = std::min(stride, block.n - j);
      const double* b = pack ? packed + j * block.k : block.b.at(0, j);
      runTile(table, block, i, rows, vectors, cols - (vectors - 1) * table.width, a, b,
              pack ? static_cast<std::ptrdiff_t>(stride) : block.b.rowStride, j);
      j += stride;
    }
    i += rows;
  }
}

}  // namespace

void tiledProduct(TileFamily family, std::size_t m, std::size_t n, std::size_t k, const double* a,
                  std::ptrdiff_t ars, std::ptrdiff_t acs, const double* b, std::ptrdiff_t brs,
                  std::ptrdiff_t bcs, double* c, std::ptrdiff_t crs, unsigned flags) {
  if (m == 0 || n == 0) return;
  const TileTable& table = tiles();
  const Operand left{a, ars, acs};
  const Operand right{b, brs, bcs};
  for (std::size_t j = 0; j < n; j += kColumns) {
    std::size_t p = 0;
    unsigned blockFlags = flags;
    do {
      const std::size_t inner = std::min(kInner, k - p);
      const std::size_t cols = std::min(kColumns, n - j);
      const Block block{
          family, m,   cols,      inner, {left.at(0, p), ars, acs}, {right.at(p, j), brs, bcs},
          c + j,  crs, blockFlags};
      const bool pack = bcs != 1 || (brs >= kPackStride && m >= kPackRows);
      runBlock(table, block, pack);
      blockFlags |= kTileUpdate;
      p += inner;
    } while (p < k);
  }
}

}  // namespace korin::kernels
