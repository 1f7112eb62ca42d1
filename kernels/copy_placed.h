#ifndef ZEPH_KERNELS_COPY_PLACED_H
#define ZEPH_KERNELS_COPY_PLACED_H

#include <cstddef>

namespace korin::kernels {

/// target[i] = source[place[i]], while what a later call will read `ahead` elements further on is
/// fetched: most of the time goes into waiting for memory. Places of 0 .. count-1 ascend or not;
/// the target overlaps nothing. Not inlined: it wants all registers for itself.
template <class Index>
[[gnu::noinline]] void copyPlaced(const double* __restrict source, std::size_t ahead,
                                  const Index* __restrict place, std::size_t count,
                                  double* __restrict target) {
  constexpr std::size_t kLine = 8;
  std::size_t i = 0;
  for (; i + kLine <= count; i += kLine) {
    __builtin_prefetch(source + ahead + place[i]);
    for (std::size_t k = i; k < i + kLine; ++k) target[k] = source[place[k]];
  }
  for (; i < count; ++i) target[i] = source[place[i]];
}

}  // namespace korin::kernels

#endif
