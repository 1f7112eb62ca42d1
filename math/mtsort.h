#ifndef ZEPH_MATH_MTSORT_H
#define ZEPH_MATH_MTSORT_H

#include <algorithm>
#include <cstddef>
#include <future>
#include <system_error>
#include <type_traits>
#include <utility>
#include <vector>

#include "math/mtsort_order.h"
#include "math/mtsort_steps.h"

namespace korin {
namespace mtsort {

/// A part is handed to a new thread only if the right part of its split has this many elements.
constexpr std::ptrdiff_t kHandOffRight = 512;

/// Splits whose smaller part has less than 1/kUneven of the range count as failures.
constexpr std::ptrdiff_t kUneven = 8;

/// The threads started by one call. They are waited for, in the order they were started, when the
/// call ends; what they throw is not passed on.
class Tasks {
 public:
  Tasks() = default;
  Tasks(const Tasks&) = delete;
  Tasks& operator=(const Tasks&) = delete;
  ~Tasks() {
    for (const std::future<void>& task : started_) task.wait();
  }

  /// Runs `work` on a new thread; false if the system has none left.
  template <typename Work>
  bool start(Work work) {
    if (started_.capacity() == 0) started_.reserve(kMostHandOffs);
    try {
      started_.push_back(std::async(std::launch::async, std::move(work)));
    } catch (const std::system_error&) {
      return false;
    }
    return true;
  }

 private:
  // Every hand-off halves the budget, an int.
  static constexpr std::size_t kMostHandOffs = 31;

  std::vector<std::future<void>> started_;
};

/// Sorts a[0 .. n-1] with up to `threads` threads, giving up on pivots after `failures` uneven
/// splits.
template <typename T>
void sortRange(T* a, std::ptrdiff_t n, int threads, int failures) {
  Tasks tasks;
  while (n > kSmallRun) {
    const std::ptrdiff_t split = splitAtMedianOfThree(a, n);
    if (split == 0) {
      // Nothing is less than the pivot, so the first element was equal to it: there are duplicates,
      // and those in front need no further look.
      const std::ptrdiff_t equal = gatherEqualToFirst(a, n);
      a += equal;
      n -= equal;
      continue;
    }
    // The right part begins with the pivot, which is in place.
    const std::ptrdiff_t right = n - split;
    T* const rest = a + split + 1;
    if (std::min(split, right) < n / kUneven) {
      if (--failures < 0) {
        heapSort(a, split);
        heapSort(rest, right - 1);
        return;
      }
      breakPattern(a, split);
      breakPattern(rest, right - 1);
    }

    const bool leftApart = right >= split;
    T* const apart = leftApart ? a : rest;
    const std::ptrdiff_t size = leftApart ? split : right - 1;
    bool started = false;
    // On purpose the right part's size decides, also when it is the left part that is handed off.
    if (right >= kHandOffRight && threads >= 2) {
      threads /= 2;
      started = tasks.start([=] { sortRange(apart, size, threads, failures); });
    }
    if (!started) sortRange(apart, size, threads, failures);

    if (leftApart) a = rest;
    n = leftApart ? right - 1 : split;
  }
  sortSmall(a, n);
}

}  // namespace mtsort

/// Sorts a[0 .. n-1] in place by ascending MtSortOrder<T> (for sparse triplets: by column, then
/// row, then descending magnitude of the value), using up to `threads` threads, the caller's
/// included. Not stable: elements with equal key and weight end up in any order.
///
/// A quicksort (Hoare 1962) with the median of three as pivot, a partition without branches and
/// small runs sorted by counting. After each split one side is sorted apart, by a new thread with
/// half the thread budget where that pays, and all threads have ended when the call returns. Ranges
/// whose splits are uneven more than log2 n times are finished by heapsort (Musser 1997; shuffling
/// after an uneven split as in Peters 2021), so no input takes more than O(n log n); lists already
/// in order, and exactly reversed ones, are recognised and take O(n).
///
/// n <= 1 (negative counts included) and threads <= 1 (no thread is started) are fine. No memory is
/// allocated but the list of threads. Throws std::bad_alloc if that fails; the list then still
/// holds its elements, in some order. A lack of threads is no error: the caller's thread does the
/// work.
template <typename T>
void mtSort(T* a, int n, int threads) {
  static_assert(std::is_trivially_copyable<T>::value && std::is_default_constructible<T>::value,
                "mtSort moves elements as plain memory");
  if (n < 2 || mtsort::finishOrdered(a, n)) return;
  int log2 = 0;
  while (n >> log2 > 1) ++log2;
  mtsort::sortRange(a, n, threads, log2);
}

}  // namespace korin

#endif
