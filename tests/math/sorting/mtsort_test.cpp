#include "math/sorting/mtsort.h"

#include <gtest/gtest.h>
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <tuple>
#include <vector>

namespace {

using u32 = std::uint32_t;

struct Triplet {
  u32 row;
  u32 col;
  double value;
};

struct Event {
  double payload;
  u32 time;
};

/// Notices which threads look at it, and how deep in their stacks.
struct Witnessed {
  u32 key;
};
std::atomic<long> g_looks{0};
std::atomic<int> g_round{0};
std::atomic<int> g_threads{0};
std::atomic<std::ptrdiff_t> g_deepest{0};

}  // namespace

template <>
struct korin::MtSortOrder<Witnessed> {
  static std::uint64_t key(const Witnessed& e) {
    thread_local int round = 0;
    thread_local const char* top = nullptr;
    const auto* here = static_cast<const char*>(__builtin_frame_address(0));
    if (round != g_round) {
      ++g_threads;
      top = here;
    }
    round = g_round;
    if (top - here > g_deepest) g_deepest = top - here;
    return e.key;
  }
  static std::uint64_t weight(const Witnessed&) { return 0; }
};

template <>
struct korin::MtSortOrder<Event> {
  static std::uint64_t key(const Event& e) { return ++g_looks, e.time; }
  static std::uint64_t weight(const Event&) { return 0; }
};

namespace {

using Triplets = std::vector<Triplet>;

bool before(const Triplet& a, const Triplet& b) {
  if (a.col != b.col) return a.col < b.col;
  if (a.row != b.row) return a.row < b.row;
  return std::fabs(a.value) > std::fabs(b.value);
}

constexpr int kNumShapes = 13;

/// Element i of n of a list that a quicksort may stumble over; equal keys come with equal, opposite
/// and different values.
Triplet elementOf(int shape, u32 i, u32 n, u32 random) {
  const Triplet elements[kNumShapes] = {
      {i % 8, i / 8, 1.0},                                  // sorted
      {(n - i) % 8, (n - i) / 8, 1.0},                      // reversed
      {i + 1 == n ? 0 : i, 0, 1.0},                         // sorted but the last
      {std::min(i, n - i), 0, 1.0},                         // organ pipe
      {i % 1000, 7, 1.0 / (i + 1.0)},                       // sawtooth
      {3, 4, -2.5},                                         // all equal
      {9, 9, random % 2001 - 1000.0},                       // one key
      {1, 1, 1.0 + i},                                      // one key, rising
      {5, random % 2, 1.0},                                 // two elements
      {random % 4, random / 4 % 4, random / 16 % 3 - 1.0},  // few positions
      {random % (n / 8 + 1), 0, 1.0 / random},              // eight a position
      {random * 2654435761u, random, 1.0},                  // random
      {i < n / 2 ? (i % 2 ? n / 2 + i : i + 1) : 2 * (i - n / 2 + 1), 0, 1.0},  // median killer
  };
  return elements[shape];
}

Triplets make(int shape, u32 n) {
  std::mt19937 random(n);
  Triplets list;
  for (u32 i = 0; i < n; ++i) list.push_back(elementOf(shape, i, n, static_cast<u32>(random())));
  return list;
}

/// Sorts a copy and holds it against a stable sort: the same keys and magnitudes in the same order,
/// and the very same elements.
void expectSorted(const Triplets& list, int threads) {
  SCOPED_TRACE(::testing::Message() << list.size() << " elements, " << threads << " threads");
  Triplets sorted = list;
  Triplets expected = list;
  korin::mtSort(sorted.data(), static_cast<int>(sorted.size()), threads);
  std::stable_sort(expected.begin(), expected.end(), before);
  for (std::size_t i = 0; i < list.size(); ++i) {
    ASSERT_FALSE(before(sorted[i], expected[i]) || before(expected[i], sorted[i])) << "at " << i;
  }
  const auto fields = [](const Triplet& e) { return std::tie(e.col, e.row, e.value); };
  const auto all = [&](const auto& a, const auto& b) { return fields(a) < fields(b); };
  std::sort(sorted.begin(), sorted.end(), all);
  std::sort(expected.begin(), expected.end(), all);
  for (std::size_t i = 0; i < list.size(); ++i) ASSERT_EQ(fields(sorted[i]), fields(expected[i]));
}

bool isSorted(const Triplets& list) {
  return std::is_sorted(list.begin(), list.end(), before);
}

TEST(MtSort, AgreesWithStableSortOnAnyShapeSizeAndThreadsAndWhereSplitsKeepFailing) {
  for (int shape = 0; shape < kNumShapes; ++shape) {
    SCOPED_TRACE(shape);
    for (u32 n = 0; n <= 2000; n = n < 40 ? n + 1 : n + n / 7) {
      ASSERT_NO_FATAL_FAILURE(expectSorted(make(shape, n), n % 2 ? 1 : 32));
    }
    const Triplets list = make(shape, 1000000), shorter = make(shape, 5000);
    for (int threads : {1, 32}) {
      Triplets sorted = list;
      korin::mtSort(sorted.data(), 1000000, threads);
      EXPECT_TRUE(isSorted(sorted)) << threads;
    }
    for (int failures = 0; failures < 4; ++failures) {
      Triplets sorted = shorter;
      if (failures < 3) korin::mtsort::sortAlone(sorted.data(), 5000, failures);
      if (failures == 3) korin::mtsort::heapSort(sorted.data(), 5000);
      EXPECT_TRUE(isSorted(sorted)) << failures << " failures";
    }
  }
}

TEST(MtSort, SortsEveryArrangementOfASmallRun) {
  for (u32 n = 2; n <= 8; ++n) {
    Triplets list;
    for (u32 i = 0; i < n; ++i) list.push_back({1 + i / 3, 0, 3.0 - i % 3});
    do ASSERT_NO_FATAL_FAILURE(expectSorted(list, 1));
    while (std::next_permutation(list.begin(), list.end(), before));
  }
}

TEST(MtSort, KeepsKeysInOrderAndLosesNothingAmongNaNs) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double values[] = {nan, -nan, HUGE_VAL, -HUGE_VAL, 0.0, -0.0, 1.0, -1.0, 5e-324};
  for (u32 keys : {1u, 2u, 50u, 100000u}) {
    std::mt19937 random(keys);
    Triplets list(20000);
    int nans = 0;
    for (Triplet& e : list) {
      e = {static_cast<u32>(random() % keys), random() % 2 ? 1u : 0u, values[random() % 9]};
      nans += std::isnan(e.value);
    }
    korin::mtSort(list.data(), 20000, 32);
    for (std::size_t i = 0; i < list.size(); ++i) {
      ASSERT_FALSE(i > 0 && before(list[i], list[i - 1]));
      nans -= std::isnan(list[i].value);
    }
    EXPECT_EQ(nans, 0);
  }
}

