#include "distributed/assembly.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <optional>
#include <utility>

#include "sparse/pattern/assembly.h"
#include "zeph/checks/one_triangle.h"
#include "zeph/error.h"
#include "zeph/files/number_text.h"
#include "zeph/matrix/requirements.h"

namespace zeph::distributed {
namespace {

using korin::sparse::Index;
using std::size_t;

// Of the values of entries.
constexpr size_t kStep = sizeof(Entry) / sizeof(double);

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

struct Place {
  Index row, col;
};

// Tells every process which places of its columns it gets values for, and makes A's entries there,
// without values: the lower one of each pair.
void findDestinations(const Communicator& comm, const SparseMatrix& share, Assembled& A) {
  Destinations& d = A.destinations;
  d.symmetry = share.symmetry;
  std::vector<std::vector<Place>> to = comm.together([&] {
    std::vector<std::vector<Place>> parts(static_cast<size_t>(comm.size()));
    d.owner = korin::sparse::Slots(share.entries.size());
    for (const Entry& e : share.entries) {
      const auto next = std::upper_bound(A.firstColumn.begin() + 1, A.firstColumn.end() - 1,
                                         static_cast<std::int64_t>(smaller(e)));
      const auto p = next - A.firstColumn.begin() - 1;
      d.owner.append(p, false);
      parts[static_cast<size_t>(p)].push_back(
          {static_cast<Index>(e.row), static_cast<Index>(e.col)});
    }
    return parts;
  });
  std::vector<std::vector<std::uint64_t>> counts;
  counts.reserve(to.size());
  for (const auto& part : to) counts.push_back({part.size()});
  const std::vector<std::uint64_t> coming = comm.exchange(counts);
  d.coming.assign(coming.begin(), coming.end());
  const std::vector<Place> came = comm.exchange(to);
  to.clear();
  comm.together([&] {
    korin::sparse::Places<Index> places;
    if (!came.empty()) places = {&came.front().row, &came.front().col, came.size(), 2};
    const auto n = static_cast<Index>(A.n);
    const korin::sparse::Columns lower =
        assemblePattern(n, n, places, korin::sparse::Part::OneTriangle);
    findSlots(lower, places, korin::sparse::Part::OneTriangle, d.pair);
    d.pairs = lower.row.size();
    A.entries.reserve(d.pairs);
    for (Index col = 0; col < n; ++col) {
      for (const Index row : lower.rowsOf(col)) {
        A.entries.push_back({static_cast<std::uint32_t>(row), static_cast<std::uint32_t>(col), 0});
      }
    }
  });
}

// The places that were given of a matrix that is not symmetric, where `entries` has pairs.
void splitPairs(Assembled& A) {
  const Destinations& d = A.destinations;
  std::vector<bool> given[] = {std::vector<bool>(d.pairs), std::vector<bool>(d.pairs)};
  d.pair.forEach([&](korin::sparse::Offset pair, bool mirrored) {
    const auto k = static_cast<size_t>(pair);
    given[mirrored ? 1 : 0][k] = true;
    if (d.symmetry == Symmetry::SkewSymmetric && A.entries[k].row != A.entries[k].col) {
      given[mirrored ? 0 : 1][k] = true;
    }
  });
  std::vector<Entry> both;
  for (size_t k = 0; k < d.pairs; ++k) {
    Entry e = A.entries[k];
    if (given[0][k]) both.push_back(e);
    std::swap(e.row, e.col);
    if (given[1][k]) both.push_back(e);
  }
  A.entries = std::move(both);
}

// Calls use(pair, entry) for the entries, of which those of a pair follow one another.
template <class Entries, class Use>
void forEachInPairs(Entries& entries, const Use& use) {
  size_t pair = 0;
  for (size_t k = 0; k < entries.size(); ++k) {
    if (k > 0 && (smaller(entries[k]) != smaller(entries[k - 1]) ||
                  larger(entries[k]) != larger(entries[k - 1]))) {
      ++pair;
    }
    use(pair, entries[k]);
  }
}

// A place of a pair, for messages.
Entry placeOf(const Assembled& A, size_t wanted, bool upper) {
  Entry place{};
  forEachInPairs(A.entries, [&](size_t pair, const Entry& e) {
    if (pair == wanted) place = e;
  });
  if ((place.row < place.col) != upper) std::swap(place.row, place.col);
  return place;
}

Error notFinite(const Assembled& A, const std::string& what, const Entry& place, double value) {
  return Error(ErrorKind::Unfit,
               what + " " + position(A.indexBase, place.row, place.col) + " of " + A.source +
                   " is " + toText(value) + "; scale or replace it",
               place.row);
}

// The sums of what was given for each pair: below the diagonal and on it; above it, for a general
// matrix.
struct Sums {
  std::vector<double> lower, upper;
};

// A value that is not finite is told with the rank from which it came.
Sums sumsOf(const Communicator& comm, const Assembled& A, const std::vector<double>& came) {
  const Destinations& d = A.destinations;
  Sums sums;
  sums.lower.assign(d.pairs, 0.0);
  if (d.symmetry == Symmetry::General) sums.upper.assign(d.pairs, 0.0);
  size_t next = 0;
  d.pair.forEach([&](korin::sparse::Offset at, bool mirrored) {
    const auto pair = static_cast<size_t>(at);
    const double value = came[next++];
    if (!std::isfinite(value)) {
      size_t from = 0;
      for (size_t last = d.coming[0]; last < next; last += d.coming[++from]) {
      }
      const std::string who = comm.size() > 1 ? "rank " + std::to_string(from) + ": " : "";
      throw notFinite(A, who + "the value of entry", placeOf(A, pair, mirrored), value);
    }
    if (mirrored && d.symmetry == Symmetry::General) {
      sums.upper[pair] += value;
    } else {
      sums.lower[pair] += mirrored && d.symmetry == Symmetry::SkewSymmetric ? -value : value;
    }
  });
  for (const std::vector<double>* part : {&sums.lower, &sums.upper}) {
    const auto bad =
        std::find_if_not(part->begin(), part->end(), [](double v) { return std::isfinite(v); });
    if (bad == part->end()) continue;
    const Entry place = placeOf(A, static_cast<size_t>(bad - part->begin()), part == &sums.upper);
    throw notFinite(A, "the sum of the entries at", place, *bad);
  }
  return sums;
}

// Adds up the values of all shares, this one's `step` apart.
Sums addUp(const Communicator& comm, const Assembled& A, const double* values, size_t step) {
  std::vector<std::vector<double>> to = comm.together([&] {
    std::vector<std::vector<double>> parts(static_cast<size_t>(comm.size()));
    const double* next = values;
    A.destinations.owner.forEach([&](korin::sparse::Offset p, bool) {
      parts[static_cast<size_t>(p)].push_back(*next);
      next += step;
    });
    return parts;
  });
  const std::vector<double> came = comm.exchange(to);
  to.clear();
  return comm.together([&] { return sumsOf(comm, A, came); }, Communicator::Naming::None);
}

void setValues(const Sums& sums, Assembled& A) {
  forEachInPairs(A.entries, [&](size_t pair, Entry& e) {
    if (e.row >= e.col) {
      e.value = sums.lower[pair];
    } else {
      e.value = sums.upper.empty() ? -sums.lower[pair] : sums.upper[pair];
    }
  });
}

// What the first process has to say of those that found something; the same on all.
std::string firstOf(const Communicator& comm, std::string mine) {
  const auto from = static_cast<int>(comm.least(mine.empty() ? comm.size() : comm.rank()));
  if (from == comm.size()) return {};
  comm.broadcast(from, mine);
  return mine;
}

void requireBothTriangles(const Communicator& comm, const Assembled& A, const Sums& sums,
                          const SparseMatrix& share) {
  if (share.symmetry != Symmetry::General || share.triangular) return;
  std::int64_t count[] = {0, 0};
  std::optional<Entry> first;
  for (size_t k = 0; k < A.entries.size(); ++k) {
    Entry place = A.entries[k];
    if (place.row == place.col) continue;
    for (const auto* part : {&sums.lower, &sums.upper}) {
      if ((*part)[k] != 0.0) {
        ++count[part == &sums.lower ? 0 : 1];
        if (!first) first = place;
      }
      std::swap(place.row, place.col);
    }
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

// Where the two triangles of a general matrix, whose entries are pairs, disagree by more than
// rounding, or nothing. A place that was not given is a zero.
std::string asymmetry(const Communicator& comm, const Assembled& A, const Sums& sums,
                      const std::vector<double>& diagonal) {
  std::string found;
  for (size_t k = 0; k < sums.upper.size() && found.empty(); ++k) {
    const double lower = sums.lower[k], upper = sums.upper[k];
    const Entry& e = A.entries[k];
    if (e.row == e.col || lower == upper) continue;
    const double scale =
        std::max({std::abs(lower), std::abs(upper),
                  std::sqrt(std::abs(diagonal[e.row])) * std::sqrt(std::abs(diagonal[e.col]))});
    // Halved, lest the difference overflows.
    if (std::abs(0.5 * lower - 0.5 * upper) <= 0.5 * kSymmetryTolerance * scale) continue;
    found = A.source + " is not symmetric: entry " + position(A.indexBase, e.row, e.col) + " is " +
            toText(lower) + " but entry " + position(A.indexBase, e.col, e.row) + " is " +
            toText(upper);
  }
  return firstOf(comm, std::move(found));
}

std::int64_t firstNotPositive(const std::vector<double>& diagonal) {
  const auto bad =
      std::find_if_not(diagonal.begin(), diagonal.end(), [](double d) { return d > 0.0; });
  return bad == diagonal.end() ? -1 : bad - diagonal.begin();
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
  findDestinations(comm, share, A);
  const Sums sums =
      addUp(comm, A, share.entries.empty() ? nullptr : &share.entries.front().value, kStep);
  requireBothTriangles(comm, A, sums, share);
  setValues(sums, A);
  const std::vector<double> diagonal = diagonalOf(comm, A);
  A.against = share.symmetry == Symmetry::SkewSymmetric ? A.source + " is skew-symmetric"
                                                        : asymmetry(comm, A, sums, diagonal);
  if (!A.symmetric()) {
    comm.together([&] { splitPairs(A); });
    setValues(sums, A);
  }
  std::int64_t positions = 0;
  for (const Entry& e : A.entries) positions += A.symmetric() && e.row != e.col ? 2 : 1;
  A.positions = comm.sum(positions);
  A.unusableDiagonal = firstNotPositive(diagonal);
  return A;
}

void requireValues(const Communicator& comm, const double* values, size_t count,
                   const Assembled& A) {
  comm.together([&] {
    const size_t entries = A.destinations.owner.count();
    if (count != entries) {
      throw Error(ErrorKind::Unfit, "there are " + std::to_string(count) + " values for the " +
                                        std::to_string(entries) + " entries of " + A.source);
    }
    if (values == nullptr && count > 0) {
      throw Error(ErrorKind::Usage, "the array of values is a null pointer");
    }
  });
}

std::string assembleAgain(const Communicator& comm, const double* values, Assembled& A) {
  const Sums sums = addUp(comm, A, values, 1);
  setValues(sums, A);
  const std::vector<double> diagonal = diagonalOf(comm, A);
  A.unusableDiagonal = firstNotPositive(diagonal);
  return A.symmetric() ? asymmetry(comm, A, sums, diagonal) : std::string();
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
