#include "distributed/assembly.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <optional>
#include <utility>

#include "zeph/checks/one_triangle.h"
#include "zeph/error.h"
#include "zeph/files/number_text.h"
#include "zeph/matrix/requirements.h"

namespace zeph::distributed {
namespace {

using std::size_t;

size_t smaller(const Entry& e) {
  return std::min(e.row, e.col);
}
size_t larger(const Entry& e) {
  return std::max(e.row, e.col);
}

const char* text(Symmetry symmetry) {
  switch (symmetry) {
    case Symmetry::General:
      return "general";
    case Symmetry::Symmetric:
      return "symmetric";
    case Symmetry::SkewSymmetric:
      return "skew-symmetric";
  }
  return "";
}

std::string form(std::int64_t symmetry, std::int64_t triangular) {
  const std::string name = text(static_cast<Symmetry>(symmetry));
  return triangular != 0 ? name + " with one triangle alone" : name;
}

// Every process names the first other one, so that all say the same.
void requireSameShape(const Communicator& comm, const SparseMatrix& share) {
  const std::int64_t mine[] = {static_cast<std::int64_t>(share.rows),
                               static_cast<std::int64_t>(share.cols),
                               static_cast<std::int64_t>(share.symmetry), share.triangular ? 1 : 0};
  std::int64_t firsts[4];
  std::copy_n(mine, 4, firsts);
  comm.broadcast(0, firsts, 4);
  comm.together([&] {
    if (std::equal(mine, mine + 4, firsts)) return;
    throw Error(ErrorKind::Unfit,
                "the share is " + std::to_string(share.rows) + " x " + std::to_string(share.cols) +
                    ", " + form(mine[2], mine[3]) + ", that of rank 0 " +
                    std::to_string(firsts[0]) + " x " + std::to_string(firsts[1]) + ", " +
                    form(firsts[2], firsts[3]) +
                    "; all shares have the size and the form of the whole matrix");
  });
}

// Cuts the columns where the entries of the lower triangle are shared evenly.
std::vector<std::int64_t> cutColumns(const Communicator& comm, const SparseMatrix& share) {
  std::vector<std::int64_t> count =
      comm.together([&] { return std::vector<std::int64_t>(share.rows, 1); });
  for (const Entry& e : share.entries) ++count[smaller(e)];
  comm.sum(count.data(), count.size());
  const std::int64_t all = std::accumulate(count.begin(), count.end(), std::int64_t{0});
  std::vector<std::int64_t> first{0};
  std::int64_t before = 0, column = 0;
  for (int p = 1; p < comm.size(); ++p) {
    const std::int64_t wanted = all / comm.size() * p;
    while (before < wanted) before += count[static_cast<size_t>(column++)];
    first.push_back(column);
  }
  first.push_back(static_cast<std::int64_t>(share.rows));
  return first;
}

// The entries of this process's columns, from all, unsorted; one triangle becomes the lower one.
std::vector<Entry> sendToOwners(const Communicator& comm, const SparseMatrix& share,
                                const std::vector<std::int64_t>& firstColumn) {
  std::vector<std::vector<Entry>> to = comm.together([&] {
    std::vector<std::vector<Entry>> parts(static_cast<size_t>(comm.size()));
    for (Entry e : share.entries) {
      const auto next = std::upper_bound(firstColumn.begin() + 1, firstColumn.end() - 1,
                                         static_cast<std::int64_t>(smaller(e)));
      if (share.symmetry == Symmetry::Symmetric && e.row < e.col) std::swap(e.row, e.col);
      auto& part = parts[static_cast<size_t>(next - firstColumn.begin() - 1)];
      part.push_back(e);
      if (share.symmetry != Symmetry::SkewSymmetric) continue;
      std::swap(e.row, e.col);
      e.value = -e.value;
      part.push_back(e);
    }
    return parts;
  });
  return comm.exchange(to);
}

// Sorted as Assembled has them, those at one place added up in the order in which they came.
void merge(std::vector<Entry>& entries) {
  std::stable_sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) {
    if (smaller(a) != smaller(b)) return smaller(a) < smaller(b);
    if (larger(a) != larger(b)) return larger(a) < larger(b);
    return a.row > b.row;
  });
  size_t kept = 0;
  for (const Entry& e : entries) {
    if (kept > 0 && entries[kept - 1].row == e.row && entries[kept - 1].col == e.col) {
      entries[kept - 1].value += e.value;
    } else {
      entries[kept++] = e;
    }
  }
  entries.resize(kept);
}

// What the first process has to say of those that found something; the same on all.
std::string firstOf(const Communicator& comm, std::string mine) {
  const auto from = static_cast<int>(comm.least(mine.empty() ? comm.size() : comm.rank()));
  if (from == comm.size()) return {};
  comm.broadcast(from, mine);
  return mine;
}

void requireFiniteSums(const Communicator& comm, const Assembled& A) {
  std::string fault;
  for (const Entry& e : A.entries) {
    if (std::isfinite(e.value)) continue;
    fault = "the sum of the entries at " + position(A.indexBase, e.row, e.col) + " of " + A.source +
            " is " + toText(e.value) + "; scale or replace it";
    break;
  }
  fault = firstOf(comm, std::move(fault));
  if (!fault.empty()) comm.fail(Error(ErrorKind::Unfit, fault));
}

