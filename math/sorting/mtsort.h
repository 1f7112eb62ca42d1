#ifndef ZEPH_MATH_SORTING_MTSORT_H
#define ZEPH_MATH_SORTING_MTSORT_H

#include <algorithm>
#include <cstddef>
#include <optional>
#include <type_traits>

#include "kernels/crew.h"
#include "math/sorting/mtsort_order.h"
#include "math/sorting/mtsort_steps.h"

namespace korin {
namespace mtsort {

/// A part is handed off only if the right part of its split has this many elements.
constexpr std::ptrdiff_t kHandOffRight = 512;

/// Starting and ending a thread takes as long as sorting this many elements.
constexpr std::ptrdiff_t kWorthThread = 4096;

/// Splits whose smaller part has less than 1/kUneven of the range count as failures.
constexpr std::ptrdiff_t kUneven = 8;

/// Sorts a[0 .. n-1], giving up on pivots after `failures` uneven splits. Of each split one part is
/// left to `apart(part, size, right, failures)`, which is told the size of the right part, too.
template <typename T, typename Apart>
void sortRange(T* a, std::ptrdiff_t n, int failures, const Apart& apart) {
  while (n > kSmallRun) {
    const std::ptrdiff_t split = splitAtMedianOfThree(a, n);
    if (split == 0) {
      // Nothing is less than the pivot, so the first element was equal to it: there are duplicates,
      // and those in front need no further look.
      const std::ptrdiff_t equal = gatherEqualToFirst(a, n);
      const bool uneven = equal < n / kUneven;
      a += equal;
      n -= equal;
      if (uneven) {
        if (--failures < 0) return heapSort(a, n);
        breakPattern(a, n);
      }
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

    if (right >= split) {
      apart(a, split, right, failures);
      a = rest;
      n = right - 1;
    } else {
      apart(rest, right - 1, right, failures);
      n = split;
    }
  }
  sortSmall(a, n);
}

template <typename T>
void sortAlone(T* a, std::ptrdiff_t n, int failures) {
  sortRange(a, n, failures, [](T* part, std::ptrdiff_t size, std::ptrdiff_t, int left) {
    sortAlone(part, size, left);
  });
}

/// A range that is sorted with the threads of a crew, as many at once as its budget allows. Budgets
/// at least halve from a range to what it hands off, so they serve as ranks.
template <typename T>
class Range : public kernels::Task {
 public:
  Range(T* a, std::ptrdiff_t n, int threads, int failures)
      : Task(&Range::run, threads), a_(a), n_(n), threads_(threads), failures_(failures) {}

  void sort(kernels::Crew& crew) {
    HandOffs handOffs(crew);
    sortRange(a_, n_, failures_,
              [&](T* part, std::ptrdiff_t size, std::ptrdiff_t right, int failures) {
                // On purpose the right part's size decides, also when it is the left one that goes.
                if (right >= kHandOffRight && threads_ >= 2) {
                  threads_ /= 2;
                  handOffs.add(part, size, threads_, failures);
                } else {
                  sortAlone(part, size, failures);
                }
              });
  }

 private:
  /// The ranges that one call has handed off. They are joined in that order when the call ends.
  class HandOffs {
   public:
    explicit HandOffs(kernels::Crew& crew) : crew_(crew) {}
    HandOffs(const HandOffs&) = delete;
    HandOffs& operator=(const HandOffs&) = delete;
    ~HandOffs() {
      for (int i = 0; i < count_; ++i) crew_.join(*ranges_[i]);
    }

    void add(T* a, std::ptrdiff_t n, int threads, int failures) {
      std::optional<Range>& range = ranges_[count_++];
      crew_.handOff(range.emplace(a, n, threads, failures), n >= kWorthThread);
    }

   private:
    // Every hand-off halves the budget, an int.
    static constexpr int kMost = 31;

    kernels::Crew& crew_;
    int count_ = 0;
    std::optional<Range> ranges_[kMost];
  };

  static void run(Task& task, kernels::Crew& crew) noexcept {
    try {
      static_cast<Range&>(task).sort(crew);
    } catch (...) {
      // On purpose: what a range throws is not passed on.
    }
  }

  T* a_;
  std::ptrdiff_t n_;
  int threads_;  // the budget for this range
  int failures_;
};

}  // namespace mtsort

/// Sorts a[0 .. n-1] in place by ascending MtSortOrder<T> (for sparse triplets: by column, then
/// row, then descending magnitude of the value), using up to `threads` threads, the caller's
/// included. Not stable: elements with equal key and weight end up in any order.
///
/// A quicksort (Hoare 1962) with the median of three as pivot, a partition without branches and
/// small runs sorted by counting. After each split one side is sorted apart; where that pays it is
/// handed off with half the thread budget, to be sorted by whichever thread comes to it first. No
/// more threads are started than there are processors, none for short lists, and all have ended
/// when the call returns.
/// Ranges whose splits are uneven more than log2 n times are finished by heapsort (Musser 1997;
/// shuffling after an uneven split as in Peters 2021), so no input takes more than O(n log n);
/// lists already in order, and exactly reversed ones, are recognised and take O(n).
///
/// n <= 1 (negative counts included) and threads <= 1 (no thread is started) are fine. No memory is
/// allocated but the list of threads. A lack of either is no error: the caller's thread does the
/// work. Nothing is thrown.
template <typename T>
void mtSort(T* a, int n, int threads) {
  static_assert(std::is_trivially_copyable<T>::value && std::is_default_constructible<T>::value,
                "mtSort moves elements as plain memory");
  if (n < 2 || mtsort::finishOrdered(a, n)) return;
  int log2 = 0;
  while (n >> log2 > 1) ++log2;
  if (n < mtsort::kHandOffRight || threads < 2) return mtsort::sortAlone(a, n, log2);
  kernels::Crew crew(threads);
  mtsort::Range<T>(a, n, threads, log2).sort(crew);
}

}  // namespace korin

#endif
