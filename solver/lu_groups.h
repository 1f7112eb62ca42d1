#ifndef ZEPH_SOLVER_LU_GROUPS_H
#define ZEPH_SOLVER_LU_GROUPS_H

#include <vector>

#include "solver/lu_factors.h"

namespace zeph_solver {

/// Groups of consecutive pivots whose rows of U, and whose columns of L, have the same pattern
/// outside the group (unsymmetric supernodes), closed under elimination.
///
/// Group g holds the pivots first[g] .. first[g+1]-1. below[g] are the rows of L beyond the group,
/// right[g] the columns of U beyond it, both ascending. Closed means: for every group, every pair
/// (row of below[g], column of right[g]) lies in the pattern again (in the diagonal block of a
/// group, in its below x pivots, or in its pivots x right).
struct LuGroups {
  std::vector<int> first;
  std::vector<std::vector<int>> below;
  std::vector<std::vector<int>> right;
  std::vector<int> groupOf;  ///< group of each pivot

  int count() const { return static_cast<int>(below.size()); }
  int width(int g) const { return first[g + 1] - first[g]; }
};

/// The groups of a pair of factors. Positions that the factors lost because a number cancelled are
/// put back, and small groups are merged where that stores few zeros.
///
/// Cost: close to the entries of the closed pattern when it is nearly symmetric (symmetric pruning,
/// Eisenstat and Liu 1992); more for very unsymmetric patterns, never more than the factorisation.
LuGroups luGroups(const LuFactors& factors);

}  // namespace zeph_solver

#endif