TEST(MtSort, StaysFastWhereEveryPivotIsTheLeastOfTheRangeAndOccursTwice) {
  constexpr u32 kCount = 8000;
  std::vector<Event> list, moving;
  for (u32 i = 0; i < kCount; ++i) moving.push_back({double(i), kCount});
  list = moving;
  for (u32 at = 0; at + 8 < kCount; at += 2) {  // the next pair goes where it will be looked for
    Event* const range = moving.data() + at;
    const u32 size = kCount - at;
    for (u32 spot : {0u, size / 2}) list[u32(range[spot].payload)].time = range[spot].time = at;
    korin::mtsort::splitAtMedianOfThree(range, size);
    korin::mtsort::gatherEqualToFirst(range, size);
  }
  g_looks = 0;
  korin::mtSort(list.data(), kCount, 1);
  EXPECT_LT(g_looks, 200 * kCount);
  for (u32 i = 1; i < kCount; ++i) ASSERT_LE(list[i - 1].time, list[i].time);
}

TEST(MtSort, UsesNoMoreThreadsThanBudgetAndProcessorsAllowAndLittleStack) {
  const auto threadsFor = [](u32 n, int budget) {
    std::mt19937 random(n);
    std::vector<Witnessed> list(n);
    for (Witnessed& e : list) e.key = static_cast<u32>(random());
    g_threads = 0;
    ++g_round;
    korin::mtSort(list.data(), static_cast<int>(n), budget);
    const auto inOrder = [](const Witnessed& a, const Witnessed& b) { return a.key < b.key; };
    EXPECT_TRUE(std::is_sorted(list.begin(), list.end(), inOrder)) << n << ' ' << budget;
    return g_threads.load();
  };
  cpu_set_t all, one;
  ASSERT_EQ(sched_getaffinity(0, sizeof all, &all), 0);
  for (int budget : {1, 2, 3, 7, 32, 1 << 30}) {
    EXPECT_EQ(threadsFor(511, budget), 1);
    EXPECT_LE(threadsFor(50000, budget), std::min(budget, CPU_COUNT(&all)));
  }
  g_deepest = 0;
  threadsFor(1000000, std::numeric_limits<int>::max());
  EXPECT_LT(g_deepest, 200000) << "bytes of stack";
  // Another thread may come too late, but not time after time.
  bool helped = false;
  for (int i = 0; i < 30 && !helped; ++i) helped = threadsFor(200000, 32) > 1;
  EXPECT_EQ(helped, CPU_COUNT(&all) > 1);
  CPU_ZERO(&one);
  CPU_SET(sched_getcpu(), &one);
  ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
  EXPECT_EQ(threadsFor(50000, 32), 1);
  ASSERT_EQ(sched_setaffinity(0, sizeof all, &all), 0);
}

}  // namespace
