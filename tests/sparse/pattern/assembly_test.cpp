#include "sparse/pattern/assembly.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

namespace korin::sparse {
namespace {

/// Columns as a map from (column, row) to the sum in the order of the input.
using Model = std::map<std::pair<Index, Index>, double>;

void expectEqual(const Columns& a, const Model& model) {
  ASSERT_EQ(a.start.size(), static_cast<std::size_t>(a.cols) + 1);
  ASSERT_EQ(a.row.size(), model.size());
  ASSERT_EQ(a.value.size(), model.size());
  auto expected = model.begin();
  for (Index c = 0; c < a.cols; ++c) {
    for (Offset p = a.start[c]; p < a.start[c + 1]; ++p, ++expected) {
      ASSERT_EQ(std::make_pair(c, a.row[p]), expected->first);
      ASSERT_EQ(a.value[p], expected->second);
    }
  }
}

template <class I>
class Assembly : public ::testing::Test {};
using IndexTypes = ::testing::Types<std::int32_t, std::int64_t>;
TYPED_TEST_SUITE(Assembly, IndexTypes);

/// Random input with and without duplicates, in random order or sorted, against the map; values
/// through the slots reach the same sums bit for bit.
TYPED_TEST(Assembly, IsTheMapOfItsEntries) {
  std::mt19937 random(3);
  for (int trial = 0; trial < 400; ++trial) {
    const Part part = std::array{Part::Whole, Part::OneTriangle, Part::LowerOfBoth}[trial % 3];
    const Index rows = static_cast<Index>(random() % 12);
    const Index cols = part == Part::Whole ? static_cast<Index>(random() % 12) : rows;
    std::size_t count = rows == 0 || cols == 0 ? 0 : random() % (trial % 5 == 0 ? 200 : 20);
    std::vector<std::pair<TypeParam, TypeParam>> place(count);  // column, row
    for (auto& [c, r] : place) {
      r = static_cast<TypeParam>(random() % unsigned(rows));
      c = static_cast<TypeParam>(random() % unsigned(cols));
      if (trial % 4 == 1 && part != Part::Whole && r < c) std::swap(r, c);
    }
    if (trial % 2 == 0) {
      std::stable_sort(place.begin(), place.end(), [&](const auto& a, const auto& b) {
        return trial % 4 == 0 ? a.first < b.first : a < b;
      });
      if (trial % 8 == 2) place.erase(std::unique(place.begin(), place.end()), place.end());
    }
    count = place.size();
    std::vector<TypeParam> row, col;
    std::vector<double> value;
    Model model;
    for (const auto& [c, r] : place) {
      row.push_back(r);
      col.push_back(c);
      value.push_back(static_cast<double>(random()) / 3);
      std::pair<Index, Index> at(static_cast<Index>(c), static_cast<Index>(r));
      if (part == Part::LowerOfBoth && r < c) continue;
      if (part == Part::OneTriangle && r < c) std::swap(at.first, at.second);
      model[at] += value.back();
    }
    ASSERT_NO_FATAL_FAILURE(expectEqual(
        assembleTriplets(rows, cols, row.data(), col.data(), value.data(), count, part), model));
    // The same from entries that lie apart, by their slots, and by those of their mirror images.
    std::vector<TypeParam> apart;
    for (std::size_t k = 0; k < count; ++k) apart.insert(apart.end(), {row[k], 0, col[k]});
    apart.resize(apart.size() + 3);
    const Places<TypeParam> places{apart.data(), apart.data() + 2, count, 3};
    Columns a = assemblePattern(rows, cols, places, part);
    Slots slots, all;
    ASSERT_TRUE(findSlots(a, places, part, slots));
    ASSERT_EQ(slots.count(), count);
    a.value.assign(a.row.size(), 0.0);
    std::size_t k = 0;
    slots.forEach([&](Offset at, bool mirrored) {
      ASSERT_EQ(mirrored, row[k] < col[k]);
      if (!mirrored || part != Part::LowerOfBoth) a.value[at] += value[k];
      ++k;
    });
    ASSERT_NO_FATAL_FAILURE(expectEqual(a, model));
    if (part != Part::LowerOfBoth) continue;
    bool symmetric = true;
    for (std::size_t i = 0; i < count; ++i) {
      const std::pair<Index, Index> image(static_cast<Index>(row[i]), static_cast<Index>(col[i]));
      symmetric &= row[i] >= col[i] || model.count(image) == 1;
    }
    ASSERT_EQ(findSlots(a, places, Part::OneTriangle, all), symmetric);
    k = 0;
    all.forEach([&](Offset at, bool mirrored) {
      const auto [low, high] = std::minmax(row[k], col[k]);
      ASSERT_EQ(mirrored, row[k++] < high);
      ASSERT_EQ(a.row[at], static_cast<Index>(high));
      ASSERT_TRUE(a.start[low] <= at && at < a.start[low + 1]);
    });
  }
}

/// Steps of every size, more of them than a block holds.
TEST(SlotsTest, ReadsWhatWasAppendedToALongList) {
  std::mt19937_64 random(4);
  std::vector<std::pair<Offset, bool>> model;
  Slots slots(std::size_t{1} << 21);
  for (int k = 0; k < 60000; ++k) {
    model.emplace_back(static_cast<Offset>(random() >> (8 + random() % 56)), random() % 3 == 0);
    slots.append(model.back().first, model.back().second);
  }
  auto next = model.begin();
  slots.forEach([&](Offset at, bool mirrored) {
    ASSERT_EQ(std::make_pair(at, mirrored), *next);
    ++next;
  });
  EXPECT_TRUE(next == model.end() && slots.count() == model.size());
}

}  // namespace
}  // namespace korin::sparse
