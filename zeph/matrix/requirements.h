// What is asked of a matrix before anything is done with it, and how messages name its parts.
#ifndef ZEPH_MATRIX_REQUIREMENTS_H
#define ZEPH_MATRIX_REQUIREMENTS_H

#include <cstddef>
#include <string>

#include "zeph/sparse_matrix.h"

namespace zeph {

/// Two entries of a symmetric matrix may differ by rounding when each was computed for itself.
/// Relative to the diagonal this is about 45 units in the last place.
inline constexpr double kSymmetryTolerance = 1e-14;

/// "(3, 4)" for a zero-based position, counted from indexBase.
std::string position(std::size_t indexBase, std::size_t row, std::size_t col);

/// Throws Error(Unfit) unless m is square with at least one row.
void requireSquare(const SparseMatrix& m);

/// Throws Error(Unfit) naming the first entry that is NaN or infinite.
void requireFinite(const SparseMatrix& m);

/// Throws Error(Unfit) beyond kLargestSize rows or columns.
void requireSizes(const std::string& source, std::size_t rows, std::size_t cols);

/// Throws Error(Unfit) unless the sizes can be counted, all indices are below rows and cols, and a
/// symmetric form is square with all entries in one triangle: what the readers and factories
/// guarantee, for matrices that were filled by hand.
void requireForm(const SparseMatrix& m);

/// Throws Error(Memory) when count items of that size cannot fit into the machine. A size line in a
/// file costs nothing to write, and a system that lends memory freely kills the process only later.
void requireMemory(const std::string& source, std::size_t count, std::size_t bytesEach);

}  // namespace zeph

#endif
