#ifndef ZEPH_MATH_PANEL_STORAGE_H
#define ZEPH_MATH_PANEL_STORAGE_H

#include <sys/mman.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>

namespace korin {

struct FreeMemory {
  void operator()(void* memory) const { std::free(memory); }
};
using PanelStorage = std::unique_ptr<double[], FreeMemory>;

/// Blocks of this many bytes ask for huge pages: touching fresh memory 4 KiB at a time costs as
/// much as the arithmetic on the panels of a 2-D problem. The GNU C library also takes the size of
/// such a block as a hint to keep that much freed memory for the next call instead of giving it
/// back to the system page by page.
inline constexpr std::size_t kLargePanels = std::size_t{1} << 19;

/// `count` uninitialised doubles. Throws std::bad_alloc.
inline PanelStorage rawPanels(std::size_t count) {
  constexpr std::size_t kHugePage = std::size_t{1} << 21;
  const std::size_t bytes = count * sizeof(double);
  const bool large = bytes >= kLargePanels;
  const std::size_t rounded = (bytes + kHugePage - 1) / kHugePage * kHugePage;
  PanelStorage storage(static_cast<double*>(large ? std::aligned_alloc(kHugePage, rounded)
                                                  : std::malloc(bytes + 1)));
  if (storage == nullptr) throw std::bad_alloc();
  if (large) madvise(storage.get(), rounded, MADV_HUGEPAGE);  // a wish: no matter if not granted
  return storage;
}

/// `count` zeros. Throws std::bad_alloc.
inline PanelStorage zeroPanels(std::size_t count) {
  if (count * sizeof(double) >= kLargePanels) {
    PanelStorage storage = rawPanels(count);
    std::fill_n(storage.get(), count, 0.0);
    return storage;
  }
  PanelStorage storage(static_cast<double*>(std::calloc(count + 1, sizeof(double))));
  if (storage == nullptr) throw std::bad_alloc();
  return storage;
}

}  // namespace korin

#endif
