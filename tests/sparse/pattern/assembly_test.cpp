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

/// Random input with and without duplicates, in random order or sorted, as triplets and as columns,
/// against the map; new values through the slots reach the same sums bit for bit.
TYPED_TEST(Assembly, IsTheMapOfItsEntries) {
  std::mt19937 random(3);
  for (int trial = 0; trial < 400; ++trial) {
    const Part part = std::array{Part::Whole, Part::OneTriangle, Part::LowerOfBoth}[trial % 3];
    const Index rows = static_cast<Index>(random() % 12);
    const Index cols = part == Part::Whole ? static_cast<Index>(random() % 12) : rows;
    const std::size_t count = rows == 0 || cols == 0 ? 0 : random() % (trial % 5 == 0 ? 200 : 20);
    std::vector<std::pair<TypeParam, TypeParam>> place(count);  // column, row
    for (auto& [c, r] : place) {
      r = static_cast<TypeParam>(random() % unsigned(rows));
      c = static_cast<TypeParam>(random() % unsigned(cols));
      if (trial % 4 == 1 && part != Part::Whole && r < c) std::swap(r, c);
    }
    const bool byColumns = trial % 2 == 0;
    if (byColumns) {
      std::stable_sort(place.begin(), place.end(), [&](const auto& a, const auto& b) {
        return trial % 4 == 0 ? a.first < b.first : a < b;
      });
      if (trial % 8 == 2) place.erase(std::unique(place.begin(), place.end()), place.end());
    }
    std::vector<TypeParam> row, col, start(static_cast<std::size_t>(cols) + 1, 0);
    std::vector<double> value;
    Model model;
    for (const auto& [c, r] : place) {
      row.push_back(r);
      col.push_back(c);
      ++start[static_cast<std::size_t>(c) + 1];
      value.push_back(static_cast<double>(random()) / 3);
      std::pair<Index, Index> at(static_cast<Index>(c), static_cast<Index>(r));
      if (part == Part::LowerOfBoth && r < c) continue;
      if (part == Part::OneTriangle && r < c) std::swap(at.first, at.second);
      model[at] += value.back();
    }
    for (std::size_t c = 0; c + 1 < start.size(); ++c) start[c + 1] += start[c];
    std::vector<Offset> slot;
    const auto make = [&](std::vector<Offset>* slots) {
      return byColumns
                 ? assembleColumns(rows, cols, start.data(), row.data(), value.data(), part, slots)
                 : assembleTriplets(rows, cols, row.data(), col.data(), value.data(), row.size(),
                                    part, slots);
    };
    ASSERT_NO_FATAL_FAILURE(expectEqual(make(nullptr), model));
    Columns a = make(&slot);
    ASSERT_NO_FATAL_FAILURE(expectEqual(a, model));
    std::fill(a.value.begin(), a.value.end(), 0.0);
    ASSERT_EQ(slot.size(), value.size());
    for (std::size_t k = 0; k < slot.size(); ++k) {
      ASSERT_EQ(slot[k] == kSkipped, part == Part::LowerOfBoth && row[k] < col[k]);
      if (slot[k] != kSkipped) a.value[slot[k]] += value[k];
    }
    ASSERT_NO_FATAL_FAILURE(expectEqual(a, model));
  }
}

}  // namespace
}  // namespace korin::sparse
