// korin::mtSort beside std::sort with the same order, on ten million triplets of several shapes.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "math/sorting/mtsort.h"

namespace {

struct Triplet {
  std::uint32_t row;
  std::uint32_t col;
  double value;
};

bool before(const Triplet& a, const Triplet& b) {
  const std::uint64_t keyA = (std::uint64_t{a.col} << 32) | a.row;
  const std::uint64_t keyB = (std::uint64_t{b.col} << 32) | b.row;
  return keyA < keyB || (keyA == keyB && std::fabs(a.value) > std::fabs(b.value));
}

constexpr int kCount = 10000000;
enum Shape { Random, EightAPosition, Sorted, Reversed, FewPositions };

std::vector<Triplet> make(int shape) {
  std::mt19937_64 random(1);
  std::vector<Triplet> list(kCount);
  const std::uint32_t order = shape == FewPositions ? 4 : kCount / 8;
  for (Triplet& e : list) {
    e.row = static_cast<std::uint32_t>(random() % order);
    e.col = static_cast<std::uint32_t>(random() % order);
    e.value = static_cast<double>(random() >> 11) * 0x1p-52 - 1.0;
  }
  if (shape == EightAPosition) {
    for (int i = 0; i < kCount; ++i) {
      list[i].row = list[i & ~7].row;
      list[i].col = list[i & ~7].col;
    }
  }
  if (shape == Sorted || shape == Reversed) std::sort(list.begin(), list.end(), before);
  if (shape == Reversed) std::reverse(list.begin(), list.end());
  return list;
}

template <typename Sort>
void sortCopies(benchmark::State& state, Sort sort) {
  const std::vector<Triplet> list = make(static_cast<int>(state.range(0)));
  std::vector<Triplet> copy;
  for (auto _ : state) {
    state.PauseTiming();
    copy = list;
    state.ResumeTiming();
    sort(copy);
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}

void stdSort(benchmark::State& state) {
  sortCopies(state, [](std::vector<Triplet>& a) { std::sort(a.begin(), a.end(), before); });
}

void mtSortOneThread(benchmark::State& state) {
  sortCopies(state, [](std::vector<Triplet>& a) { korin::mtSort(a.data(), kCount, 1); });
}

void mtSortThreads(benchmark::State& state) {
  sortCopies(state, [](std::vector<Triplet>& a) { korin::mtSort(a.data(), kCount, 32); });
}

void allShapes(benchmark::internal::Benchmark* bench) {
  bench->ArgName("shape")->DenseRange(Random, FewPositions)->UseRealTime();
  bench->Unit(benchmark::kMillisecond);
}

BENCHMARK(stdSort)->Apply(allShapes);
BENCHMARK(mtSortOneThread)->Apply(allShapes);
BENCHMARK(mtSortThreads)->Apply(allShapes);

}  // namespace
