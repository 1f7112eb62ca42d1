#include "solver/lu_groups.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace zeph_solver {
namespace {

using Lines = std::vector<std::vector<int>>;

// Widest group: keeps the triangular work inside a group small beside its products.
constexpr int kWidestGroup = 96;
// Groups are merged while the zeros stored stay below this share of the merged group's entries ...
constexpr double kZeroShare = 0.15;
// ... or below the higher share while the merged group is no wider than this.
constexpr int kNarrowGroup = 8;
constexpr double kNarrowZeroShare = 0.4;

// Waiting lists of pivots, one a line: pivot j stands in the list of the next line that it reaches.
class Waiting {
 public:
  explicit Waiting(int n) : head_(n, -1), next_(n, -1), cursor_(n, 0) {}

  int firstFor(int line) const { return head_[line]; }
  int nextAfter(int pivot) const { return next_[pivot]; }

  // Moves `pivot` to its next entry of `reached`, unless that lies beyond `last`.
  void advance(int pivot, const std::vector<int>& reached, int last) {
    const int p = cursor_[pivot]++;
    if (p >= static_cast<int>(reached.size()) || reached[p] > last) return;
    next_[pivot] = head_[reached[p]];
    head_[reached[p]] = pivot;
  }

 private:
  std::vector<int> head_;
  std::vector<int> next_;
  std::vector<int> cursor_;
};

// Sorted union of line k's own pattern and of what the waiting pivots carry beyond k.
class LineUnion {
 public:
  explicit LineUnion(int n) : seenBy_(n, -1) {}

  void collect(int k, const CompressedLines& own, const Waiting& waiting, const Lines& carried,
               std::vector<int>& result) {
    ++stamp_;
    result.clear();
    for (int p = own.start[k]; p < own.start[k + 1]; ++p) add(own.index[p], result);
    for (int j = waiting.firstFor(k); j >= 0; j = waiting.nextAfter(j)) {
      const std::vector<int>& line = carried[j];
      for (std::size_t p = line.size(); p > 0 && line[p - 1] > k; --p) add(line[p - 1], result);
    }
    std::sort(result.begin(), result.end());
  }

 private:
  void add(int index, std::vector<int>& result) {
    if (seenBy_[index] == stamp_) return;
    seenBy_[index] = stamp_;
    result.push_back(index);
  }

  std::vector<int> seenBy_;
  int stamp_ = -1;
};

int firstCommon(const std::vector<int>& a, const std::vector<int>& b, int none) {
  auto p = a.begin();
  auto q = b.begin();
  while (p != a.end() && q != b.end()) {
    if (*p == *q) return *p;
    if (*p < *q) {
      ++p;
    } else {
      ++q;
    }
  }
  return none;
}

void advanceAll(int k, Waiting& waiting, const Lines& reached, const std::vector<int>& last) {
  for (int j = waiting.firstFor(k); j >= 0;) {
    const int following = waiting.nextAfter(j);
    waiting.advance(j, reached[j], last[j]);
    j = following;
  }
}

// Closes the patterns under elimination: column k of L takes column j of L (below k) for every
// u[j][k] != 0, row k of U takes row j of U for every l[k][j] != 0. Pivot j need not go beyond the
// first s with both l[s][j] and u[j][s] in the pattern: s then carries all that j has.
void closePattern(const LuFactors& factors, Lines& below, Lines& right) {
  const int n = factors.n;
  below.assign(n, {});
  right.assign(n, {});
  std::vector<int> last(n);
  Waiting byRight(n);
  Waiting byBelow(n);
  LineUnion lines(n);
  for (int k = 0; k < n; ++k) {
    lines.collect(k, factors.lower, byRight, below, below[k]);
    lines.collect(k, factors.upper, byBelow, right, right[k]);
    last[k] = firstCommon(below[k], right[k], n);
    advanceAll(k, byRight, right, last);
    advanceAll(k, byBelow, below, last);
    byRight.advance(k, right[k], last[k]);
    byBelow.advance(k, below[k], last[k]);
  }
}

// Entries of a group of `width` pivots with b rows below and r columns to its right.
double entries(double width, std::size_t b, std::size_t r) {
  return width * (width + static_cast<double>(b) + static_cast<double>(r));
}

bool leadsInto(const std::vector<int>& line, int pivot) {
  return !line.empty() && line.front() == pivot;
}

}  // namespace

LuGroups luGroups(const LuFactors& factors) {
  Lines below;
  Lines right;
  closePattern(factors, below, right);

  // From the last pivot to the first: pivot j joins the group after it when that group's pattern
  // covers its own, which closedness grants as soon as its nearest row and column are in the
  // group's first pivot.
  LuGroups groups;
  groups.groupOf.resize(factors.n);
  std::vector<int> first;
  double filled = 0.0;  // entries of the open group that the closed pattern asks for
  for (int j = factors.n - 1; j >= 0; --j) {
    const double own = 1.0 + static_cast<double>(below[j].size() + right[j].size());
    bool joins = false;
    if (!first.empty() && leadsInto(below[j], j + 1) && leadsInto(right[j], j + 1)) {
      const int end = first.size() > 1 ? first[first.size() - 2] : factors.n;
      const int width = end - j;
      const double all = entries(width, groups.below.back().size(), groups.right.back().size());
      const double share = width <= kNarrowGroup ? kNarrowZeroShare : kZeroShare;
      joins = width <= kWidestGroup && all - filled - own <= share * all;
    }
    if (joins) {
      first.back() = j;
      filled += own;
      std::vector<int>().swap(below[j]);
      std::vector<int>().swap(right[j]);
    } else {
      first.push_back(j);
      filled = own;
      groups.below.push_back(std::move(below[j]));
      groups.right.push_back(std::move(right[j]));
    }
  }
  std::reverse(first.begin(), first.end());
  std::reverse(groups.below.begin(), groups.below.end());
  std::reverse(groups.right.begin(), groups.right.end());
  first.push_back(factors.n);
  groups.first = std::move(first);
  for (int g = 0; g < groups.count(); ++g) {
    std::fill(groups.groupOf.begin() + groups.first[g],
              groups.groupOf.begin() + groups.first[g + 1], g);
  }
  return groups;
}

}  // namespace zeph_solver
