#ifndef ZEPH_KERNELS_PANEL_STORAGE_H
#define ZEPH_KERNELS_PANEL_STORAGE_H

#include <sys/mman.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <memory>
#include <new>

namespace korin::kernels {

/// Whoever has memory other than the heap's.
class Lender {
 public:
  virtual ~Lender() = default;
  virtual void giveBack(void* block) const noexcept = 0;
};

/// Frees the block of memory that panels lie in, or gives it back to its lender.
struct FreeBlock {
  void* block = nullptr;
  const Lender* lender = nullptr;
  void operator()(double*) const {
    if (lender != nullptr) {
      lender->giveBack(block);
    } else {
      std::free(block);
    }
  }
};
using PanelStorage = std::unique_ptr<double[], FreeBlock>;

/// Blocks of this many bytes ask for huge pages: touching fresh memory 4 KiB at a time costs as
/// much as the arithmetic on the panels of a 2-D problem.
inline constexpr std::size_t kLargePanels = std::size_t{1} << 21;

inline constexpr std::size_t kHugePage = std::size_t{1} << 21;

/// What `panelBytes` says of blocks whose bytes cannot be counted: more than any system grants.
inline constexpr std::size_t kCountlessBytes = std::numeric_limits<std::ptrdiff_t>::max();

/// Bytes that `rawPanels` asks the system for.
inline std::size_t panelBytes(std::size_t count) {
  if (count > (kCountlessBytes - kHugePage) / sizeof(double)) return kCountlessBytes;
  const std::size_t bytes = count * sizeof(double);
  return bytes >= kLargePanels ? bytes + kHugePage : bytes + 1;
}

/// Bytes that those come to hold: a block's alignment is never touched.
inline double heldBytes(std::size_t count) {
  return sizeof(double) * static_cast<double>(count);
}

/// `count` uninitialised doubles. Throws std::bad_alloc.
inline PanelStorage rawPanels(std::size_t count) {
  // A huge page more than needed, not to be touched, so that one can begin within the block; what
  // does not fill a last one lies in small pages. The block is freed as large as that, which the
  // GNU C library takes as a hint to keep so much freed memory for the next call instead of giving
  // it back to the system page by page.
  std::size_t space = panelBytes(count);
  if (space == kCountlessBytes) throw std::bad_alloc();
  void* const block = std::malloc(space);
  if (block == nullptr) throw std::bad_alloc();
  const std::size_t bytes = count * sizeof(double);
  const bool large = bytes >= kLargePanels;
  void* start = block;
  if (large) {
    std::align(kHugePage, bytes, start, space);
    // A wish: whether it is granted is no matter.
    madvise(start, bytes / kHugePage * kHugePage, MADV_HUGEPAGE);
  }
  return PanelStorage(static_cast<double*>(start), FreeBlock{block, nullptr});
}

/// `count` zeros that go back to the system when they are freed, all of them: for few large blocks
/// where memory is short. Throws std::bad_alloc.
PanelStorage mappedPanels(std::size_t count);

/// `count` zeros. Throws std::bad_alloc.
inline PanelStorage zeroPanels(std::size_t count) {
  if (panelBytes(count) >= kLargePanels) {
    PanelStorage storage = rawPanels(count);
    std::fill_n(storage.get(), count, 0.0);
    return storage;
  }
  void* const block = std::calloc(count + 1, sizeof(double));
  if (block == nullptr) throw std::bad_alloc();
  return PanelStorage(static_cast<double*>(block), FreeBlock{block, nullptr});
}

}  // namespace korin::kernels

#endif
