#ifndef ZEPH_MATH_SORTING_MTSORT_STEPS_H
#define ZEPH_MATH_SORTING_MTSORT_STEPS_H

// The sequential steps mtSort (math/sorting/mtsort.h) is made of; not for direct use. They leave
// the processor nothing to guess: on random input a comparison is a coin toss, and a mispredicted
// branch costs more than moving an element.

#include <cstddef>
#include <utility>

#include "math/sorting/mtsort_order.h"

namespace korin {
namespace mtsort {

/// Puts the smaller of two elements first; the results are picked by index, not by a branch.
template <typename T>
inline void orderPair(T& first, T& second) {
  const T pair[2] = {first, second};
  const bool swapped = less(second, first);
  first = pair[swapped];
  second = pair[!swapped];
}

/// Sorts exactly N elements: the final index of each is the number of elements before it, counted
/// from all N (N - 1) / 2 comparisons, which do not wait for each other.
template <int N, typename T>
inline void sortFixed(T* a) {
  Place places[N];
  T copy[N];
  unsigned index[N] = {};
  for (int i = 0; i < N; ++i) {
    copy[i] = a[i];
    places[i] = placeOf(copy[i]);
  }
#pragma GCC unroll 8
  for (int i = 1; i < N; ++i) {
#pragma GCC unroll 8
    for (int j = 0; j < i; ++j) {
      const bool before = less(places[i], places[j]);
      index[j] += before;
      index[i] += !before;
    }
  }
  for (int i = 0; i < N; ++i) a[index[i]] = copy[i];
}

/// Runs of at most this many elements are not partitioned further.
constexpr std::ptrdiff_t kSmallRun = 8;

/// Sorts n <= kSmallRun elements.
template <typename T>
inline void sortSmall(T* a, std::ptrdiff_t n) {
  switch (n) {
    case 2:
      return orderPair(a[0], a[1]);
    case 3:
      return sortFixed<3>(a);
    case 4:
      return sortFixed<4>(a);
    case 5:
      return sortFixed<5>(a);
    case 6:
      return sortFixed<6>(a);
    case 7:
      return sortFixed<7>(a);
    case 8:
      return sortFixed<8>(a);
    default:
      return;
  }
}

/// Moves the elements for which `left` holds to the front and returns their number. One pass: a gap
/// follows the reading position, and every element read is written to where the next left element
/// belongs, whether it is one or not; if it is not, the next one read moves it into the gap.
/// (A Lomuto partition in cyclic moves: Alexandrescu 2020, Bergdoll and Peters 2023.)
template <typename T, typename Left>
inline std::ptrdiff_t partition(T* a, std::ptrdiff_t n, Left left) {
  if (n <= 0) return 0;
  const T first = a[0];
  std::ptrdiff_t count = 0;
#pragma GCC unroll 4
  for (std::ptrdiff_t i = 1; i < n; ++i) {
    // Copied from memory to memory: an element kept in a variable gets taken apart by the compiler,
    // and its pieces, stored one by one, hold up the load of the whole that follows.
    a[i - 1] = a[count];
    a[count] = a[i];
    count += left(a[i]);
  }
  a[n - 1] = a[count];
  a[count] = first;
  return count + left(first);
}

/// Places the median of the first, middle and last element with everything less before it and
/// nothing less after it; returns its index. n >= 3.
template <typename T>
inline std::ptrdiff_t splitAtMedianOfThree(T* a, std::ptrdiff_t n) {
  // Compared all at once and moved once each; the least goes to where the median was looked for.
  T* const spots[3] = {a + n / 2, a, a + n - 1};
  const T found[3] = {a[0], a[n / 2], a[n - 1]};
  const Place places[3] = {placeOf(found[0]), placeOf(found[1]), placeOf(found[2])};
  const unsigned swapped01 = less(places[1], places[0]);
  const unsigned swapped02 = less(places[2], places[0]);
  const unsigned swapped12 = less(places[2], places[1]);
  *spots[swapped01 + swapped02] = found[0];
  *spots[1 - swapped01 + swapped12] = found[1];
  *spots[2 - swapped02 - swapped12] = found[2];
  const Place pivot = placeOf(a[0]);
  // The last element is known not to be less than the pivot.
  const std::ptrdiff_t split =
      partition(a + 1, n - 2, [pivot](const T& e) { return less(placeOf(e), pivot); });
  std::swap(a[0], a[split]);
  return split;
}

/// Moves the elements equal to a[0], of which nothing is less, to the front; returns their number.
template <typename T>
inline std::ptrdiff_t gatherEqualToFirst(T* a, std::ptrdiff_t n) {
  const Place first = placeOf(a[0]);
  return 1 + partition(a + 1, n - 1, [first](const T& e) { return !less(first, placeOf(e)); });
}

/// Exchanges the elements that the next median of three will look at with others, so that an
/// arrangement which led to an uneven split does not lead to the next one.
template <typename T>
inline void breakPattern(T* a, std::ptrdiff_t n) {
  if (n <= kSmallRun) return;
  const std::ptrdiff_t quarter = n / 4;
  std::swap(a[0], a[quarter]);
  std::swap(a[n / 2], a[n / 2 - quarter / 2]);
  std::swap(a[n - 1], a[n - 1 - quarter]);
}

/// Heapsort, for ranges whose splits keep being uneven.
template <typename T>
void heapSort(T* a, std::ptrdiff_t n) {
  const auto sink = [a](std::ptrdiff_t hole, std::ptrdiff_t size, const T e) {
    for (std::ptrdiff_t child; (child = 2 * hole + 1) < size; hole = child) {
      if (child + 1 < size) child += less(a[child], a[child + 1]);
      if (!less(e, a[child])) break;
      a[hole] = a[child];
    }
    a[hole] = e;
  };
  for (std::ptrdiff_t i = n / 2; i-- > 0;) sink(i, n, a[i]);
  for (std::ptrdiff_t last = n - 1; last > 0; --last) {
    const T largest = a[0];
    sink(0, last, a[last]);
    a[last] = largest;
  }
}

enum class Direction { Ascending, Descending };

/// Whether no element is less (Ascending) or greater (Descending) than the one before it. Stops
/// within a block of the first offending pair.
template <Direction direction, typename T>
inline bool isOrdered(const T* a, std::ptrdiff_t n) {
  constexpr std::ptrdiff_t kBlock = 32;
  for (std::ptrdiff_t i = 1; i < n;) {
    const std::ptrdiff_t end = n - i > kBlock ? i + kBlock : n;
    bool offends = false;
    for (; i < end; ++i) {
      offends |= direction == Direction::Ascending ? less(a[i], a[i - 1]) : less(a[i - 1], a[i]);
    }
    if (offends) return false;
  }
  return true;
}

/// Finishes a list that is in order, or in exactly the reverse order, in linear time; returns false
/// and leaves the list alone if it is neither.
template <typename T>
inline bool finishOrdered(T* a, std::ptrdiff_t n) {
  if (isOrdered<Direction::Ascending>(a, n)) return true;
  if (!isOrdered<Direction::Descending>(a, n)) return false;
  for (std::ptrdiff_t i = 0, j = n - 1; i < j; ++i, --j) std::swap(a[i], a[j]);
  return true;
}

}  // namespace mtsort
}  // namespace korin

#endif
