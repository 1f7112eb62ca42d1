// Symbolic companion of the partial inverse: which entries of the inverse an LDL^T-based partial
// inversion has to compute.
#ifndef ZEPH_SOLVER_LDL_MINIMAL_SET_H
#define ZEPH_SOLVER_LDL_MINIMAL_SET_H

#include "solver/assembly/protosparse.h"
#include "solver/zeph_export.h"

namespace zeph_solver {

/// Adds to `set` the positions (row <= col) of A^-1 that an LDL^T partial inversion of A needs.
///
/// With an edge k -> r for every stored position (r, k) of A below the diagonal, the columns are
/// taken in ascending order: column j holds j, the rows j' < j whose turn gave them column j, and
/// every r < j reachable from those through edges; its turn gives row j every column c > j that is
/// one edge away from anything column j holds. This closes A's own pattern; it is *not* the pattern
/// of the full factor, since positions found in earlier columns are not walked as edges.
///
/// @param A    n = A.rowCount; no column index may reach n. Only the pattern below the diagonal is
///             read: of the triplets every position, zeros included; of a dense block the entries
///             of magnitude above 2^-52. A's triplets are sorted in place (`sortElements`).
/// @param set  resized to n x n and sorted; what it held before stays in it. The values are markers
///             without meaning other than being different from zero.
/// Throws std::bad_alloc, or std::length_error if the list cannot be reserved. Time and memory are
/// proportional to the positions found times the entries in a column of A.
ZEPH_EXPORT void partialInverseLDLMinimalSet(const ProtoSparse& A, ProtoSparse& set);

}  // namespace zeph_solver

#endif  // ZEPH_SOLVER_LDL_MINIMAL_SET_H
