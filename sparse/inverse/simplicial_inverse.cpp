#include "sparse/inverse/simplicial_inverse.h"

#include <vector>

namespace korin::sparse {

namespace {

/// The columns of each row's entries below the diagonal, ascending.
struct RowLists {
  std::vector<unsigned int> start;
  std::vector<unsigned int> columns;
};

RowLists listRows(const SimplicialFactor& f) {
  RowLists lists{std::vector<unsigned int>(static_cast<std::size_t>(f.n) + 1, 0),
                 std::vector<unsigned int>(f.colStarts[f.n])};
  // Counts are kept one place further on, so that filling turns ends into starts.
  for (unsigned int p = 0; p < f.colStarts[f.n]; ++p) ++lists.start[f.rowIndices[p]];
  unsigned int total = 0;
  for (unsigned int& s : lists.start) s = total += s;
  for (unsigned int c = f.n; c-- > 0;) {
    for (unsigned int p = f.colStarts[c]; p < f.colStarts[c + 1]; ++p) {
      lists.columns[--lists.start[f.rowIndices[p]]] = c;
    }
  }
  return lists;
}

/// Sum of l(i, k) z(i) over the entries first .. end-1 of a column.
double columnDot(const SimplicialFactor& f, unsigned int first, unsigned int end, const double* z) {
  double even = 0.0;
  double odd = 0.0;
  unsigned int p = first;
  for (; p + 1 < end; p += 2) {
    even += f.values[p] * z[f.rowIndices[p]];
    odd += f.values[p + 1] * z[f.rowIndices[p + 1]];
  }
  if (p < end) even += f.values[p] * z[f.rowIndices[p]];
  return even + odd;
}

}  // namespace

void simplicialInverse(const SimplicialFactor& f, double* inverse) {
  const RowLists rows = listRows(f);
  // Row j of Z is wanted for every column of L that has row j. Going down from the last row, each
  // column meets its own entries from the last to the first, so one cursor a column replaces the
  // search for (j, k).
  std::vector<unsigned int> cursor(f.colStarts + 1, f.colStarts + f.n + 1);
  std::vector<double> z(f.n, 0.0);
  for (unsigned int j = f.n; j-- > 0;) {
    const unsigned int start = f.colStarts[j];
    const unsigned int end = f.colStarts[j + 1];
    const bool hasDiagonal = start < end && f.rowIndices[start] == j;
    for (unsigned int p = start + hasDiagonal; p < end; ++p) z[f.rowIndices[p]] = inverse[p];

    for (unsigned int t = rows.start[j + 1]; t-- > rows.start[j];) {
      const unsigned int k = rows.columns[t];
      const unsigned int first = f.colStarts[k];
      const double reciprocal = 1.0 / (f.rowIndices[first] == k ? f.values[first] : 0.0);
      const double sum = columnDot(f, first, f.colStarts[k + 1], z.data());
      const double entry = k == j ? (reciprocal - sum) * reciprocal : -sum * reciprocal;
      z[k] = entry;
      inverse[--cursor[k]] = entry;
    }

    for (unsigned int p = start; p < end; ++p) z[f.rowIndices[p]] = 0.0;
    for (unsigned int t = rows.start[j]; t < rows.start[j + 1]; ++t) z[rows.columns[t]] = 0.0;
  }
}

double estimatedTime(const SimplicialFactor& f) {
  constexpr double kPerColumn = 30.0;
  constexpr double kPerEntry = 4.0;
  constexpr double kPerTerm = 0.6;
  double terms = 0.0;
  for (unsigned int c = 0; c < f.n; ++c) {
    const double length = f.colStarts[c + 1] - f.colStarts[c];
    terms += length * length;
  }
  return kPerColumn * f.n + kPerEntry * f.colStarts[f.n] + kPerTerm * terms;
}

}  // namespace korin::sparse
