#include "sparse/inverse/lu_groups.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <utility>

namespace korin::sparse {
namespace {

using Indices = std::span<const int>;

// Widest group: keeps the triangular work inside a group small beside its products.
constexpr int kWidestGroup = 96;
// Most groups that one pivot may bring together. Pivots with a long column and a short row, or the
// other way round, often lie between those with both long: cheap on their own, they part the
// others.
constexpr std::size_t kLongestChain = 8;
// A group whose estimated time is more than this many times the pivot's own ends the chain: it has
// been weighed against the next one before, and the pivot makes no difference.
constexpr double kHeaviestLink = 8.0;
// Pairs of a row and a column that no member has on its own spread when the pattern is closed, and
// a few of them in every small group become an avalanche: most of them beside the largest member's.
constexpr double kUncoveredShare = 0.02;

// Estimated time of the recurrence on one group, in nanoseconds: what decides about merging.
// Fitted to an AVX-512 machine; only the relations between the constants matter.
double groupCost(double width, double below, double right) {
  constexpr double kPerGroup = 200.0;      // calls, the ends of dense products
  constexpr double kPerLine = 8.0;         // finding its place in the groups that follow
  constexpr double kPerGathered = 2.0;     // copying an entry of Z22
  constexpr double kPerEntry = 2.5;        // an entry of the group, into which L and U are copied
  constexpr double kPerOperation = 0.025;  // of the products with Z22
  constexpr double kPerSmallOperation = 0.12;  // of solves and products inside the group
  const double lines = below + right;
  return kPerGroup + kPerLine * lines + kPerGathered * below * right +
         kPerEntry * width * (width + lines) + kPerOperation * 4.0 * width * below * right +
         kPerSmallOperation * 2.0 * width * width * (lines + 2.0 * width);
}

// A set of indices that is emptied in no time.
class IndexSet {
 public:
  explicit IndexSet(int n) : stamp_(static_cast<std::size_t>(n), 0) {}

  void clear() { ++current_; }
  bool contains(int i) const { return stamp_[i] == current_; }
  void insert(int i) { stamp_[i] = current_; }
  void erase(int i) { stamp_[i] = 0; }

 private:
  std::vector<int> stamp_;
  int current_ = 1;
};

// The rows of L (or columns of U) that a group has beyond itself: those of its first pivot, in the
// factors, until others come in.
class Pattern {
 public:
  explicit Pattern(Indices ofPivot) : ofPivot_(ofPivot) {}

  Indices indices() const { return own_.empty() ? ofPivot_ : Indices(own_); }
  double size() const { return static_cast<double>(indices().size()); }
  void add(const std::vector<int>& more) {
    if (more.empty()) return;
    if (own_.empty()) own_.assign(ofPivot_.begin(), ofPivot_.end());
    own_.insert(own_.end(), more.begin(), more.end());
  }
  void release() {
    ofPivot_ = {};
    std::vector<int>().swap(own_);
  }

 private:
  Indices ofPivot_;
  std::vector<int> own_;
};

// Forms groups from the last pivot to the first, by the patterns of the factors as they are.
//
// Groups are known by the order in which they are started, which is also the order in which Z is
// computed. A pivot leads to the groups that hold the rows of its column and the columns of its
// row; the youngest of them is its parent, and no order is violated when it joins that group, or
// when its parent, its parent's parent and so on are joined with it into the oldest of them.
class GroupFormer {
 public:
  explicit GroupFormer(const LuFactors& factors)
      : factors_(factors),
        groupOf_(factors.n, kNone),
        wantedBelow_(factors.n, kNone),
        wantedRight_(factors.n, kNone),
        knownBelow_(factors.n),
        knownRight_(factors.n) {
    findWanted();
    for (int j = factors.n - 1; j >= 0; --j) place(j);
  }

  int count() const { return static_cast<int>(groups_.size()); }
  bool isAlive(int group) const { return groups_[group].into == group; }
  int groupOf(int pivot) { return alive(groupOf_[pivot]); }
  Indices below(int group) const { return groups_[group].below.indices(); }
  Indices right(int group) const { return groups_[group].right.indices(); }

 private:
  struct Group {
    int width;
    int parent;
    int into;  // the group that it became part of, or itself
    Pattern below;
    Pattern right;

    double pairs() const { return below.size() * right.size(); }
    double cost() const { return groupCost(width, below.size(), right.size()); }
  };

