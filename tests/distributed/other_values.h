#ifndef ZEPH_TESTS_DISTRIBUTED_OTHER_VALUES_H
#define ZEPH_TESTS_DISTRIBUTED_OTHER_VALUES_H

#include <cmath>
#include <vector>

#include "zeph/sparse_matrix.h"

namespace zeph {

/// D A D for a D of powers of two up to 2^±size: another matrix on the same pattern.
inline SparseMatrix scaled(SparseMatrix A, int size) {
  const auto exponent = [&](std::uint32_t i) { return int(i % 5) * size / 2 - size; };
  for (Entry& e : A.entries) e.value = std::ldexp(e.value, exponent(e.row) + exponent(e.col));
  return A;
}

inline std::vector<double> valuesOf(const SparseMatrix& A) {
  std::vector<double> values;
  for (const Entry& e : A.entries) values.push_back(e.value);
  return values;
}

}  // namespace zeph

#endif
