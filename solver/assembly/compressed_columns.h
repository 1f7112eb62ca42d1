// Compressed-column form (CSC) of an assembled matrix, in plain arrays.
#ifndef ZEPH_SOLVER_ASSEMBLY_COMPRESSED_COLUMNS_H
#define ZEPH_SOLVER_ASSEMBLY_COMPRESSED_COLUMNS_H

#include "solver/assembly/protosparse.h"

namespace zeph_solver {

/// Writes A, sorted by `A.sortElements()` beforehand, as compressed columns: column j has the rows
/// rowIndices[k], ascending, and the values values[k] for colPointers[j] <= k < colPointers[j + 1].
///
/// Duplicates are summed in list order. In sparse mode nothing is dropped, not even an exact zero;
/// in dense mode only entries of magnitude above 2^-52 are kept. Both triangles are written.
///
/// @param colPointers  A.colCount + 1 entries. A dense A whose block has no column writes nothing,
///                     so set them to 0 beforehand.
/// @param rowIndices   room for A.nz() entries
/// @param values       room for A.nz() entries; a NaN in a dense block is not kept
///
/// Index is int or unsigned int. The counts are cut to 32 bits, as its readers do. Elements outside
/// the shape are left out.
/// One pass over the elements; one pass over the block in dense mode.
template <typename Index>
void fillCompressedColumns(const ProtoSparse& A, Index* colPointers, Index* rowIndices,
                           double* values);

extern template void fillCompressedColumns(const ProtoSparse&, int*, int*, double*);
extern template void fillCompressedColumns(const ProtoSparse&, unsigned int*, unsigned int*,
                                           double*);

}  // namespace zeph_solver

#endif  // ZEPH_SOLVER_ASSEMBLY_COMPRESSED_COLUMNS_H
