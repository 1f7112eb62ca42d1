#include "tests/solver/assembly/entry_model.h"

namespace zeph_solver {
namespace {

bool inOrder(const MatrixElement& a, const MatrixElement& b) {
  return std::tuple(a.col, a.row, -std::fabs(a.value)) <
         std::tuple(b.col, b.row, -std::fabs(b.value));
}

// (column, row, value) of a sorted list, with duplicates summed; sums restart whenever they cancel.
using Positions = std::vector<std::tuple<std::uint32_t, std::uint32_t, double>>;
Positions merged(const std::vector<MatrixElement>& sorted, bool sum) {
  Positions out;
  for (const auto& [row, col, value] : sorted) {
    if (!sum || out.empty() || std::tuple(col, row, std::get<2>(out.back())) != out.back()) {
      out.emplace_back(col, row, value);
    } else if (std::fabs(std::get<2>(out.back()) += value) < 3.1622776601683795e-154) {
      out.pop_back();
    }
  }
  return out;
}

TEST(ProtoSparseCompress, MatchesALiteralMergeOfTheSortedList) {
  const double pool[] = {1.0, -1.0, 5.0, -5.0, 0.1, 0.3, 1e-160, 0.0, 3e-154, 2e-154, 1e300};
  Dice dice;
  for (int round = 0; round < 5000; ++round) {
    ProtoSparse p(3, 3);
    for (std::size_t n = dice.upTo(round % 2 == 0 ? 3 : 30); n > 0; --n) {
      p.elements.push_back({static_cast<std::uint32_t>(dice.upTo(2)),
                            static_cast<std::uint32_t>(dice.upTo(1)), pool[dice.upTo(10)]});
    }
    const Positions asGiven = merged(p.elements, false);
    const bool wasCompressed = p.isCompressed();
    p.sortElements();
    ASSERT_TRUE(std::is_sorted(p.elements.begin(), p.elements.end(), inOrder));
    ASSERT_EQ(p.nz(), asGiven.size());
    const Positions expected = merged(p.elements, true);
    p.compress();
    ASSERT_EQ(merged(p.elements, false), expected) << round;
    ASSERT_EQ(wasCompressed, expected == asGiven);
  }
}

TEST(ProtoSparseCompress, KeepsNanSumsAndADenseObjectsStaleList) {
  ProtoSparse p(4, 4);
  for (const double value : {HUGE_VAL, -HUGE_VAL, 1.0}) p.addElement(3, 0, value);
  p.compress();
  ASSERT_EQ(p.nz(), 1u);
  EXPECT_TRUE(std::isnan(p.elements[0].value));
  p.setSize(1, 4);
  p.elements = {{1, 1, 0.0}, {0, 0, 0.0}};
  p.compress();
  p.sortElements();
  EXPECT_TRUE(p.isCompressed() && p.nz() == 0 && p.elements[0].row == 1);
}

}  // namespace
}  // namespace zeph_solver
