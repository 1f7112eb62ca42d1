#include "kernels/tiles/lane_sse2.h"
#include "kernels/triangles/panel_leaf_rows.h"

namespace korin::kernels {

size_t panelLeafBaseline(size_t rows, size_t columns, double* panel, size_t stride) {
  return runPanelLeaf<Lane>(rows, columns, panel, stride);
}

void leafSolveBaseline(size_t rows, size_t columns, const double* l, size_t lStride, double* x,
                       size_t xStride) {
  runLeafSolve<Lane>(rows, columns, l, lStride, x, xStride);
}

}  // namespace korin::kernels
