#include "sparse/symbolic/elimination_tree.h"

#include <cstddef>
#include <cstdint>

namespace korin::sparse {
namespace {

/// A graph whose nodes are named by their places in an order: the neighbours of k are
/// neighbour[start[k]] .. neighbour[start[k+1]-1], in no order.
struct Renamed {
  std::vector<Offset> start;
  std::vector<Index> neighbour;
  std::vector<Index> weight;

  Renamed(const Graph& graph, const std::vector<Index>& order)
      : start(order.size() + 1), neighbour(graph.neighbour.size()), weight(order.size()) {
    const std::vector<Index> place = inverseOrder(order);
    Index* end = neighbour.data();
    for (std::size_t k = 0; k < order.size(); ++k) {
      const Index node = order[k];
      weight[k] = graph.weight[node];
      for (Offset p = graph.start[node]; p < graph.start[node + 1]; ++p) {
        *end++ = place[graph.neighbour[p]];
      }
      start[k + 1] = end - neighbour.data();
    }
  }
  template <class Use>
  void forNeighbours(Index k, Use&& use) const {
    for (Offset p = start[k]; p < start[k + 1]; ++p) use(neighbour[p]);
  }
};

std::vector<Index> parents(const Renamed& graph) {
  const std::size_t n = graph.weight.size();
  std::vector<Index> parent(n, kNone);
  // shortcut[k]: an ancestor of k among the places seen so far, the last one whose walk met k.
  std::vector<Index> shortcut(n, kNone);
  for (Index k = 0; k < static_cast<Index>(n); ++k) {
    graph.forNeighbours(k, [&](Index at) {
      if (at > k) return;
      while (shortcut[at] != k) {
        const Index above = shortcut[at];
        shortcut[at] = k;
        if (above == kNone) {
          parent[at] = k;
          break;
        }
        at = above;
      }
    });
  }
  return parent;
}

/// Children before parents, subtrees in one piece.
std::vector<Index> anyPostorder(const std::vector<Index>& parent) {
  const std::size_t n = parent.size();
  std::vector<Index> firstChild(n, kNone), sibling(n, kNone), postorder;
  Index firstRoot = kNone;
  for (std::size_t k = n; k-- > 0;) {
    Index& head = parent[k] == kNone ? firstRoot : firstChild[parent[k]];
    sibling[k] = head;
    head = static_cast<Index>(k);
  }
  postorder.reserve(n);
  Index at = firstRoot;
  while (at != kNone) {
    while (firstChild[at] != kNone) at = firstChild[at];
    postorder.push_back(at);
    while (sibling[at] == kNone && parent[at] != kNone) {
      at = parent[at];
      postorder.push_back(at);
    }
    at = sibling[at];
  }
  return postorder;
}

/// Disjoint sets of nodes that are merged upwards, with the topmost node of each.
class Tops {
 public:
  explicit Tops(std::size_t n) : above_(n, kNone) {}
  void hang(Index child, Index parent) { above_[child] = parent; }
  Index topOf(Index node) {
    Index top = node;
    while (above_[top] != kNone) top = above_[top];
    while (node != top) {
      const Index next = above_[node];
      above_[node] = top;
      node = next;
    }
    return top;
  }

 private:
  std::vector<Index> above_;
};

/// Row i of the factor is a subtree of the tree, rooted in i. Each of its leaves adds the weight of
/// i to the columns from there up; where two such paths meet, and above i, it is taken off again.
/// What is taken off may exceed 2^31 before the sums, which do not, are complete: unsigned numbers
/// wrap round and come back.
std::vector<Index> heights(const Renamed& graph, const std::vector<Index>& parent) {
  const std::size_t n = parent.size();
  const std::vector<Index> postorder = anyPostorder(parent);
  // The first place in the postorder of a node's subtree.
  std::vector<Index> first(n, kNone);
  std::vector<std::uint32_t> height(n, 0);
  const auto weightOf = [&](Index k) { return static_cast<std::uint32_t>(graph.weight[k]); };
  for (std::size_t k = 0; k < n; ++k) {
    Index at = postorder[k];
    if (first[at] == kNone) height[at] = weightOf(at);  // a leaf of the tree
    for (; at != kNone && first[at] == kNone; at = parent[at]) first[at] = static_cast<Index>(k);
  }
  // Of each row's subtree: the leaf found last, and the place from which on a column is a new one.
  std::vector<Index> lastLeaf(n, kNone), lastFirst(n, kNone);
  Tops tops(n);
  for (const Index j : postorder) {
    if (parent[j] != kNone) height[parent[j]] -= weightOf(j);
    graph.forNeighbours(j, [&](Index i) {
      if (i < j || first[j] <= lastFirst[i]) return;
      const std::uint32_t weight = weightOf(i);
      height[j] += weight;
      if (lastLeaf[i] != kNone) height[tops.topOf(lastLeaf[i])] -= weight;
      lastFirst[i] = first[j];
      lastLeaf[i] = j;
    });
    if (parent[j] != kNone) tops.hang(j, parent[j]);
  }
  for (std::size_t k = 0; k < n; ++k) {
    if (parent[k] != kNone) height[parent[k]] += height[k];
  }
  return {height.begin(), height.end()};
}

}  // namespace

std::vector<Index> inverseOrder(const std::vector<Index>& order) {
  std::vector<Index> place(order.size());
  for (std::size_t k = 0; k < order.size(); ++k) place[order[k]] = static_cast<Index>(k);
  return place;
}

EliminationTree eliminationTree(const Graph& graph, const std::vector<Index>& order) {
  const Renamed renamed(graph, order);
  EliminationTree tree;
  tree.parent = parents(renamed);
  tree.height = heights(renamed, tree.parent);
  return tree;
}

Prediction predict(const Graph& graph, const std::vector<Index>& order, const EliminationTree& tree,
                   Index count) {
  Prediction sum;
  for (Index k = 0; k < count; ++k) {
    const Offset height = tree.height[k], weight = graph.weight[order[k]];
    sum.entries += weight * height - weight * (weight - 1) / 2;
    // The squares of height, height - 1, …, weight of them.
    const auto h = static_cast<double>(height), w = static_cast<double>(weight);
    sum.operations += w * h * h - h * w * (w - 1) + (w - 1) * w * (2 * w - 1) / 6;
  }
  return sum;
}

}  // namespace korin::sparse
