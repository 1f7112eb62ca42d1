#include "math/containers/allocator.h"

#include <cstdlib>
#include <new>

namespace korin {

constinit Allocator defaultAllocator;

bool Allocator::canFree() const {
  return true;
}

void* Allocator::malloc(std::size_t bytes) {
  void* block = std::malloc(bytes);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void Allocator::free(void* pointer) {
  std::free(pointer);
}

void* Allocator::realloc(void* pointer, std::size_t bytes) {
  void* block = std::realloc(pointer, bytes);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

Allocator::~Allocator() = default;

void releaseOwnedAllocator(Allocator* allocator) {
  if (allocator != &defaultAllocator) delete allocator;
}

}  // namespace korin
