#ifndef ZEPH_SPARSE_NUMERIC_SOLVE_H
#define ZEPH_SPARSE_NUMERIC_SOLVE_H

#include "kernels/team.h"
#include "sparse/numeric/factor_panels.h"
#include "sparse/symbolic/symbolic.h"

namespace korin::sparse {

/// X = A^-1 X for `count` right-hand sides, column-major with n values each, in A's own numbers.
/// Not where columns are kept.
///
/// `panels` are those of `factorise`. Right-hand sides are taken in blocks, which threads share;
/// the bits of a solution depend neither on the threads nor on the other right-hand sides. Cost:
/// four operations for each entry of the panels and right-hand side. Throws std::bad_alloc and what
/// the team's poll throws.
void solve(const Symbolic& symbolic, const FactorPanels& panels, Index count, double* x,
           kernels::Team& team);

/// X = L^-1 P X, the first half of `solve`; x[k] belongs to row k of L afterwards. Kept rows become
/// the right-hand side that the Schur complement is to be solved with.
void solveForward(const Symbolic& symbolic, const FactorPanels& panels, Index count, double* x,
                  kernels::Team& team);

/// X = P^T L^-T X, the second half of `solve`: columns of independent standard normal numbers
/// become columns distributed as N(0, A^-1). x[k] belongs to row k of L before, to A's row k
/// afterwards. Kept rows hold the solution before, and keep it.
void solveTransposed(const Symbolic& symbolic, const FactorPanels& panels, Index count, double* x,
                     kernels::Team& team);

/// Bytes of memory that each of the above takes at most beside the right-hand sides.
double solveMemory(const Symbolic& symbolic, Index count, int threads);

/// log(det A), twice the sum of the logarithms of L's diagonal, kept columns left out.
double logDeterminant(const Symbolic& symbolic, const FactorPanels& panels);

}  // namespace korin::sparse

#endif
