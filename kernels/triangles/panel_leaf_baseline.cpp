#include "kernels/tiles/lane_sse2.h"
#include "kernels/triangles/panel_leaf_rows.h"

namespace korin::kernels {

size_t panelLeafBaseline(size_t rows, size_t columns, double* panel, size_t stride) {
  return runPanelLeaf<Lane>(rows, columns, panel, stride);
}

}  // namespace korin::kernels
