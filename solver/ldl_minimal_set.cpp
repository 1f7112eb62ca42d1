#include "solver/ldl_minimal_set.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "solver/assembly/compressed_columns.h"
#include "solver/assembly/element_count.h"

namespace zeph_solver {
namespace {

using Index = unsigned int;

// Set of indices below n that gives them back in ascending order: a tree of bit words in which a
// bit says that the word below it is not empty.
class AscendingSet {
 public:
  explicit AscendingSet(std::size_t n) {
    do {
      n = (n + kBits - 1) / kBits;
      levels_.emplace_back(n, 0);
    } while (n > 1);
  }

  void insert(std::size_t i) {
    for (std::vector<std::uint64_t>& words : levels_) {
      std::uint64_t& word = words[i / kBits];
      const bool wasEmpty = word == 0;
      word |= std::uint64_t{1} << i % kBits;
      if (!wasEmpty) return;
      i /= kBits;
    }
  }

  bool empty() const { return levels_.back()[0] == 0; }

  std::size_t takeFirst() {
    std::size_t first = 0;
    for (std::size_t level = levels_.size(); level-- > 0;) {
      first = first * kBits + static_cast<std::size_t>(std::countr_zero(levels_[level][first]));
    }
    std::size_t i = first;
    for (std::vector<std::uint64_t>& words : levels_) {
      std::uint64_t& word = words[i / kBits];
      word &= ~(std::uint64_t{1} << i % kBits);
      if (word != 0) break;
      i /= kBits;
    }
    return first;
  }

 private:
  static constexpr std::size_t kBits = 64;
  std::vector<std::vector<std::uint64_t>> levels_;
};

// Rows below the diagonal of each column of A, ascending.
struct LowerPattern {
  explicit LowerPattern(const ProtoSparse& A) : n(A.rowCount) {
    requireWorkspace(std::max<std::size_t>(n, A.colCount));
    A.sortElements();
    const std::size_t capacity = std::max<std::size_t>(requireCountable(A.nz()), 1);
    std::vector<Index> colStarts(std::max<std::size_t>(n, A.colCount) + 1, 0);
    std::vector<double> values(capacity);
    rows.resize(capacity);
    fillCompressedColumns(A, colStarts.data(), rows.data(), values.data());
    start.assign(n + 1, 0);
    Index kept = 0;
    for (std::size_t k = 0; k < std::min<std::size_t>(n, A.colCount); ++k) {
      for (Index p = colStarts[k]; p < colStarts[k + 1]; ++p) {
        if (rows[p] > k) rows[kept++] = rows[p];
      }
      start[k + 1] = kept;
    }
    std::fill(start.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(n, A.colCount)) + 1,
              start.end(), kept);
  }

  std::size_t n;
  std::vector<Index> start;
  std::vector<Index> rows;
};

// The finished columns, rows ascending.
struct Columns {
  std::vector<std::size_t> start{0};
  std::vector<Index> rows;
  std::vector<std::uint8_t> markers;
};

constexpr std::uint8_t kReached = 1;     // found in the column's own turn
constexpr std::uint8_t kGiven = 2;       // given by an earlier turn; the diagonal counts as given
constexpr std::uint8_t kGivenTwice = 3;  // diagonal that the column's own turn found as well

Columns minimalSet(const LowerPattern& G) {
  Columns result;
  std::vector<std::vector<Index>> given(G.n);  // rows given to each column so far, ascending
  std::vector<std::size_t> givenIn(G.n, G.n);  // turn in which a column was last given its row
  AscendingSet open(G.n);
  for (std::size_t j = 0; j < G.n; ++j) {
    std::vector<Index> early;
    early.swap(given[j]);
    for (Index r : early) open.insert(r);
    open.insert(j);
    auto nextEarly = early.begin();
    bool diagonalReached = false;
    while (!open.empty()) {
      const std::size_t k = open.takeFirst();
      for (Index p = G.start[k]; p < G.start[k + 1]; ++p) {
        const Index r = G.rows[p];
        if (r < j) {
          open.insert(r);
        } else if (r == j) {
          diagonalReached = true;
        } else if (givenIn[r] != j) {
          givenIn[r] = j;
          given[r].push_back(static_cast<Index>(j));
        }
      }
      std::uint8_t marker = kReached;
      if (k == j) {
        marker = diagonalReached ? kGivenTwice : kGiven;
      } else if (nextEarly != early.end() && *nextEarly == k) {
        marker = kGiven;
        ++nextEarly;
      }
      result.rows.push_back(static_cast<Index>(k));
      result.markers.push_back(marker);
    }
    result.start.push_back(result.rows.size());
  }
  return result;
}

}  // namespace

void partialInverseLDLMinimalSet(const ProtoSparse& A, ProtoSparse& set) {
  const std::size_t n = A.rowCount;
  const Columns columns = minimalSet(LowerPattern(A));
  set.setSize(n, n);
  set.elements.reserve(std::max<std::size_t>(columns.rows.size(), 1));
  for (std::size_t c = 0; c < n; ++c) {
    for (std::size_t p = columns.start[c]; p < columns.start[c + 1]; ++p) {
      set.addElement(columns.rows[p], c, columns.markers[p]);
    }
  }
  set.sortElements();
}

}  // namespace zeph_solver
