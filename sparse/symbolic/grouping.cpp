#include "sparse/symbolic/grouping.h"

#include <algorithm>
#include <cstddef>
#include <numeric>

namespace korin::sparse {
namespace {

/// Lists of children, in one array: those of p are child[start[p]] .. child[start[p+1]-1],
/// ascending.
struct Children {
  std::vector<Index> start;
  std::vector<Index> child;

  explicit Children(const std::vector<Index>& parent) : start(parent.size() + 1, 0) {
    for (const Index p : parent) {
      if (p != kNone) ++start[p + 1];
    }
    std::partial_sum(start.begin(), start.end(), start.begin());
    child.resize(static_cast<std::size_t>(start.back()));
    std::vector<Index> next(start.begin(), start.end() - 1);
    for (std::size_t k = 0; k < parent.size(); ++k) {
      if (parent[k] != kNone) child[next[parent[k]]++] = static_cast<Index>(k);
    }
  }
  Index* begin(Index p) { return child.data() + start[p]; }
  Index* end(Index p) { return child.data() + start[p + 1]; }
};

bool zerosArePaid(Offset width, Offset below, Offset zeros) {
  const ZerosAllowed* step = kZerosAllowed;
  while (step != std::end(kZerosAllowed) - 1 && width > step->width) ++step;
  const double stored = static_cast<double>(width) *
                        (static_cast<double>(width + 1) / 2 + static_cast<double>(below));
  return static_cast<double>(zeros) <= step->zeros * stored;
}

/// Merges children into parents from the leaves up; a group is named by its topmost node, whose
/// rows below are the group's.
class Merger {
 public:
  Merger(const EliminationTree& tree, const std::vector<Index>& weight, Index kept)
      : parent_(tree.parent),
        firstKept_(static_cast<Index>(weight.size()) - kept),
        width_(weight),
        below_(weight.size()),
        zeros_(weight.size(), 0) {
    for (std::size_t k = 0; k < weight.size(); ++k) below_[k] = tree.height[k] - weight[k];
  }

  /// For each node the top of its group.
  std::vector<Index> run() {
    std::vector<Index> top(parent_.size());
    Children children(parent_);
    for (std::size_t p = 0; p < parent_.size(); ++p) {
      const auto parent = static_cast<Index>(p);
      Index* const begin = children.begin(parent);
      Index* const end = children.end(parent);
      if (end - begin > 1) sortByZeros(parent, begin, end);
      for (Index* child = begin; child != end; ++child) {
        top[*child] = merges(*child, parent) ? parent : *child;
      }
      top[p] = parent;
    }
    for (std::size_t k = parent_.size(); k-- > 0;) {
      if (top[k] != static_cast<Index>(k)) top[k] = top[top[k]];
    }
    return top;
  }

  Index width(Index top) const { return width_[top]; }
  Index below(Index top) const { return below_[top]; }

 private:
  /// Zeros that the columns of the child store if it joins its parent's group as it is now.
  Offset newZeros(Index child, Index parent) const {
    return Offset{width_[child]} * (width_[parent] + below_[parent] - below_[child]);
  }

  void sortByZeros(Index parent, Index* begin, Index* end) const {
    std::stable_sort(begin, end,
                     [&](Index a, Index b) { return newZeros(a, parent) < newZeros(b, parent); });
  }

  bool merges(Index child, Index parent) {
    if (child < firstKept_ && parent >= firstKept_) return false;
    const Offset added = newZeros(child, parent);
    const Offset zeros = zeros_[child] + zeros_[parent] + added;
    const Index width = width_[child] + width_[parent];
    if (added > 0 && !zerosArePaid(width, below_[parent], zeros)) return false;
    width_[parent] = width;
    zeros_[parent] = zeros;
    return true;
  }

  const std::vector<Index>& parent_;
  const Index firstKept_;
  std::vector<Index> width_, below_;
  std::vector<Offset> zeros_;
};

double square(Index x) {
  return static_cast<double>(x) * static_cast<double>(x);
}

/// Postorder of a tree whose parents have larger names than their children: order[k] comes k-th.
/// A subtree that needs much while it is worked on and leaves little comes early.
std::vector<Index> postorderOfLeastStack(const std::vector<Index>& parent,
                                         const std::vector<Index>& below) {
  const std::size_t n = parent.size();
  Children children(parent);
  std::vector<double> peak(n);
  for (std::size_t g = 0; g < n; ++g) {
    const auto group = static_cast<Index>(g);
    Index* const begin = children.begin(group);
    Index* const end = children.end(group);
    std::sort(begin, end, [&](Index a, Index b) {
      const double ofA = peak[a] - square(below[a]), ofB = peak[b] - square(below[b]);
      return ofA > ofB || (ofA == ofB && a < b);
    });
    double waiting = 0.0, most = 0.0;
    for (const Index* child = begin; child != end; ++child) {
      most = std::max(most, waiting + peak[*child]);
      waiting += square(below[*child]);
    }
    peak[g] = std::max(most, waiting + square(below[group]));
  }
  // Backwards, each group's children from the last one: what comes off the stack is a preorder of
  // the mirrored tree, and that is the postorder reversed.
  std::vector<Index> order(n), stack;
  for (std::size_t g = 0; g < n; ++g) {
    if (parent[g] == kNone) stack.push_back(static_cast<Index>(g));
  }
  for (std::size_t k = n; k-- > 0;) {
    const Index group = stack.back();
    stack.pop_back();
    order[k] = group;
    stack.insert(stack.end(), children.begin(group), children.end(group));
  }
  return order;
}

}  // namespace

Grouping groupNodes(const EliminationTree& tree, const std::vector<Index>& weight, Index kept) {
  const std::size_t n = weight.size();
  Merger merger(tree, weight, kept);
  std::vector<Index> top = merger.run();

  // Groups by ascending tops, with their tree; then in postorder.
  std::vector<Index> tops, number(n, kNone);
  for (std::size_t k = 0; k < n; ++k) {
    if (top[k] != static_cast<Index>(k)) continue;
    number[k] = static_cast<Index>(tops.size());
    tops.push_back(static_cast<Index>(k));
  }
  std::vector<Index> parent, below;
  for (const Index t : tops) {
    const Index above = tree.parent[t];
    parent.push_back(above == kNone ? kNone : number[top[above]]);
    below.push_back(merger.below(t));
  }
  const std::vector<Index> order = postorderOfLeastStack(parent, below);
  const std::vector<Index> place = inverseOrder(order);

  Grouping result;
  const std::size_t groups = tops.size();
  result.parent.resize(groups);
  result.width.resize(groups);
  result.below.resize(groups);
  for (std::size_t g = 0; g < groups; ++g) {
    const Index was = order[g];
    result.parent[g] = parent[was] == kNone ? kNone : place[parent[was]];
    result.width[g] = merger.width(tops[was]);
    result.below[g] = below[was];
  }
  result.nodeStart.assign(groups + 1, 0);
  for (std::size_t k = 0; k < n; ++k) ++result.nodeStart[place[number[top[k]]] + 1];
  std::partial_sum(result.nodeStart.begin(), result.nodeStart.end(), result.nodeStart.begin());
  std::vector<Index> next(result.nodeStart.begin(), result.nodeStart.end() - 1);
  result.node.resize(n);
  for (std::size_t k = 0; k < n; ++k) {
    result.node[next[place[number[top[k]]]]++] = static_cast<Index>(k);
  }
  return result;
}

}  // namespace korin::sparse
