// Small symmetric matrices of many shapes, and the promises of a Symbolic checked against dense
// elimination.
#ifndef ZEPH_TESTS_SPARSE_SYMBOLIC_SYMBOLIC_MODEL_H
#define ZEPH_TESTS_SPARSE_SYMBOLIC_SYMBOLIC_MODEL_H

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <numeric>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "sparse/pattern/assembly.h"
#include "sparse/symbolic/symbolic.h"

namespace korin::sparse::testing {

inline constexpr std::array kShapes{"empty",          "diagonal", "path",   "arrow",
                                    "reversed arrow", "tree",     "grid",   "random",
                                    "parts",          "dense",    "blocks", "missing diagonal"};

/// Lower triangle with unknowns in random order; every diagonal entry exceeds the sum of its row.
/// Each unknown of "blocks" is one of up to four with the same neighbours.
inline Columns makeLower(const std::string& shape, Index n, std::mt19937& random) {
  if (shape == "empty") n = 0;
  std::vector<Index> name(static_cast<std::size_t>(n)), row, col;
  std::iota(name.begin(), name.end(), 0);
  if (shape != "path") std::shuffle(name.begin(), name.end(), random);
  const auto pick = [&](Index below) { return static_cast<Index>(random() % unsigned(below)); };
  const auto link = [&](Index i, Index j) {
    row.push_back(std::max(name[i], name[j]));
    col.push_back(std::min(name[i], name[j]));
  };
  const Index part = shape == "parts" ? n / 3 + 1 : n;
  std::vector<Index> block(name.size());
  for (Index i = 0; i < n; ++i) block[i] = i > 0 && pick(4) > 0 ? block[i - 1] : i;
  std::vector<char> linked(name.size() * name.size());
  for (Index i = 1; i < n; ++i) {
    if (shape == "path" || (shape == "grid" && i % 5 != 0)) link(i, i - 1);
    if (shape == "grid" && i >= 5) link(i, i - 5);
    if (shape == "arrow") link(i, 0);
    if (shape == "reversed arrow" && i < n - 1) link(n - 1, i);
    if (shape == "tree") link(i, pick(i));
    if (shape == "dense" || (shape == "missing diagonal" && pick(3) == 0)) link(i, pick(i));
    for (Index j = 0; j < i; ++j) {
      if (shape == "dense" && i < n / 2 && pick(8) > 0) link(i, j);
      if ((shape == "random" || shape == "parts") && i / part == j / part && pick(n) < 3)
        link(i, j);
      if (shape == "blocks") {
        char& there = linked[static_cast<std::size_t>(block[i]) * name.size() + block[j]];
        if (there == 0) there = block[i] == block[j] || pick(6) == 0 ? 1 : 2;
        if (there == 1) link(i, j);
      }
    }
  }
  std::vector<double> value(row.size());
  for (double& v : value) v = -0.5 - static_cast<double>(random() % 1000) / 1000;
  std::vector<double> diagonal(name.size(), 1.0);
  for (std::size_t k = 0; k < row.size(); ++k) {
    diagonal[row[k]] -= value[k];
    diagonal[col[k]] -= value[k];
  }
  for (Index i = 0; i < n; ++i) {
    if (shape == "missing diagonal" && pick(2) == 0) continue;
    row.push_back(i);
    col.push_back(i);
    value.push_back(diagonal[i]);
  }
  return assembleTriplets(n, n, row.data(), col.data(), value.data(), row.size(),
                          Part::OneTriangle);
}

/// The full matrix, row-major; with 1 for what is there if only the pattern counts.
inline std::vector<double> denseOf(const ColumnsView& lower, bool pattern = false) {
  const auto n = static_cast<std::size_t>(lower.cols);
  std::vector<double> full(n * n, 0.0);
  for (std::size_t j = 0; j < n; ++j) {
    if (pattern) full[j * n + j] = 1.0;
    for (Offset p = lower.start[j]; p < lower.start[j + 1]; ++p) {
      const auto i = static_cast<std::size_t>(lower.row[p]);
      full[i * n + j] = full[j * n + i] = pattern ? 1.0 : lower.value[p];
    }
  }
  return full;
}

/// Checks all that symbolic.h says of the structure of a factor of this matrix. O(n^3).
inline void checkSymbolic(const Symbolic& s, const ColumnsView& lower) {
  const auto n = static_cast<std::size_t>(lower.cols);
  ASSERT_EQ(s.n, lower.cols);
  ASSERT_EQ(std::set<Index>(s.permutation.begin(), s.permutation.end()).size(), n);
  ASSERT_EQ(s.permutation.size(), n);
  ASSERT_EQ(s.groupOf.size(), n);
  const Index groups = s.groups();
  for (const std::size_t size : {s.firstColumn.size(), s.rowStart.size(), s.panelStart.size(),
                                 s.firstDescendant.size() + 1}) {
    ASSERT_EQ(size, static_cast<std::size_t>(groups) + 1);
  }
  ASSERT_EQ(s.firstColumn.back(), s.n);
  ASSERT_EQ(s.rowStart.back(), static_cast<Offset>(s.rows.size()));
  ASSERT_EQ(s.parentPlace.size(), s.rows.size());

  // The pattern of L by dense elimination.
  std::vector<char> filled(n * n, 0);
  const std::vector<double> full = denseOf(lower, true);
  for (std::size_t i = 0; i < n; ++i) {
    for (std::size_t j = 0; j < n; ++j) {
      filled[i * n + j] = full[static_cast<std::size_t>(s.permutation[i]) * n +
                               static_cast<std::size_t>(s.permutation[j])] != 0.0;
    }
  }
  Offset entries = 0;
  double operations = 0.0;
  for (std::size_t k = 0; k < n; ++k) {
    double length = 0.0;
    for (std::size_t i = k; i < n; ++i) {
      if (filled[i * n + k] == 0) continue;
      ++length;
      for (std::size_t j = k + 1; j < n; ++j) filled[i * n + j] |= filled[j * n + k];
    }
    entries += static_cast<Offset>(length);
    operations += length * length;
  }
  EXPECT_EQ(s.entries, entries);
  EXPECT_EQ(s.operations, operations);
  EXPECT_LE(entries, s.storage());

  std::vector<Index> firstDescendant(static_cast<std::size_t>(groups));
  std::iota(firstDescendant.begin(), firstDescendant.end(), 0);
  for (Index g = 0; g < groups; ++g) {
    SCOPED_TRACE("group " + std::to_string(g));
    const Index* rows = s.rowsOf(g);
    ASSERT_GT(s.width(g), 0);
    ASSERT_GE(s.below(g), 0);
    ASSERT_EQ(s.panelStart[g + 1] - s.panelStart[g], s.panelSize(g));
    ASSERT_TRUE(std::is_sorted(rows, rows + s.height(g), std::less_equal<>()));
    ASSERT_EQ(s.below(g) > 0 ? s.groupOf[rows[s.width(g)]] : -1, s.parent[g]);
    for (Index c = s.firstColumn[g]; c < s.firstColumn[g + 1]; ++c) {
      ASSERT_EQ(s.groupOf[c], g);
      ASSERT_EQ(rows[c - s.firstColumn[g]], c);
      for (Index i = c; i < s.n; ++i) {
        const bool there = std::binary_search(rows, rows + s.height(g), i);
        ASSERT_TRUE(there || filled[static_cast<std::size_t>(i) * n + c] == 0) << "row " << i;
      }
    }
    // No row that none of the group's columns has.
    for (Index k = s.width(g); k < s.height(g); ++k) {
      const char* line = filled.data() + static_cast<std::size_t>(rows[k]) * n;
      ASSERT_TRUE(std::any_of(line + s.firstColumn[g], line + s.firstColumn[g + 1],
                              [](char there) { return there != 0; }));
    }
    ASSERT_EQ(s.firstDescendant[g], firstDescendant[g]);
    if (s.parent[g] < 0) continue;
    const Index up = s.parent[g];
    ASSERT_GT(up, g);
    ASSERT_TRUE(std::includes(s.rowsOf(up), s.rowsOf(up) + s.height(up), rows + s.width(g),
                              rows + s.height(g)));
    for (Index k = 0; k < s.height(g); ++k) {
      const Offset at = s.parentPlace[s.rowStart[g] + k];
      ASSERT_EQ(k < s.width(g) ? 0 : rows[k], k < s.width(g) ? at : s.rowsOf(up)[at]);
    }
    // A postorder: between a group and its parent there are only descendants of the parent.
    firstDescendant[up] = std::min(firstDescendant[up], firstDescendant[g]);
    for (Index between = g + 1; between < up; ++between) {
      ASSERT_GT(s.parent[between], between);
      ASSERT_LE(s.parent[between], up);
    }
  }
}

}  // namespace korin::sparse::testing

#endif
