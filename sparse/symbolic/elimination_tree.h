// Elimination tree of a graph in a given order, and the column lengths of the factor.
#ifndef ZEPH_SPARSE_SYMBOLIC_ELIMINATION_TREE_H
#define ZEPH_SPARSE_SYMBOLIC_ELIMINATION_TREE_H

#include <vector>

#include "sparse/pattern/graph.h"

namespace korin::sparse {

/// The elimination tree of a graph whose nodes are eliminated in the order order[0], order[1], …
/// Nodes are named by their places in that order, so that a parent's name is the larger one.
struct EliminationTree {
  /// -1 for a root.
  std::vector<Index> parent;
  /// Unknowns in the first column of the node: its own weight and that of all later nodes that the
  /// elimination connects it with.
  std::vector<Index> height;
};

/// Size of a factor and of the work for it, zeros not stored anywhere left out.
struct Prediction {
  /// Entries of L, the diagonal counted in.
  Offset entries = 0;
  /// Sum of the squared column lengths.
  double operations = 0.0;
};

/// order[k] for all k becomes place[order[k]] = k.
std::vector<Index> inverseOrder(const std::vector<Index>& order);

/// O(edges) but for a factor that grows more slowly than any logarithm seen in practice; nothing
/// here is recursive. The tree is Liu's (1986, "A compact row storage scheme for Cholesky factors
/// using elimination trees"), the lengths are those of Gilbert, Ng and Peyton (1994, "An efficient
/// algorithm to compute row and column counts for sparse Cholesky factorization"), with weights.
EliminationTree eliminationTree(const Graph& graph, const std::vector<Index>& order);

/// What the columns of the first `count` nodes in the order add up to. O(nodes).
Prediction predict(const Graph& graph, const std::vector<Index>& order, const EliminationTree& tree,
                   Index count);

}  // namespace korin::sparse

#endif
