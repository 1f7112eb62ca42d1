// A sparse matrix as a map from positions to values, and small random ones, for the tests.
#ifndef ZEPH_TESTS_SOLVER_ASSEMBLY_ENTRY_MODEL_H
#define ZEPH_TESTS_SOLVER_ASSEMBLY_ENTRY_MODEL_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <random>
#include <tuple>
#include <utility>
#include <vector>

#include "solver/assembly/protosparse.h"

namespace zeph_solver {

using Entries = std::map<std::pair<std::uint64_t, std::uint64_t>, double>;

inline Entries withoutZeros(Entries entries) {
  std::erase_if(entries, [](const auto& entry) { return entry.second == 0.0; });
  return entries;
}

inline Entries entriesOf(const std::vector<MatrixElement>& list) {
  Entries sums;
  for (const MatrixElement& e : list) sums[{e.row, e.col}] += e.value;
  return withoutZeros(sums);
}

inline Entries entriesOf(const ZtMatrix& m) {
  Entries entries;
  for (ZtSize k = 0; k < m.rows * m.cols; ++k) {
    entries[{k / m.cols, k % m.cols}] = m.data[k / m.cols * m.stride + k % m.cols];
  }
  return withoutZeros(entries);
}

inline Entries entriesOf(const ProtoSparse& p) {
  return p.isDense() ? entriesOf(*p.denseBlock) : entriesOf(p.elements);
}

// Small sizes and small integer values: sums are exact, zeros and duplicates common.
struct Dice {
  std::mt19937 engine{20240607};
  std::size_t upTo(std::size_t n) { return engine() % (n + 1); }
  double value() { return static_cast<double>(upTo(8)) - 4.0; }
  korin::Matrix matrix(std::size_t rows, std::size_t cols) {
    korin::Matrix m(rows, cols);
    for (ZtSize i = 0; i < m.rows * m.cols; ++i) m.data[i] = value();
    return m;
  }
  ProtoSparse sparse(std::size_t rows, std::size_t cols) {
    ProtoSparse p(rows, cols);
    for (std::size_t n = rows * cols; n-- > 0;)
      p.addElement(upTo(rows - 1), upTo(cols - 1), value());
    return p;
  }
};

}  // namespace zeph_solver

#endif  // ZEPH_TESTS_SOLVER_ASSEMBLY_ENTRY_MODEL_H
