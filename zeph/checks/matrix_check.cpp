#include "zeph/checks/matrix_check.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>

#include "zeph/checks/datum.h"
#include "zeph/checks/guarded.h"
#include "zeph/checks/one_triangle.h"
#include "zeph/factor.h"
#include "zeph/files/number_text.h"
#include "zeph/matrix/merge.h"
#include "zeph/matrix/requirements.h"

namespace zeph {
namespace {

constexpr std::size_t kBytesPerLine = 24;   // counters, diagonal, cursors of a row or column
constexpr std::size_t kListedIndices = 10;  // indices that a text shows of a long list

// Difference of a pair of mirrored entries, relative to the larger of them and their diagonal.
double relativeDifference(double a, double b, double diagonal1, double diagonal2) {
  if (a == b) return 0.0;
  const double scale = std::max(
      {std::abs(a), std::abs(b), std::sqrt(std::abs(diagonal1)) * std::sqrt(std::abs(diagonal2))});
  const double difference = std::abs(a - b) / scale;
  return std::isnan(difference) ? std::numeric_limits<double>::infinity() : difference;
}

// Index of the first entry of each column in a column-major list.
std::vector<std::uint32_t> columnStarts(const std::vector<Entry>& elements, std::size_t cols) {
  std::vector<std::uint32_t> starts(cols, static_cast<std::uint32_t>(elements.size()));
  for (std::size_t k = elements.size(); k-- > 0;) {
    starts[elements[k].col] = static_cast<std::uint32_t>(k);
  }
  return starts;
}

std::vector<double> diagonalOf(const SparseMatrix& m) {
  std::vector<double> diagonal(std::min(m.rows, m.cols), 0.0);
  for (const Entry& e : m.entries) {
    if (e.row == e.col) diagonal[e.row] = e.value;
  }
  return diagonal;
}

void inspectDiagonal(const SparseMatrix& m, MatrixReport& report) {
  report.unusableDiagonal = unusableDiagonal(m);
  const std::vector<double> diagonal = diagonalOf(m);
  report.negativeDiagonal = static_cast<std::size_t>(
      std::count_if(diagonal.begin(), diagonal.end(), [](double d) { return d < 0.0; }));
}

// Rows and columns without an entry other than zero.
void findEmpty(const SparseMatrix& m, MatrixReport& report) {
  std::vector<char> rowUsed(m.rows), colUsed(m.cols);
  for (const Entry& e : m.entries) {
    if (e.value != 0.0 && std::isfinite(e.value)) rowUsed[e.row] = colUsed[e.col] = 1;
  }
  const auto unused = [](const std::vector<char>& used, std::vector<int>& empty) {
    for (std::size_t i = 0; i < used.size(); ++i) {
      if (!used[i]) empty.push_back(static_cast<int>(i));
    }
  };
  unused(rowUsed, report.emptyRows);
  unused(colUsed, report.emptyCols);
}

void inspectValues(const SparseMatrix& m, MatrixReport& report) {
  for (const Entry& e : m.entries) {
    if (std::isfinite(e.value)) continue;
    if (report.nonFinite++ == 0) report.firstNonFinite = e;
  }
}

std::string listed(const std::vector<int>& indices, std::size_t base) {
  std::string text;
  for (std::size_t k = 0; k < std::min(indices.size(), kListedIndices); ++k) {
    text += (k == 0 ? "" : ", ") + std::to_string(static_cast<std::size_t>(indices[k]) + base);
  }
  return indices.size() > kListedIndices ? text + ", ..." : text;
}

std::string counted(std::size_t n, const char* one, const char* many) {
  return std::to_string(n) + " " + (n == 1 ? one : many);
}

// What can be told without a factorisation.
void judgeForm(MatrixReport& r) {
  std::vector<std::string>& lu = r.againstLu;
  if (r.rows == 0 || r.cols == 0) lu.push_back("it is empty");
  if (r.rows != r.cols) lu.push_back("it is not square");
  if (r.nonFinite != 0) lu.push_back("it holds values that are not finite");
  if (!r.emptyRows.empty()) {
    lu.push_back("it has " + counted(r.emptyRows.size(), "empty row", "empty rows"));
  }
  if (!r.emptyCols.empty()) {
    lu.push_back("it has " + counted(r.emptyCols.size(), "empty column", "empty columns"));
  }
  if (!r.oneTriangle.empty()) lu.push_back(r.oneTriangle);
  r.againstCholesky = lu;
  if (r.rows != r.cols || r.rows == 0) return;
  if (!r.symmetry.numerical) r.againstCholesky.push_back("it is not symmetric");
  if (!r.unusableDiagonal.empty()) {
    r.againstCholesky.push_back("it has " + counted(r.unusableDiagonal.size(),
                                                    "unusable diagonal entry",
                                                    "unusable diagonal entries"));
  }
  if (r.negativeDiagonal != 0) {
    r.againstCholesky.push_back("it has " + counted(r.negativeDiagonal, "negative diagonal entry",
                                                    "negative diagonal entries"));
  }
}

struct Verdict {
  std::string against;  // empty where a solve succeeds
  std::size_t nullSpace = 0;
};

// What a solve with m by that route comes to.
Verdict attempt(const SparseMatrix& m, Route route, double memoryLimit) {
  Options options;
  options.route = route;
  options.memoryLimit = memoryLimit;
  try {
    const Factor f(m, options);
    f.estimateCondition();
    f.solve(std::vector<double>(m.rows, 1.0));
  } catch (const DatumError& e) {
    return {explanation(e.defect, m.indexBase), e.defect.dimension};
  } catch (const Error& e) {
    switch (e.kind()) {
      case ErrorKind::NotPositiveDefinite:
        return {"it is not positive definite"};
      case ErrorKind::Singular:
        return {"it is singular to working precision"};
      case ErrorKind::Unfit:
        return {e.what()};
      default:
        throw;
    }
  }
  return {};
}

// Definiteness and rank show only in a factorisation. A definite matrix has both kinds.
void judgeByFactorising(const SparseMatrix& m, MatrixReport& r, const Progress& progress,
                        double memoryLimit) {
  if (!r.fitForLu()) return;
  progress.begin("trying to factorise");
  if (r.fitForCholesky()) {
    const Verdict cholesky = attempt(m, Route::Cholesky, memoryLimit);
    if (cholesky.against.empty()) return;
    r.againstCholesky.push_back(cholesky.against);
    r.nullSpace = cholesky.nullSpace;
    if (r.nullSpace > 0) {
      r.againstLu.push_back("it is singular for the same reason");
      return;
    }
  }
  const Verdict lu = attempt(m, Route::Lu, memoryLimit);
  if (!lu.against.empty()) r.againstLu.push_back(lu.against);
}

std::string symmetryText(const MatrixReport& r) {
  if (r.rows != r.cols) return "not square";
  if (r.symmetry.numerical && r.symmetry.largestDifference == 0.0) return "symmetric";
  const std::string worst = " (largest relative difference " +
                            toText(r.symmetry.largestDifference) + " at " +
                            position(r.indexBase, r.symmetry.row, r.symmetry.col) + ")";
  if (r.symmetry.numerical) return "symmetric to rounding" + worst;
  if (r.declared == Symmetry::SkewSymmetric) return "skew-symmetric";
  if (r.symmetry.structural) return "symmetric in structure, not in values" + worst;
  return "unsymmetric" + worst;
}

std::string verdict(const char* what, const std::vector<std::string>& against) {
  std::string text = what;
  if (against.empty()) return text + "yes\n";
  text += "no";
  for (std::size_t k = 0; k < against.size(); ++k) text += (k == 0 ? ": " : ", ") + against[k];
  return text + "\n";
}

void inspectForm(SparseMatrix m, MatrixReport& report, const Progress& progress) {
  report.duplicates = mergeDuplicates(m);
  const bool square = m.rows == m.cols;
  makeGeneral(m);
  progress.begin("looking for symmetry and empty rows");
  findEmpty(m, report);
  report.entries = m.entries.size();
  report.symmetry = findSymmetry(m);
  if (square) inspectDiagonal(m, report);
}

}  // namespace

std::vector<std::size_t> unusableDiagonal(const SparseMatrix& m) {
  std::vector<double> root(std::min(m.rows, m.cols), 0.0);
  for (const auto& [row, col, value] : m.entries) {
    if (row == col) root[row] = std::sqrt(std::abs(value));
  }
  std::vector<char> unusable(root.size());
  std::transform(root.begin(), root.end(), unusable.begin(),
                 [](double d) { return !(d > 0.0 && std::isfinite(d)); });
  for (const auto& [row, col, value] : m.entries) {
    if (row == col || row >= root.size() || col >= root.size()) continue;
    // Divided twice: the product of the roots may underflow.
    const double larger = std::max(root[row], root[col]);
    const double smaller = std::min(root[row], root[col]);
    if (!(std::abs(value) / larger * 0x1p-26 > smaller)) continue;
    unusable[root[row] < root[col] ? row : col] = 1;
  }
  std::vector<std::size_t> indices;
  for (std::size_t i = 0; i < unusable.size(); ++i) {
    if (unusable[i]) indices.push_back(i);
  }
  return indices;
}

SymmetryReport findSymmetry(const SparseMatrix& m) {
  SymmetryReport report;
  report.square = m.rows == m.cols;
  if (!report.square) return report;
  report.structural = report.numerical = true;
  const std::vector<Entry>& elements = m.entries;
  const std::vector<double> diagonal = diagonalOf(m);
  // Columns are visited in ascending order, so the entries of a row are met by ascending column and
  // a column's cursor only moves down its rows.
  std::vector<std::uint32_t> cursor = columnStarts(elements, m.cols);
  for (const Entry& e : elements) {
    if (e.row == e.col) continue;
    std::uint32_t& k = cursor[e.row];
    while (k < elements.size() && elements[k].col == e.row && elements[k].row < e.col) ++k;
    const bool stored = k < elements.size() && elements[k].col == e.row && elements[k].row == e.col;
    report.structural = report.structural && stored;
    const double difference = relativeDifference(e.value, stored ? elements[k].value : 0.0,
                                                 diagonal[e.row], diagonal[e.col]);
    if (difference <= report.largestDifference) continue;
    report.largestDifference = difference;
    report.row = std::max(e.row, e.col);
    report.col = std::min(e.row, e.col);
  }
  report.numerical = report.largestDifference <= kSymmetryTolerance;
  return report;
}

MatrixReport checkMatrix(const SparseMatrix& m, const Progress& progress, double memoryLimit) {
  return guarded(m.source, [&] {
    MatrixReport report;
    report.source = m.source;
    report.indexBase = m.indexBase;
    report.rows = m.rows;
    report.cols = m.cols;
    report.declared = m.symmetry;
    report.storedEntries = m.entries.size();
    requireMemory(m.source, m.rows + m.cols, kBytesPerLine);
    progress.begin("inspecting values");
    inspectValues(m, report);
    report.oneTriangle = oneTriangleOnly(m);
    progress.begin("sorting");
    inspectForm(m, report, progress);
    judgeForm(report);
    judgeByFactorising(m, report, progress, memoryLimit);
    return report;
  });
}

std::string toText(const MatrixReport& r) {
  std::string text = r.source + "\n";
  text += "size:                " + std::to_string(r.rows) + " x " + std::to_string(r.cols) + "\n";
  text += "entries:             " + std::to_string(r.entries);
  if (r.storedEntries != r.entries) text += " (" + std::to_string(r.storedEntries) + " stored)";
  text += "\nduplicates:          " + std::to_string(r.duplicates) + "\n";
  text += "symmetry:            " + symmetryText(r) + "\n";
  text += "unusable diagonal:   " + std::to_string(r.unusableDiagonal.size());
  if (!r.unusableDiagonal.empty()) {
    const std::size_t first = r.unusableDiagonal.front();
    text += ", first at " + position(r.indexBase, first, first);
  }
  text += "\nnot finite:          " + std::to_string(r.nonFinite);
  if (r.firstNonFinite) {
    text += ", first " + toText(r.firstNonFinite->value) + " at " +
            position(r.indexBase, r.firstNonFinite->row, r.firstNonFinite->col);
  }
  text += "\nempty rows:          " + std::to_string(r.emptyRows.size());
  if (!r.emptyRows.empty()) text.append(": ").append(listed(r.emptyRows, r.indexBase));
  text += "\nempty columns:       " + std::to_string(r.emptyCols.size());
  if (!r.emptyCols.empty()) text.append(": ").append(listed(r.emptyCols, r.indexBase));
  text += "\n" + verdict("fit for Cholesky:    ", r.againstCholesky);
  text += verdict("fit for LU:          ", r.againstLu);
  return text;
}

void addFigures(const MatrixReport& r, JsonObject& figures) {
  figures.add("source", r.source).add("rows", r.rows).add("columns", r.cols);
  figures.add("entries", r.entries).add("stored_entries", r.storedEntries);
  figures.add("duplicates", r.duplicates).add("symmetric", r.symmetry.numerical);
  figures.add("largest_asymmetry", r.symmetry.largestDifference);
  figures.add("unusable_diagonal", r.unusableDiagonal).add("not_finite", r.nonFinite);
  figures.add("empty_rows", r.emptyRows).add("empty_columns", r.emptyCols);
  figures.add("null_space", r.nullSpace);
  figures.add("fit_for_cholesky", r.fitForCholesky()).add("fit_for_lu", r.fitForLu());
  figures.add("against_cholesky", r.againstCholesky).add("against_lu", r.againstLu);
}

}  // namespace zeph
