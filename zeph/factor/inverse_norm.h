#ifndef ZEPH_FACTOR_INVERSE_NORM_H
#define ZEPH_FACTOR_INVERSE_NORM_H

#include <cstddef>
#include <functional>

namespace zeph {

/// x = S⁻¹ b, or S⁻ᵀ b, for vectors of S's order that do not overlap.
using SolveWith = std::function<void(const double* b, double* x)>;

/// Lower bound of ‖S⁻¹‖₁, seldom below a third of it (Hager 1984, Higham 1988): some five pairs of
/// solves. Infinite when a solve gives something that is not finite.
double inverseNorm(std::size_t n, const SolveWith& solve, const SolveWith& solveTransposed);

}  // namespace zeph

#endif
