// Dense Cholesky on column-major fronts, in free summation order: the arithmetic of sparse factors.
#ifndef ZEPH_KERNELS_TRIANGLES_FRONT_CHOLESKY_H
#define ZEPH_KERNELS_TRIANGLES_FRONT_CHOLESKY_H

#include <cstddef>

namespace korin::kernels {

class Team;

/// Doubles of scratch that `frontCholesky` needs.
std::size_t frontScratch(std::size_t rows, std::size_t columns);

/// The first `columns` columns of the Cholesky factor of a symmetric matrix, in place, and what
/// they take from the rest of the matrix.
///
/// Element (i, j) of the rows x columns panel, rows >= columns, lies at panel[i + j * stride]; the
/// lower triangle of the top square and everything below it count, what is above the diagonal may
/// be overwritten. On return the top square holds L11 and the rest L21 = A21 L11^-T.
///
/// `update`, unless it is null, becomes -L21 L21^T: the lower triangle, column-major with
/// rows - columns rows and columns and as much from one column to the next; small blocks above the
/// diagonal may be written as well.
///
/// Returns `columns`, or the first j whose pivot is not a positive finite number; columns from j on
/// and the update are then undefined. The bits do not depend on the team, which may be null, and
/// whose exceptions pass. Cost: a multiplication and an addition for each two of the elements
/// (i, j, k), k <= j <= i, k < columns.
std::size_t frontCholesky(std::size_t rows, std::size_t columns, double* panel, std::size_t stride,
                          double* update, double* scratch, Team* team);

}  // namespace korin::kernels

#endif
