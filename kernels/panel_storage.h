#ifndef ZEPH_KERNELS_PANEL_STORAGE_H
#define ZEPH_KERNELS_PANEL_STORAGE_H

#include <sys/mman.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>

namespace korin::kernels {

/// Frees the block of memory that panels lie in.
struct FreeBlock {
  void* block = nullptr;
  void operator()(double*) const { std::free(block); }
};
using PanelStorage = std::unique_ptr<double[], FreeBlock>;

/// Blocks of this many bytes ask for huge pages: touching fresh memory 4 KiB at a time costs as
/// much as the arithmetic on the panels of a 2-D problem.
inline constexpr std::size_t kLargePanels = std::size_t{1} << 19;

/// `count` uninitialised doubles. Throws std::bad_alloc.
inline PanelStorage rawPanels(std::size_t count) {
  constexpr std::size_t kHugePage = std::size_t{1} << 21;
  const std::size_t bytes = count * sizeof(double);
  const bool large = bytes >= kLargePanels;
  const std::size_t rounded = (bytes + kHugePage - 1) / kHugePage * kHugePage;
  // A huge page more than needed, not to be touched, so that one can begin within the block. The
  // block is freed as large as that, which the GNU C library takes as a hint to keep so much freed
  // memory for the next call instead of giving it back to the system page by page.
  std::size_t space = large ? rounded + kHugePage : bytes + 1;
  void* const block = std::malloc(space);
  if (block == nullptr) throw std::bad_alloc();
  void* start = block;
  if (large) {
    std::align(kHugePage, rounded, start, space);
    madvise(start, rounded, MADV_HUGEPAGE);  // a wish: whether it is granted is no matter
  }
  return PanelStorage(static_cast<double*>(start), FreeBlock{block});
}

/// `count` zeros. Throws std::bad_alloc.
inline PanelStorage zeroPanels(std::size_t count) {
  if (count * sizeof(double) >= kLargePanels) {
    PanelStorage storage = rawPanels(count);
    std::fill_n(storage.get(), count, 0.0);
    return storage;
  }
  void* const block = std::calloc(count + 1, sizeof(double));
  if (block == nullptr) throw std::bad_alloc();
  return PanelStorage(static_cast<double*>(block), FreeBlock{block});
}

}  // namespace korin::kernels

#endif
