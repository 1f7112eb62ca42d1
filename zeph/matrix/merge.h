#ifndef ZEPH_MATRIX_MERGE_H
#define ZEPH_MATRIX_MERGE_H

#include <cstddef>

#include "zeph/sparse_matrix.h"

namespace zeph {

/// Throws Error(Unfit) beyond 2³¹-1 entries.
void requireCountable(const SparseMatrix& m);

/// Sorts the entries by column, then row, and adds up those at one position, whatever their size; a
/// sum of zero keeps its place. Returns how many entries went.
/// Throws Error(Unfit) beyond 2³¹-1 entries.
std::size_t mergeDuplicates(SparseMatrix& m);

/// m as a general matrix with both triangles, sorted and merged.
/// Throws Error(Unfit) beyond 2³¹-1 entries.
void makeGeneral(SparseMatrix& m);

}  // namespace zeph

#endif
