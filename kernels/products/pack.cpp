#include "kernels/products/pack.h"

#include <pthread.h>

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

namespace {

/// A key by which each thread keeps its buffer. Not a thread_local one: where the C library finds
/// no memory to note that its destructor is to be run, it ends the process.
struct BufferKey {
  BufferKey() {
    if (pthread_key_create(&key, [](void* p) { AlignedDelete()(static_cast<double*>(p)); }) != 0) {
      throw std::bad_alloc();
    }
  }
  ~BufferKey() { pthread_key_delete(key); }
  pthread_key_t key{};
};

}  // namespace

double* packingBuffer(std::size_t count) {
  static const BufferKey kept;
  thread_local std::size_t capacity = 0;
  auto* buffer = static_cast<double*>(pthread_getspecific(kept.key));
  if (buffer != nullptr && count <= capacity) return buffer;
  pthread_setspecific(kept.key, nullptr);
  AlignedDelete()(buffer);
  AlignedBuffer fresh = allocateAligned(count);
  if (pthread_setspecific(kept.key, fresh.get()) != 0) throw std::bad_alloc();
  capacity = count;
  return fresh.release();
}

}  // namespace korin::kernels