  void findWanted();
  static Pattern patternOf(Indices ofPivot, int wanted);
  Group groupOfPivot(int pivot);
  void place(int pivot);
  int alive(int group);
  int parentOf(int group);
  int youngest(Indices pattern, int candidate);
  bool mergeChain(const Group& pivot, int width, double costApart);
  double leastCost(const Group& pivot, int width) const;
  void learn(int group);
  double unite(const Group& pivot);
  void absorbChain(int width);
  double addUnknown(Indices pattern, double room, IndexSet& known, std::vector<int>& unknown);

  const LuFactors& factors_;
  std::vector<Group> groups_;
  std::vector<int> groupOf_;
  std::vector<int> wantedBelow_;  // a row of each pivot beside those in L, or none
  std::vector<int> wantedRight_;  // the same for the columns of U
  std::vector<int> chain_;        // parent of the pivot at hand, its parent, ...

  // Pattern of group known_, and what its union with the rest of the chain adds to it.
  int known_ = kNone;
  IndexSet knownBelow_;
  IndexSet knownRight_;
  std::vector<int> moreBelow_;
  std::vector<int> moreRight_;
  int missing_ = kNone;  // must be in the chain first
};

int GroupFormer::alive(int group) {
  while (groups_[group].into != group) {
    group = groups_[group].into = groups_[groups_[group].into].into;
  }
  return group;
}

int GroupFormer::youngest(Indices pattern, int candidate) {
  for (int i : pattern) candidate = std::max(candidate, groupOf(i));
  return candidate;
}

// Merging only ever makes the groups that others lead to older, so the parent stays the youngest of
// them until it is absorbed itself.
int GroupFormer::parentOf(int group) {
  int& parent = groups_[group].parent;
  if (parent != kNone && !isAlive(parent)) {
    parent = youngest(right(group), youngest(below(group), kNone));
  }
  return parent;
}

// Every line of the transposed pattern has one entry of the inverse's diagonal, in A's order.
void GroupFormer::findWanted() {
  for (int i = 0; i < factors_.n; ++i) {
    const int row = factors_.colPosition[i];
    const int col = factors_.rowPosition[i];
    if (col > row) wantedBelow_[row] = col;
    if (row > col) wantedRight_[col] = row;
  }
}

Pattern GroupFormer::patternOf(Indices ofPivot, int wanted) {
  Pattern pattern(ofPivot);
  if (wanted != kNone && !std::binary_search(ofPivot.begin(), ofPivot.end(), wanted)) {
    pattern.add({wanted});
  }
  return pattern;
}

GroupFormer::Group GroupFormer::groupOfPivot(int j) {
  Group group{1, kNone, count(), patternOf(factors_.lower.rowsOf(j), wantedBelow_[j]),
              patternOf(factors_.upper.rowsOf(j), wantedRight_[j])};
  group.parent = youngest(group.right.indices(), youngest(group.below.indices(), kNone));
  return group;
}

// Merges the pivot with the first of the chains (its parent; parent and grandparent; ...) that are
// better off in one group than apart, or lets it start a group of its own.
void GroupFormer::place(int j) {
  Group pivot = groupOfPivot(j);
  int width = pivot.width;
  double costApart = pivot.cost();
  chain_.clear();
  for (int next = pivot.parent; next != kNone && chain_.size() < kLongestChain;) {
    const double linkCost = groups_[next].cost();
    width += groups_[next].width;
    costApart += linkCost;
    if (width > kWidestGroup) break;
    chain_.push_back(next);
    std::sort(chain_.begin(), chain_.end(), std::greater<>());
    if (mergeChain(pivot, width, costApart)) {
      groupOf_[j] = known_;
      return;
    }
    if (linkCost > kHeaviestLink * pivot.cost()) break;
    next = missing_ != kNone ? missing_ : parentOf(chain_.back());
  }
  groupOf_[j] = count();
  groups_.push_back(std::move(pivot));
}

// Lists what `pattern` has beside the known indices and the members of the chain, or the beginning
// of that when it is more than `room`; gives the number of indices outside the chain.
double GroupFormer::addUnknown(Indices pattern, double room, IndexSet& known,
                               std::vector<int>& unknown) {
  double outside = 0.0;
  for (int i : pattern) {
    if (!known.contains(i)) {
      const int group = groupOf(i);
      if (std::find(chain_.begin(), chain_.end(), group) != chain_.end()) continue;
      if (group > known_) missing_ = std::max(missing_, group);
      known.insert(i);
      unknown.push_back(i);
      if (static_cast<double>(unknown.size()) > room) break;
    }
    ++outside;
  }
  return outside;
}

// Most that can be added to `size` when the product with `other` may exceed `pairs` by little.
double room(double pairs, double size, double other) {
  return other == 0.0 ? HUGE_VAL : (1.0 + kUncoveredShare) * pairs / other - size;
}

// Merges a pivot and the chain, `width` pivots in all, into the chain's last group if that costs
// less than `costApart` and brings few pairs that no member has on its own.
bool GroupFormer::mergeChain(const Group& pivot, int width, double costApart) {
  missing_ = kNone;
  if (leastCost(pivot, width) >= costApart) return false;
  learn(chain_.back());
  const double covered = unite(pivot);
  const Group& last = groups_[known_];
  const double below = last.below.size() + static_cast<double>(moreBelow_.size());
  const double right = last.right.size() + static_cast<double>(moreRight_.size());
  if (missing_ != kNone || below * right > (1.0 + kUncoveredShare) * covered ||
      groupCost(width, below, right) >= costApart) {
    for (int i : moreBelow_) knownBelow_.erase(i);
    for (int i : moreRight_) knownRight_.erase(i);
    return false;
  }
  absorbChain(width);
  return true;
}

// Cost of the chain and the pivot in one group if their patterns beyond it are as alike as can be.
double GroupFormer::leastCost(const Group& pivot, int width) const {
  const Group& last = groups_[chain_.back()];
  const double inside = width - 1;  // at most so many of the pivot's indices lie in the group
  return groupCost(width, std::max(last.below.size(), pivot.below.size() - inside),
                   std::max(last.right.size(), pivot.right.size() - inside));
}

// known_ = group, with the sets of its indices
void GroupFormer::learn(int group) {
  if (known_ == group) return;
  known_ = group;
  knownBelow_.clear();
  knownRight_.clear();
  for (int i : below(group)) knownBelow_.insert(i);
  for (int i : right(group)) knownRight_.insert(i);
}

// moreBelow_, moreRight_ = what the pivot and the rest of the chain add to the last group's
// pattern, or the beginning of that where it is too much anyway; gives the number of pairs that the
// largest member has outside the chain.
double GroupFormer::unite(const Group& pivot) {
  const Group& last = groups_[known_];
  double largest = std::max(pivot.pairs(), last.pairs());
  for (int group : chain_) largest = std::max(largest, groups_[group].pairs());
  const double roomBelow = room(largest, last.below.size(), last.right.size());
  const double roomRight = room(largest, last.right.size(), last.below.size());
  moreBelow_.clear();
  moreRight_.clear();
  double covered = last.pairs();
  const auto add = [&](const Group& member) {
    const double below = addUnknown(member.below.indices(), roomBelow, knownBelow_, moreBelow_);
    const double right = addUnknown(member.right.indices(), roomRight, knownRight_, moreRight_);
    covered = std::max(covered, below * right);
  };
  add(pivot);
  for (std::size_t i = 0; i + 1 < chain_.size(); ++i) add(groups_[chain_[i]]);
  return covered;
}

// The last group becomes the union, and the others of the chain part of it.
void GroupFormer::absorbChain(int width) {
  Group& last = groups_[known_];
  last.parent = youngest(moreRight_, youngest(moreBelow_, parentOf(known_)));
  last.width = width;
  last.below.add(moreBelow_);
  last.right.add(moreRight_);
  for (int group : chain_) {
    if (group == known_) continue;
    groups_[group].into = known_;
    groups_[group].below.release();
    groups_[group].right.release();
  }
}

// Numbers the pivots by groups, the group started last first, and within a group as they were.
// Gives the former's number of each group.
std::vector<int> numberPivots(GroupFormer& former, int n, LuGroups& groups) {
  std::vector<int> formed;
  std::vector<int> rank(former.count(), kNone);
  for (int g = former.count() - 1; g >= 0; --g) {
    if (!former.isAlive(g)) continue;
    rank[g] = static_cast<int>(formed.size());
    formed.push_back(g);
  }
  groups.first.assign(formed.size() + 1, 0);
  groups.position.resize(n);
  for (int j = 0; j < n; ++j) {
    groups.position[j] = rank[former.groupOf(j)];
    ++groups.first[groups.position[j] + 1];
  }
  for (std::size_t g = 0; g < formed.size(); ++g) groups.first[g + 1] += groups.first[g];
  std::vector<int> next(groups.first.begin(), groups.first.end() - 1);
  groups.pivot.resize(n);
  groups.groupOf.resize(n);
  for (int j = 0; j < n; ++j) {
    const int g = groups.position[j];
    const int k = next[g]++;
    groups.position[j] = k;
    groups.pivot[k] = j;
    groups.groupOf[k] = g;
  }
  return formed;
}

// Waiting lists, one a group: each of the groups before stands in the list of the next one that its
// rows of L (or its columns of U) lie in.
class Waiting {
 public:
  explicit Waiting(const LuGroups& groups)
      : groups_(groups),
        head_(groups.count(), kNone),
        next_(groups.count(), kNone),
        cursor_(groups.count(), 0) {}

