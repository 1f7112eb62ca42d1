#ifndef ZEPH_SPARSE_INVERSE_COVARIANCE_BLOCK_H
#define ZEPH_SPARSE_INVERSE_COVARIANCE_BLOCK_H

#include "kernels/team.h"
#include "sparse/numeric/factor_panels.h"
#include "sparse/symbolic/symbolic.h"

namespace korin::sparse {

/// block = the rows and columns `indices` of A^-1, count x count, column-major, symmetric to the
/// bit.
///
/// From the columns L^-1 e_i, which differ from zero only on the paths from the unknowns to their
/// roots: cost and memory grow with those paths, not with the whole factor. An index may occur more
/// than once. Throws std::bad_alloc and what the team's poll throws.
void covarianceBlock(const Symbolic& symbolic, const FactorPanels& panels, Index count,
                     const Index* indices, double* block, kernels::Team& team);

}  // namespace korin::sparse

#endif
