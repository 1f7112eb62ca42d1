// The diagonal of the inverse of a sparse definite matrix in long double, to compare with.
#ifndef ZEPH_TESTS_ZEPH_FACTOR_SPARSE_TRUTH_H
#define ZEPH_TESTS_ZEPH_FACTOR_SPARSE_TRUTH_H

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include "sparse/pattern/assembly.h"
#include "sparse/symbolic/analyse.h"
#include "zeph/sparse_matrix.h"

/// Column by column on the pattern that the engine predicts: Cholesky looking left, then the
/// recurrence of Takahashi, Fagan and Chin (1973).
inline std::vector<long double> truthOfVariances(const zeph::SparseMatrix& A) {
  using namespace korin::sparse;
  std::vector<Index> row, col;
  std::vector<double> value;
  for (const zeph::Entry& e : A.entries) {
    if (A.symmetry == zeph::Symmetry::General && e.row < e.col) continue;
    row.push_back(static_cast<Index>(e.row));
    col.push_back(static_cast<Index>(e.col));
    value.push_back(e.value);
  }
  const auto n = static_cast<Index>(A.rows);
  const Columns lower =
      assembleTriplets(n, n, row.data(), col.data(), value.data(), row.size(), Part::OneTriangle);
  const Symbolic s = analyse(lower.view());
  std::vector<Index> place(A.rows);
  for (Index k = 0; k < n; ++k) place[s.permutation[k]] = k;
  std::vector<std::vector<Index>> pattern(A.rows), before(A.rows);
  std::vector<std::vector<long double>> l(A.rows), z(A.rows);
  for (Index j = 0; j < n; ++j) {
    const Index g = s.groupOf[j];
    pattern[j].assign(s.rowsOf(g) + (j - s.firstColumn[g]), s.rowsOf(g) + s.height(g));
    l[j].assign(pattern[j].size(), 0.0L);
    for (const Index i : pattern[j]) {
      if (i != j) before[i].push_back(j);
    }
  }
  const auto at = [&](Index i, Index j) {
    return static_cast<std::size_t>(std::lower_bound(pattern[j].begin(), pattern[j].end(), i) -
                                    pattern[j].begin());
  };
  for (Index c = 0; c < n; ++c) {
    for (Offset p = lower.start[c]; p < lower.start[c + 1]; ++p) {
      const auto [j, i] = std::minmax(place[c], place[lower.row[p]]);
      l[j][at(i, j)] = lower.value[p];
    }
  }
  std::vector<long double> x(A.rows, 0.0L);
  for (Index j = 0; j < n; ++j) {
    for (std::size_t k = 0; k < pattern[j].size(); ++k) x[pattern[j][k]] = l[j][k];
    for (const Index k : before[j]) {
      const std::size_t first = at(j, k);
      for (std::size_t p = first; p < pattern[k].size(); ++p) {
        x[pattern[k][p]] -= l[k][first] * l[k][p];
      }
    }
    const long double pivot = std::sqrt(x[j]);
    for (std::size_t k = 0; k < pattern[j].size(); ++k) l[j][k] = x[pattern[j][k]] / pivot;
    l[j][0] = pivot;
  }
  for (Index j = n; j-- > 0;) {
    const std::vector<Index>& p = pattern[j];
    z[j].assign(p.size(), 0.0L);
    for (std::size_t a = p.size(); a-- > 0;) {
      long double sum = a == 0 ? 1.0L / l[j][0] : 0.0L;
      for (std::size_t b = 1; b < p.size(); ++b) {
        const long double zab =
            a == 0 ? z[j][b]
                   : z[std::min(p[a], p[b])][at(std::max(p[a], p[b]), std::min(p[a], p[b]))];
        sum -= l[j][b] * zab;
      }
      z[j][a] = sum / l[j][0];
    }
  }
  std::vector<long double> diagonal(A.rows);
  for (Index k = 0; k < n; ++k) diagonal[s.permutation[k]] = z[k][0];
  return diagonal;
}

#endif
