#ifndef ZEPH_GENERAL_SCALING_H
#define ZEPH_GENERAL_SCALING_H

#include <cstddef>
#include <vector>

#include "solver/assembly/protosparse.h"

namespace zeph {

/// Powers of two that bring a matrix to a common size: S(i, j) = A(i, j) 2^(row[i] + col[j]).
///
/// The factorisations compare entries with absolute thresholds and with each other; scaled, neither
/// the units of the unknowns nor those of the equations decide anything. The scaling is exact, and
/// so is the way back: A⁻¹(i, j) = S⁻¹(i, j) 2^(col[i] + row[j]).
struct Scaling {
  std::vector<int> row, col;
};

/// Brings every diagonal entry to [1/2, 2], with row = col; a zero stays. For definite matrices,
/// whose other entries are then below 2. m is sparse and compressed, or 1 x 1.
Scaling diagonalScaling(const zeph_solver::ProtoSparse& m);

/// Leaves no entry above 2 and n of them, one in every row and column, in [1/2, 2]: those whose
/// product is largest (Duff and Koster 2001). What rows or columns were multiplied with before
/// makes no difference to that choice. A symmetric matrix stays one when told. Where there are no
/// such n entries, or finding them would take longer than a factorisation, the largest entry of
/// every row and column is brought near 1 instead (Ruiz 2001). m is sparse and compressed, or 1
/// x 1. Usually O(entries).
Scaling equilibration(const zeph_solver::ProtoSparse& m, bool symmetric);

void applyScaling(const Scaling& s, zeph_solver::ProtoSparse& m);

}  // namespace zeph

#endif
