// Unknowns with equal neighbourhoods, taken together as one weighted node.
#ifndef ZEPH_SPARSE_PATTERN_COMPRESS_H
#define ZEPH_SPARSE_PATTERN_COMPRESS_H

#include <vector>

#include "sparse/pattern/graph.h"

namespace korin::sparse {

/// Which unknowns may share a node.
enum class Compression {
  None,
  /// Neighbouring indices only, so that the natural order of the nodes is that of the unknowns.
  Runs,
  All,
};

/// The graph of a symmetric matrix whose nodes stand for unknowns with equal closed neighbourhoods
/// (rows of the pattern, the diagonal counted in): the coordinates of a point, the degrees of
/// freedom of a node. Node k stands for member[memberStart[k]] .. member[memberStart[k+1]-1],
/// ascending; nodes ascend by their first members.
struct CompressedGraph {
  Graph graph;
  std::vector<Index> memberStart{0};
  std::vector<Index> member;
};

/// Compresses the pattern of a lower triangle, rows ascending in every column without duplicates;
/// its diagonal may be left out. O(entries): runs of neighbouring unknowns are found by comparing
/// each column with the one before it, the others by hashing neighbourhoods; hits are compared
/// entry by entry. (After Ashcraft 1995, "Compressed graphs and the minimum degree algorithm".) Not
/// checked: the order of the rows.
///
/// Each of the last `kept` unknowns gets a node of its own; these are the last nodes.
CompressedGraph compress(const ColumnsView& lower, Compression compression, Index kept = 0);

}  // namespace korin::sparse

#endif
