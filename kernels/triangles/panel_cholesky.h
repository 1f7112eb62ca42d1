// Dense Cholesky on column-major panels, in free summation order: the arithmetic of sparse factors.
#ifndef ZEPH_KERNELS_TRIANGLES_PANEL_CHOLESKY_H
#define ZEPH_KERNELS_TRIANGLES_PANEL_CHOLESKY_H

#include <cstddef>

namespace korin::kernels {

class Team;

/// The panel's first `columns` columns of the Cholesky factor of a symmetric matrix, in place.
///
/// Element (i, j) of the rows x columns panel, rows >= columns, lies at panel[i + j * stride]; the
/// lower triangle of the top square and everything below it count, what is above the diagonal may
/// be overwritten. On return the top square holds L11 and the rest L21 = A21 L11^-T.
///
/// Returns `columns`, or the first j whose pivot is not a positive finite number; columns from j on
/// are then undefined. The bits do not depend on the team, which may be null, and whose exceptions
/// pass. Throws std::bad_alloc at a thread's first calls. Cost: rows * columns^2 operations.
std::size_t panelCholesky(std::size_t rows, std::size_t columns, double* panel, std::size_t stride,
                          Team* team);

enum class Write { Over, AddTo };

/// C = (C) - A A^T for the trapezoid of C (rows x columns, rows >= columns) below and on the
/// diagonal. A is rows x inner, both column-major. Small blocks above the diagonal may be written
/// as well. As above for the team; nothing is checked. Cost: about rows * columns * inner * 2
/// operations less what is above the diagonal.
void subtractOuterProduct(std::size_t rows, std::size_t columns, std::size_t inner, const double* a,
                          std::size_t aStride, double* c, std::size_t cStride, Write write,
                          Team* team);

/// C = -X Y^T for a small block: C is rows x columns with cStride, X and Y are columns of one
/// matrix of `inner` columns, column-major with `stride`, of as many rows as C has rows and
/// columns.
void subtractBlock(std::size_t rows, std::size_t columns, std::size_t inner, const double* x,
                   const double* y, std::size_t stride, double* c, std::size_t cStride);

}  // namespace korin::kernels

#endif
