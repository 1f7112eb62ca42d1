#ifndef ZEPH_GENERAL_LU_ERROR_H
#define ZEPH_GENERAL_LU_ERROR_H

#include <vector>

#include "kernels/team.h"
#include "sparse/pattern/lu_factors.h"

namespace zeph {

/// How errors of the factors move the diagonal of the inverse Z of S, P R S Q = L U.
struct LuSensitivity {
  /// error[i]: where the factors are those of S + E with |E| ≤ δ F, F = R⁻¹ Pᵀ |L| |U| Qᵀ, entry
  /// z(i,i) is wrong by at most δ error[i] to first order,
  ///   error[i] = ‖z(i,:) √(F 1)‖₂ ‖z(:,i) √(Fᵀ 1)‖₂ ≥ Σ |z(i,j)| F(j,k) |z(k,i)|
  /// by the inequality of Cauchy and Schwarz.
  std::vector<double> error;
  /// size[i]: about ‖z(i,:)‖ ‖z(:,i)‖, under its root what z(i,i) cancels from.
  std::vector<double> size;
};

/// The norms come from solves for random numbers, eight for all rows and eight for all columns: the
/// chance that one is a tenth of what it should be is below 10⁻⁶. The same bits for any team.
LuSensitivity luSensitivity(const korin::sparse::LuFactors& factors, korin::kernels::Team& team);

}  // namespace zeph

#endif
