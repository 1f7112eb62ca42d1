#ifndef ZEPH_SPARSE_INVERSE_COVARIANCE_BLOCK_H
#define ZEPH_SPARSE_INVERSE_COVARIANCE_BLOCK_H

#include <functional>

#include "kernels/team.h"
#include "sparse/numeric/factor_panels.h"
#include "sparse/symbolic/symbolic.h"

namespace korin::sparse {

/// How many columns to work on at once, 1 to `most`, where bytes(columns) of memory are what that
/// takes. May throw.
using ColumnsThatFit = std::function<Index(Index most, const std::function<double(Index)>& bytes)>;

/// block = the rows and columns `indices` of A^-1, count x count, column-major, symmetric to the
/// bit.
///
/// From the columns L^-1 e_i, which differ from zero only on the paths from the unknowns to their
/// roots: cost and memory grow with those paths, not with the whole factor; where the paths are
/// long and many, from whole columns of A^-1. Fewer columns at once give the same bits. An index
/// may occur more than once. Throws std::bad_alloc and what `fit` and the team's poll throw.
void covarianceBlock(const Symbolic& symbolic, const FactorPanels& panels, Index count,
                     const Index* indices, double* block, kernels::Team& team,
                     const ColumnsThatFit& fit = {});

}  // namespace korin::sparse

#endif
