#ifndef ZEPH_SPARSE_INVERSE_LU_GROUPS_H
#define ZEPH_SPARSE_INVERSE_LU_GROUPS_H

#include <cstddef>
#include <span>
#include <vector>

#include "sparse/pattern/lu_factors.h"

namespace korin::sparse {

/// A list of indices for each of a number of groups, one after the other in one array.
class IndexLists {
 public:
  /// Adds the list of the next group.
  void append(std::span<const int> list) {
    indices_.insert(indices_.end(), list.begin(), list.end());
    start_.push_back(indices_.size());
  }

  /// Valid until the next append.
  std::span<const int> operator[](int group) const {
    return {indices_.data() + start_[group], start_[group + 1] - start_[group]};
  }

 private:
  std::vector<std::size_t> start_{0};
  std::vector<int> indices_;
};

/// Groups of pivots that are treated as having the same rows of L below the group and the same
/// columns of U to its right (unsymmetric supernodes), closed under elimination.
///
/// Pivots are renumbered so that each group is consecutive and both factors stay triangular. In the
/// new numbers, group g holds the pivots first[g] .. first[g+1]-1; below[g] are the rows of L
/// beyond the group, right[g] the columns of U beyond it, both ascending. Closed means: for every
/// group, every pair (row of below[g], column of right[g]) lies in the pattern again (in the
/// diagonal block of a group, in its below x pivots, or in its pivots x right).
struct LuGroups {
  std::vector<int> pivot;     ///< number in the factors of each pivot
  std::vector<int> position;  ///< the inverse: new number of a pivot of the factors
  std::vector<int> first;
  std::vector<int> groupOf;  ///< group of each pivot
  IndexLists below;
  IndexLists right;

  int count() const { return static_cast<int>(first.size()) - 1; }
  int width(int g) const { return first[g + 1] - first[g]; }
};

/// The groups of a pair of factors. Pivots of similar patterns share a group, with explicit zeros,
/// where that makes the recurrence faster; positions that the factors lost because a number
/// cancelled are put back, and those where the diagonal of A^-1 stands are added.
///
/// Cost: a few times the entries of the factors and of the closed pattern of the groups, with
/// symmetric pruning (Eisenstat and Liu 1992).
LuGroups luGroups(const LuFactors& factors);

}  // namespace korin::sparse

#endif
