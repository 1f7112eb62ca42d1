// Relaxed supernodes: which columns of a factor are worked on together, and in which order.
#ifndef ZEPH_SPARSE_SYMBOLIC_GROUPING_H
#define ZEPH_SPARSE_SYMBOLIC_GROUPING_H

#include <vector>

#include "sparse/symbolic/elimination_tree.h"

namespace korin::sparse {

/// Groups of up to `width` columns may hold up to the share `zeros` of stored zeros.
struct ZerosAllowed {
  Offset width;
  double zeros;
};

/// Wide groups run at a higher rate, but zeros are stored and multiplied: the narrower a group, the
/// more of them pay. The steps ascend; the last holds for all widths beyond.
inline constexpr ZerosAllowed kZerosAllowed[] = {{4, 0.7}, {16, 0.45}, {48, 0.1}, {0, 0.05}};

/// The nodes of an elimination tree in groups, the groups in postorder of their tree.
struct Grouping {
  /// -1 for a root.
  std::vector<Index> parent;
  /// Unknowns of the group, and unknowns of the rows below it.
  std::vector<Index> width;
  std::vector<Index> below;
  /// The nodes of group g, named by their places in the order: node[nodeStart[g]] ..
  /// node[nodeStart[g+1]-1], ascending.
  std::vector<Index> nodeStart{0};
  std::vector<Index> node;

  Index groups() const { return static_cast<Index>(parent.size()); }
};

/// Merges a node into its parent where no zeros arise (fundamental supernodes) or not too many for
/// the width of the merged group (relaxed supernodes after Ashcraft and Grimes, 1989; here with any
/// child, not only the one next to its parent, since the order within a subtree is free). The
/// children of a group are ordered such that the updates waiting at one time are least (Liu 1986).
/// `weight[k]` is the number of unknowns of the node at place k. O(nodes) but for sorting children.
///
/// The last `kept` nodes, a chain in the tree whose columns are full, become the last group, which
/// no other node joins.
Grouping groupNodes(const EliminationTree& tree, const std::vector<Index>& weight, Index kept = 0);

}  // namespace korin::sparse

#endif