void requireBothTriangles(const Communicator& comm, const Assembled& A, const SparseMatrix& share) {
  if (share.symmetry != Symmetry::General || share.triangular) return;
  std::int64_t count[] = {0, 0};
  std::optional<Entry> first;
  for (const Entry& e : A.entries) {
    if (e.row == e.col || e.value == 0.0) continue;
    ++count[e.row > e.col ? 0 : 1];
    if (!first) first = e;
  }
  comm.sum(count, 2);
  if ((count[0] == 0) == (count[1] == 0)) return;
  SparseMatrix named;
  named.source = A.source;
  named.indexBase = A.indexBase;
  comm.fail(Error(ErrorKind::Unfit,
                  firstOf(comm, first ? oneTriangleSentence(
                                            named, *first, static_cast<size_t>(count[0] + count[1]))
                                      : std::string())));
}

std::vector<double> diagonalOf(const Communicator& comm, const Assembled& A) {
  std::vector<double> diagonal = comm.together([&] { return std::vector<double>(A.n, 0.0); });
  for (const Entry& e : A.entries) {
    if (e.row == e.col) diagonal[e.row] = e.value;
  }
  comm.sum(diagonal.data(), diagonal.size());
  return diagonal;
}

// Calls pair(lower, upper) for each pair of mirrored places; one that is not stored is a zero.
template <class Pair>
void forEachPair(const std::vector<Entry>& entries, const Pair& pair) {
  for (size_t k = 0; k < entries.size(); ++k) {
    const Entry& e = entries[k];
    if (e.row == e.col) continue;
    const Entry mirrored{e.col, e.row, 0.0};
    if (e.row < e.col) {
      pair(mirrored, e);
    } else if (k + 1 < entries.size() && entries[k + 1].row == e.col &&
               entries[k + 1].col == e.row) {
      pair(e, entries[++k]);
    } else {
      pair(e, mirrored);
    }
  }
}

// Where the two triangles disagree by more than rounding, or nothing.
std::string asymmetry(const Communicator& comm, const Assembled& A,
                      const std::vector<double>& diagonal) {
  std::string found;
  forEachPair(A.entries, [&](const Entry& lower, const Entry& upper) {
    if (lower.value == upper.value || !found.empty()) return;
    const double scale = std::max(
        {std::abs(lower.value), std::abs(upper.value),
         std::sqrt(std::abs(diagonal[lower.row])) * std::sqrt(std::abs(diagonal[lower.col]))});
    // Halved, lest the difference overflows.
    if (std::abs(0.5 * lower.value - 0.5 * upper.value) <= 0.5 * kSymmetryTolerance * scale) return;
    found = A.source + " is not symmetric: entry " + position(A.indexBase, lower.row, lower.col) +
            " is " + toText(lower.value) + " but entry " +
            position(A.indexBase, upper.row, upper.col) + " is " + toText(upper.value);
  });
  return firstOf(comm, std::move(found));
}

// Both triangles to the lower one. An upper entry that stands alone is zero or of rounding size.
void keepLower(std::vector<Entry>& entries) {
  entries.erase(
      std::remove_if(entries.begin(), entries.end(), [](const Entry& e) { return e.row < e.col; }),
      entries.end());
}

}  // namespace

Assembled assemble(const Communicator& comm, const SparseMatrix& share) {
  comm.together([&] {
    requireSquare(share);
    requireForm(share);
    requireFinite(share);
  });
  requireSameShape(comm, share);
  Assembled A;
  A.source = share.source;
  A.indexBase = share.indexBase;
  comm.broadcast(0, A.source);
  comm.broadcast(0, &A.indexBase, 1);
  A.n = share.rows;

  const std::int64_t stored = comm.sum(static_cast<std::int64_t>(share.entries.size()));
  const std::int64_t most = share.symmetry == Symmetry::General ? stored : 2 * stored;
  if (most < static_cast<std::int64_t>(A.n)) {
    comm.fail(Error(ErrorKind::Singular, A.source + " is singular: it has fewer entries (" +
                                             std::to_string(stored) + ") than its " +
                                             std::to_string(A.n) + " rows need"));
  }

  A.firstColumn = cutColumns(comm, share);
  A.entries = sendToOwners(comm, share, A.firstColumn);
  comm.together([&] { merge(A.entries); });
  requireFiniteSums(comm, A);
  requireBothTriangles(comm, A, share);
  const std::vector<double> diagonal = diagonalOf(comm, A);
  if (share.symmetry == Symmetry::SkewSymmetric) {
    A.against = A.source + " is skew-symmetric";
  } else if (share.symmetry == Symmetry::General) {
    A.against = asymmetry(comm, A, diagonal);
    if (A.symmetric()) keepLower(A.entries);
  }
  std::int64_t positions = 0;
  for (const Entry& e : A.entries) positions += A.symmetric() && e.row != e.col ? 2 : 1;
  A.positions = comm.sum(positions);
  const auto bad =
      std::find_if_not(diagonal.begin(), diagonal.end(), [](double d) { return d > 0.0; });
  if (bad != diagonal.end()) A.unusableDiagonal = bad - diagonal.begin();
  return A;
}

void residual(const Communicator& comm, const Assembled& A, const double* x, const double* b,
              double* out, double* size) {
  std::fill_n(out, A.n, 0.0);
  std::fill_n(size, A.n, 0.0);
  const auto add = [&](size_t row, size_t col, double value) {
    const double product = value * x[col];
    out[row] -= product;
    size[row] += std::abs(product);
  };
  for (const Entry& e : A.entries) {
    add(e.row, e.col, e.value);
    if (A.symmetric() && e.row != e.col) add(e.col, e.row, e.value);
  }
  comm.sum(out, A.n);
  comm.sum(size, A.n);
  for (size_t i = 0; i < A.n; ++i) {
    out[i] += b[i];
    size[i] += std::abs(b[i]);
  }
}

}  // namespace zeph::distributed
