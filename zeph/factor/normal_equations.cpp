#include <cmath>
#include <vector>

#include "sparse/pattern/assembly.h"
#include "zeph/checks/guarded.h"
#include "zeph/checks/memory.h"
#include "zeph/error.h"
#include "zeph/factor.h"
#include "zeph/factor/design.h"
#include "zeph/files/number_text.h"
#include "zeph/matrix/requirements.h"

namespace zeph {
namespace {

using korin::sparse::Columns;
using korin::sparse::Index;
using korin::sparse::Offset;

void requireWeights(const SparseMatrix& J, const std::vector<double>& weights) {
  if (weights.size() != J.rows) {
    throw Error(ErrorKind::Unfit, "there are " + std::to_string(weights.size()) +
                                      " weights for the " + std::to_string(J.rows) + " rows of " +
                                      J.source);
  }
  for (std::size_t i = 0; i < weights.size(); ++i) {
    if (weights[i] >= 0.0 && std::isfinite(weights[i])) continue;
    throw Error(ErrorKind::Unfit,
                "the weight of row " + std::to_string(i + J.indexBase) + " of " + J.source +
                    " is " + toText(weights[i]) + "; weights are finite and not negative",
                static_cast<std::int64_t>(i));
  }
}

}  // namespace

void requireDesign(const SparseMatrix& J) {
  requireForm(J);
  requireFinite(J);
  if (J.symmetry == Symmetry::General) return;
  throw Error(ErrorKind::Unfit, "a design matrix is general; " + J.source +
                                    " is declared symmetric or skew-symmetric");
}

Columns compressed(const SparseMatrix& J, bool transposed) {
  const std::size_t count = J.entries.size();
  std::vector<Index> row, col;
  std::vector<double> value;
  for (std::size_t k = 0; k < count; ++k) {
    const Entry& e = J.entries[k];
    row.push_back(static_cast<Index>(transposed ? e.col : e.row));
    col.push_back(static_cast<Index>(transposed ? e.row : e.col));
    value.push_back(e.value);
  }
  const auto rows = static_cast<Index>(transposed ? J.cols : J.rows);
  const auto cols = static_cast<Index>(transposed ? J.rows : J.cols);
  return korin::sparse::assembleTriplets(rows, cols, row.data(), col.data(), value.data(), count,
                                         korin::sparse::Part::Whole);
}

SparseMatrix normalEquations(const SparseMatrix& J, const std::vector<double>& weights) {
  return guarded(J.source, [&] {
    requireDesign(J);
    requireWeights(J, weights);
    // A size costs its author nothing: columns without entries are held as well.
    requireBytes("the normal matrix of " + J.source,
                 static_cast<double>(J.cols) * (sizeof(Offset) + sizeof(double) + sizeof(Index)) +
                     static_cast<double>(J.entries.size()) * 2 * (sizeof(double) + sizeof(Index)),
                 0.0);
    const Columns byCol = compressed(J, false), byRow = compressed(J, true);
    SparseMatrix N;
    N.source = "the normal matrix of " + J.source;
    N.indexBase = J.indexBase;
    N.rows = N.cols = J.cols;
    N.symmetry = Symmetry::Symmetric;
    // Column j of the lower triangle gathers the rows of J that have an entry in column j.
    std::vector<double> sum(J.cols, 0.0);
    std::vector<Index> seen(J.cols, Index{-1}), found;
    for (Index j = 0; j < byCol.cols; ++j) {
      found.clear();
      for (Offset p = byCol.start[j]; p < byCol.start[j + 1]; ++p) {
        const Index r = byCol.row[p];
        const double factor = weights[static_cast<std::size_t>(r)] * byCol.value[p];
        for (Offset q = byRow.start[r]; q < byRow.start[r + 1]; ++q) {
          const Index i = byRow.row[q];
          if (i < j) continue;
          if (seen[i] != j) {
            seen[i] = j;
            sum[i] = 0.0;
            found.push_back(i);
          }
          sum[i] += factor * byRow.value[q];
        }
      }
      for (const Index i : found) {
        N.entries.push_back({static_cast<std::uint32_t>(i), static_cast<std::uint32_t>(j), sum[i]});
      }
    }
    requireFinite(N);
    return N;
  });
}

}  // namespace zeph
