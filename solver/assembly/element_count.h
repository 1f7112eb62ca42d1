// What 32-bit indices and the machine's memory can count.
#ifndef ZEPH_SOLVER_ASSEMBLY_ELEMENT_COUNT_H
#define ZEPH_SOLVER_ASSEMBLY_ELEMENT_COUNT_H

#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>

namespace zeph_solver {

/// The count, for what sorts or converts so many elements. Throws std::length_error beyond 2^31 -
/// 1: their places are counted by int.
inline std::size_t requireCountable(std::size_t elements) {
  constexpr std::size_t kMost = std::numeric_limits<std::int32_t>::max();
  if (elements <= kMost) return elements;
  throw std::length_error(std::to_string(elements) +
                          " elements are too many: sorting, solving and " +
                          "inverting take at most " + std::to_string(kMost));
}

/// For the arrays of workspace that an algorithm needs for so many rows or columns. Throws
/// std::bad_alloc for a count that no memory holds, where containers would throw something else.
inline void requireWorkspace(std::size_t lines) {
  if (lines > std::numeric_limits<std::ptrdiff_t>::max() / 64) throw std::bad_alloc();
}

}  // namespace zeph_solver

#endif
