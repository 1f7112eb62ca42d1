#ifndef ZEPH_MATH_CONTAINERS_ALLOCATOR_H
#define ZEPH_MATH_CONTAINERS_ALLOCATOR_H

#include <cstddef>

namespace korin {

/// Source of memory for the sparse containers. The base class is the process heap; derive from it
/// for arenas, pools or counting, and override all of its operations together.
///
/// An allocator outlives every container that uses it. One whose canFree() is false (an arena)
/// never gets anything back from a container and releases it all at once on its own. Blocks are
/// used for 8-byte fields and must be aligned accordingly.
class Allocator {
 public:
  constexpr Allocator() = default;
  Allocator(const Allocator&) = default;
  Allocator& operator=(const Allocator&) = default;

  /// Whether memory is to be returned piece by piece. Containers ask once, at construction.
  virtual bool canFree() const;
  /// Throws std::bad_alloc when there is no memory.
  virtual void* malloc(std::size_t bytes);
  virtual void free(void* pointer);
  /// Throws std::bad_alloc when there is no memory; the old block then stays valid.
  virtual void* realloc(void* pointer, std::size_t bytes);
  virtual ~Allocator();
};

/// The process heap, used by containers that are given a null allocator. Ready before any dynamic
/// initialisation.
extern Allocator defaultAllocator;

/// What a container does with the allocator it put in place of null: deletes it, except that the
/// shared default instance is static storage and stays alive and usable.
void releaseOwnedAllocator(Allocator* allocator);

}  // namespace korin

#endif
