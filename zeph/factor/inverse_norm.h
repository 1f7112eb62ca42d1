#ifndef ZEPH_FACTOR_INVERSE_NORM_H
#define ZEPH_FACTOR_INVERSE_NORM_H

#include <cstddef>
#include <cstdint>
#include <functional>

namespace zeph {

/// x = S⁻¹ b, or S⁻ᵀ b, for vectors of S's order that do not overlap.
using SolveWith = std::function<void(const double* b, double* x)>;

/// Lower bound of ‖S⁻¹‖₁, seldom below a third of it (Hager 1984, Higham 1988): some five pairs of
/// solves. Infinite when a solve gives something that is not finite.
double inverseNorm(std::size_t n, const SolveWith& solve, const SolveWith& solveTransposed);

/// Entry number k of random vectors that tell norms, ‖z(i,:)‖₂ being about |z(i,:) v|: a random
/// sign times something from 1/2 to 3/2, as with signs alone two equal entries of the inverse may
/// cancel in all probes. SplitMix64 (Steele, Lea, Flood 2014).
double probeWeight(std::uint64_t k);

}  // namespace zeph

#endif
