#ifndef ZEPH_SOLVER_SUITESPARSE_LU_FACTORS_H
#define ZEPH_SOLVER_SUITESPARSE_LU_FACTORS_H

#include <functional>

#include "sparse/pattern/lu_factors.h"

namespace zeph_solver {

/// Factorises the n x n matrix given by compressed columns with UMFPACK and takes the factors out.
/// A zero is stored wherever the diagonal has no entry: see `korin::sparse::luInverseDiagonal`.
///
/// @param rows, cols    shape; a matrix that is not square gives invertible = false
/// @param colPointers   cols + 1 column starts
/// @param rowIndices    zero-based row of each entry, ascending within a column, no duplicates
/// @param values        value of each entry
/// Throws std::bad_alloc, also when UMFPACK finds no memory, and std::length_error for more than
/// 2^31 - 1 entries, those zeros included; every other failure is told by `invertible`.
/// Cost: one factorisation plus time proportional to the entries of the factors.
korin::sparse::LuFactors luFactors(int rows, int cols, const int* colPointers,
                                   const int* rowIndices, const double* values);

/// Called when the factors are there, in `held` bytes, and are to be taken out into `more`; may
/// throw.
using RoomForFactors = std::function<void(double held, double more)>;

/// The same, and what `room` throws.
korin::sparse::LuFactors luFactors(int rows, int cols, const int* colPointers,
                                   const int* rowIndices, const double* values,
                                   const RoomForFactors& room);

/// What the analysis before a factorisation says about it. Which pivots are taken, and with them
/// the fill, depends on the values.
struct LuBounds {
  double mostEntries = 0.0;        ///< of L and U, whatever rows the pivots are in
  double entriesOnDiagonal = 0.0;  ///< with all pivots on the diagonal; 0 where others are expected
  double bytesOnDiagonal = 0.0;    ///< that luFactors takes beside its arguments then, about
  double mostBytes = 0.0;          ///< that it takes whatever the pivots
};

/// Of a square matrix as for `luFactors`; without an analysis all zero. Throws what it throws.
LuBounds luBounds(int n, const int* colPointers, const int* rowIndices, const double* values);

}  // namespace zeph_solver

#endif
