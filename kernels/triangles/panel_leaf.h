#ifndef ZEPH_KERNELS_TRIANGLES_PANEL_LEAF_H
#define ZEPH_KERNELS_TRIANGLES_PANEL_LEAF_H

// Files for one processor level include this header, so it must not pull in the standard library's
// templates.

#include <stddef.h>

namespace korin::kernels {

/// Most columns of a panel that is factorised in vector registers.
inline constexpr size_t kLeafColumns = 8;

/// panelCholesky for up to kLeafColumns columns: L11 of the top square, then L21 = A21 L11^-T, some
/// rows at a time. Above the diagonal nothing is read or written. Returns the columns whose pivots
/// are positive and finite up to their own; the rows below are done only if all are.
using PanelLeafFunction = size_t (*)(size_t rows, size_t columns, double* panel, size_t stride);

size_t panelLeafBaseline(size_t rows, size_t columns, double* panel, size_t stride);
size_t panelLeafAvx2(size_t rows, size_t columns, double* panel, size_t stride);
size_t panelLeafAvx512(size_t rows, size_t columns, double* panel, size_t stride);

/// The second half alone: X = X L^-T for `rows` rows of X and the lower triangle L of the same
/// columns. The same bits as from panelLeaf.
using LeafSolveFunction = void (*)(size_t rows, size_t columns, const double* l, size_t lStride,
                                   double* x, size_t xStride);

void leafSolveBaseline(size_t rows, size_t columns, const double* l, size_t lStride, double* x,
                       size_t xStride);
void leafSolveAvx2(size_t rows, size_t columns, const double* l, size_t lStride, double* x,
                   size_t xStride);
void leafSolveAvx512(size_t rows, size_t columns, const double* l, size_t lStride, double* x,
                     size_t xStride);

/// The functions of the processor level in use.
PanelLeafFunction panelLeaf();
LeafSolveFunction leafSolve();

}  // namespace korin::kernels

#endif
