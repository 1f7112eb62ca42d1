#include "sparse/inverse/simplicial_inverse.h"

#include <vector>

namespace korin::sparse {

namespace {

/// The columns of each row's entries below the diagonal, ascending.
struct RowLists {
  std::vector<Offset> start;
  std::vector<Index> columns;
};

RowLists listRows(const ColumnsView& f) {
  RowLists lists{std::vector<Offset>(static_cast<std::size_t>(f.cols) + 1, 0),
                 std::vector<Index>(static_cast<std::size_t>(f.entries()))};
  // Counts are kept one place further on, so that filling turns ends into starts.
  for (Offset p = 0; p < f.entries(); ++p) ++lists.start[f.row[p]];
  Offset total = 0;
  for (Offset& s : lists.start) s = total += s;
  for (Index c = f.cols; c-- > 0;) {
    for (Offset p = f.start[c]; p < f.start[c + 1]; ++p) {
      lists.columns[--lists.start[f.row[p]]] = c;
    }
  }
  return lists;
}

/// Sum of l(i, k) z(i) over the entries first .. end-1 of a column.
double columnDot(const ColumnsView& f, Offset first, Offset end, const double* z) {
  double even = 0.0;
  double odd = 0.0;
  Offset p = first;
  for (; p + 1 < end; p += 2) {
    even += f.value[p] * z[f.row[p]];
    odd += f.value[p + 1] * z[f.row[p + 1]];
  }
  if (p < end) even += f.value[p] * z[f.row[p]];
  return even + odd;
}

}  // namespace

void simplicialInverse(const ColumnsView& f, double* inverse) {
  const RowLists rows = listRows(f);
  // Row j of Z is wanted for every column of L that has row j. Going down from the last row, each
  // column meets its own entries from the last to the first, so one cursor a column replaces the
  // search for (j, k).
  std::vector<Offset> cursor(f.start + 1, f.start + f.cols + 1);
  std::vector<double> z(static_cast<std::size_t>(f.cols), 0.0);
  for (Index j = f.cols; j-- > 0;) {
    const Offset start = f.start[j];
    const Offset end = f.start[j + 1];
    const bool hasDiagonal = start < end && f.row[start] == j;
    for (Offset p = start + (hasDiagonal ? 1 : 0); p < end; ++p) z[f.row[p]] = inverse[p];

    for (Offset t = rows.start[j + 1]; t-- > rows.start[j];) {
      const Index k = rows.columns[t];
      const Offset first = f.start[k];
      const double reciprocal = 1.0 / (f.row[first] == k ? f.value[first] : 0.0);
      const double sum = columnDot(f, first, f.start[k + 1], z.data());
      const double entry = k == j ? (reciprocal - sum) * reciprocal : -sum * reciprocal;
      z[k] = entry;
      inverse[--cursor[k]] = entry;
    }

    for (Offset p = start; p < end; ++p) z[f.row[p]] = 0.0;
    for (Offset t = rows.start[j]; t < rows.start[j + 1]; ++t) z[rows.columns[t]] = 0.0;
  }
}

double estimatedTime(const ColumnsView& f) {
  constexpr double kPerColumn = 30.0;
  constexpr double kPerEntry = 4.0;
  constexpr double kPerTerm = 0.6;
  double terms = 0.0;
  for (Index c = 0; c < f.cols; ++c) {
    const auto length = static_cast<double>(f.start[c + 1] - f.start[c]);
    terms += length * length;
  }
  return kPerColumn * f.cols + kPerEntry * static_cast<double>(f.entries()) + kPerTerm * terms;
}

}  // namespace korin::sparse