  int firstFor(int group) const { return head_[group]; }
  int nextAfter(int waiting) const { return next_[waiting]; }

  // Moves `waiting` on to the next group in which it has `indices`, unless that comes after `last`.
  void advance(int waiting, Indices indices, int last) {
    std::size_t& p = cursor_[waiting];
    if (p == indices.size()) return;
    const int group = groups_.groupOf[indices[p]];
    if (group > last) return;
    while (p < indices.size() && indices[p] < groups_.first[group + 1]) ++p;
    next_[waiting] = head_[group];
    head_[group] = waiting;
  }

  void advanceAll(int group, const IndexLists& lists, const std::vector<int>& last) {
    for (int waiting = firstFor(group); waiting != kNone;) {
      const int following = nextAfter(waiting);
      advance(waiting, lists[waiting], last[waiting]);
      waiting = following;
    }
  }

 private:
  const LuGroups& groups_;
  std::vector<int> head_;
  std::vector<int> next_;
  std::vector<std::size_t> cursor_;
};

// Appends to `lists` the pattern of group g: its own and what the waiting groups have beyond it.
void appendUnion(int g, const LuGroups& groups, Indices own, const Waiting& waiting, IndexSet& seen,
                 IndexLists& lists) {
  std::vector<int> all;
  const auto add = [&](int i) {
    if (seen.contains(i)) return;
    seen.insert(i);
    all.push_back(i);
  };
  seen.clear();
  for (int i : own) add(groups.position[i]);
  const int end = groups.first[g + 1];
  for (int c = waiting.firstFor(g); c != kNone; c = waiting.nextAfter(c)) {
    const Indices carried = lists[c];
    for (std::size_t p = carried.size(); p > 0 && carried[p - 1] >= end; --p) add(carried[p - 1]);
  }
  std::sort(all.begin(), all.end());
  lists.append(all);
}

// First group in which both patterns have indices.
int firstCommonGroup(const LuGroups& groups, Indices a, Indices b) {
  std::size_t p = 0;
  std::size_t q = 0;
  while (p < a.size() && q < b.size()) {
    const int g = groups.groupOf[a[p]];
    const int h = groups.groupOf[b[q]];
    if (g == h) return g;
    ++(g < h ? p : q);
  }
  return groups.count();
}

// Closes the patterns under elimination: group g takes the rows of every group with columns in g,
// and the columns of every group with rows in g. A group need not go beyond the first one in which
// it has both: that one then carries all that it has.
void closePattern(const GroupFormer& former, const std::vector<int>& formed, LuGroups& groups) {
  std::vector<int> last(formed.size());
  Waiting byRight(groups);
  Waiting byBelow(groups);
  IndexSet seen(static_cast<int>(groups.pivot.size()));
  for (int g = 0; g < groups.count(); ++g) {
    appendUnion(g, groups, former.below(formed[g]), byRight, seen, groups.below);
    appendUnion(g, groups, former.right(formed[g]), byBelow, seen, groups.right);
    last[g] = firstCommonGroup(groups, groups.below[g], groups.right[g]);
    byRight.advanceAll(g, groups.right, last);
    byBelow.advanceAll(g, groups.below, last);
    byRight.advance(g, groups.right[g], last[g]);
    byBelow.advance(g, groups.below[g], last[g]);
  }
}

}  // namespace

LuGroups luGroups(const LuFactors& factors) {
  LuGroups groups;
  GroupFormer former(factors);
  const std::vector<int> formed = numberPivots(former, factors.n, groups);
  closePattern(former, formed, groups);
  return groups;
}

}  // namespace korin::sparse
