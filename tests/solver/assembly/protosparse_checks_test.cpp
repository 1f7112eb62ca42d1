#include <cfloat>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "tests/solver/assembly/entry_model.h"

namespace zeph_solver {
namespace {

const double kPool[] = {1.0,      -0.1,      1e-17,        kDoubleEpsilon, 2.3e-16, 5e-324,
                        DBL_MAX,  1e22,      1.0 / 3.0,    -12345678.5,    0.0,     -0.0,
                        HUGE_VAL, -HUGE_VAL, std::nan(""), -std::nan("")};

// Every position once, the diagonal in two halves; neither row nor column order.
ProtoSparse randomPool(Dice& dice, std::size_t kinds, bool dense) {
  ProtoSparse p(dice.upTo(4), dice.upTo(4));
  for (std::size_t r = p.rowCount; r-- > 0;) {
    for (std::size_t c = 0; c < p.colCount; ++c) {
      const double value = r == c && dice.upTo(3) > 0 ? 1.0 : kPool[dice.upTo(kinds)];
      if (r == c) p.addElement(r, c, value / 2);
      p.addElement(r, c, r == c ? value / 2 : value);
    }
  }
  if (dense) p.makeDense();
  return p;
}

TEST(ProtoSparseChecks, FindWhatABruteForceScanFinds) {
  Dice dice;
  for (int round = 0; round < 3000; ++round) {
    const ProtoSparse p = randomPool(dice, 11 + dice.upTo(4), round % 2 == 0);
    const std::size_t rows = p.rowCount, cols = p.colCount;
    korin::Matrix m;
    p.toDenseMatrix(m, false);
    const auto significant = [&](std::size_t r, std::size_t c) {
      return r < rows && c < cols && std::isfinite(m(r, c)) && std::fabs(m(r, c)) > kDoubleEpsilon;
    };
    unsigned int diagonal = 0;
    while (diagonal < cols && significant(diagonal, diagonal)) ++diagonal;
    ASSERT_EQ(p.isValid(), diagonal == cols);
    ASSERT_EQ(p.invalidDiagIndex(), diagonal == cols ? kNoIndex : diagonal);
    ZtVector d;
    p.getDiagonal(d);
    ASSERT_EQ(d.size, std::min(rows, cols));

    std::vector<MatrixElement> stored = p.elements;  // or the block, row by row
    for (std::uint32_t k = 0; p.isDense() && k < rows * cols; ++k) {
      const auto c = static_cast<std::uint32_t>(cols);
      stored.push_back({k / c, k % c, m(k / c, k % c)});
    }
    const auto bad =
        std::find_if(stored.begin(), stored.end(), [](auto& e) { return !std::isfinite(e.value); });
    ASSERT_EQ(p.getInvalidIndex(), bad == stored.end() ? kNoIndex : bad - stored.begin());
    std::pair<std::size_t, std::size_t> place(77, 77), expected = place;
    if (bad != stored.end()) expected = {bad->row, bad->col};
    if (diagonal < cols) expected = {diagonal, diagonal};
    ASSERT_EQ(p.isCompletelyValid(place.first, place.second), expected.first == 77);
    ASSERT_EQ(place, expected);

    std::vector<int> emptyRows(2, 5), emptyCols(2, 5), expectedRows, expectedCols;
    for (std::size_t i = 0; i < 4; ++i) {
      std::size_t inRow = 0, inCol = 0;
      for (std::size_t j = 0; j < 4; ++j) inRow += significant(i, j), inCol += significant(j, i);
      if (i < rows && inRow == 0) expectedRows.push_back(static_cast<int>(i));
      if (i < cols && inCol == 0) expectedCols.push_back(static_cast<int>(i));
    }
    p.getEmptyRowsAndCols(emptyRows, emptyCols);
    ASSERT_TRUE(emptyRows == expectedRows && emptyCols == expectedCols) << round;
    p.getEmptyRowsAndCols(emptyRows, emptyRows);  // one list for both
    expectedRows.insert(expectedRows.end(), expectedCols.begin(), expectedCols.end());
    ASSERT_EQ(emptyRows, expectedRows);
  }
}

TEST(ProtoSparseChecks, CsvHasTheCharactersOfPrintf) {
  Dice dice;
  const std::string name = testing::TempDir() + "protosparse_checks_test.csv";
  for (int round = 0; round < 200; ++round) {
    ProtoSparse p = randomPool(dice, 15, round % 2 == 0);
    for (unsigned int k = 0; round == 1 && k < 20000; ++k) {  // more than one buffer
      p.elements.push_back({4294967295u - k, 4294967295u, -5e-324});
    }
    p.writeToCsv(ZtString((name + "/missing/x").c_str()));
    p.writeToCsv(ZtString(name.c_str()));
    EXPECT_TRUE(p.isCompressed());
    std::string expected;
    const auto line = [&](unsigned long r, unsigned long c, double v) {
      char text[80];
      expected.append(text, std::snprintf(text, sizeof text, "%lu,%lu,%.18g\n", r, c, v));
    };
    for (const auto& [row, col, value] : p.elements) line(row, col, value);
    for (ZtSize i = 0; p.isDense() && i < p.rowCount * p.colCount; ++i) {
      line(i / p.colCount, i % p.colCount, *p.denseBlock->flatRow(i));
    }
    std::ostringstream written;
    written << std::ifstream(name).rdbuf();
    ASSERT_EQ(written.str(), expected) << round;
  }
  std::remove(name.c_str());
}

}  // namespace
}  // namespace zeph_solver
