#include "kernels/products/pack.h"

#include <algorithm>
#include <new>

#include "kernels/tiles/transpose.h"

namespace korin::kernels {

static constexpr std::align_val_t kCacheLine{64};

void AlignedDelete::operator()(double* p) const {
  ::operator delete(p, kCacheLine);
}

AlignedBuffer allocateAligned(std::size_t count) {
  return AlignedBuffer(static_cast<double*>(::operator new(count * sizeof(double), kCacheLine)));
}

void packPanel(const TileTable& table, std::size_t k, std::size_t cols, const double* b,
               std::ptrdiff_t brs, std::ptrdiff_t bcs, double* panel, std::size_t stride) {
  // Tiles read whole vectors: what stands beyond the columns must be numbers, if only for speed.
  for (std::size_t p = 0; p < k && cols < stride; ++p) {
    std::fill(panel + p * stride + cols, panel + (p + 1) * stride, 0.0);
  }
  if (brs == 1 && bcs != 1) {
    return transposeBlocks(table, cols, k, b, bcs, panel, static_cast<std::ptrdiff_t>(stride));
  }
  for (; k != 0; --k, b += brs, panel += stride) {
    const double* in = b;
    for (std::size_t j = 0; j < cols; ++j, in += bcs) panel[j] = *in;
  }
}

double* packingBuffer(std::size_t count) {
  thread_local AlignedBuffer buffer;
  thread_local std::size_t capacity = 0;
  if (count > capacity) {
    buffer.reset();
    capacity = 0;
    buffer = allocateAligned(count);
    capacity = count;
  }
  return buffer.get();
}

}  // namespace korin::kernels
