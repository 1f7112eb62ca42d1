#ifndef ZEPH_KERNELS_PRODUCTS_PACK_H
#define ZEPH_KERNELS_PRODUCTS_PACK_H

#include <cstddef>
#include <memory>

#include "kernels/tiles/tile.h"

namespace korin::kernels {

/// Copies a k x cols block of B, element (p, j) at b[p*brs + j*bcs], so that (p, j) lies at
/// panel[p*stride + j]. Where columns of B are contiguous (brs == 1) this is a transposition.
void packPanel(const TileTable& table, std::size_t k, std::size_t cols, const double* b,
               std::ptrdiff_t brs, std::ptrdiff_t bcs, double* panel, std::size_t stride);

struct AlignedDelete {
  void operator()(double* p) const;
};
using AlignedBuffer = std::unique_ptr<double, AlignedDelete>;

/// `count` doubles from a cache line's start on, uninitialised. Throws std::bad_alloc.
AlignedBuffer allocateAligned(std::size_t count);

/// A buffer of `count` doubles that belongs to the calling thread and is kept for its next call;
/// aligned to a cache line. Allocates only when asked for more than ever before (throws
/// std::bad_alloc then, when there is no memory).
double* packingBuffer(std::size_t count);

}  // namespace korin::kernels

#endif
