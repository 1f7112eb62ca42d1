#include "kernels/tiles/lane_avx2.h"
#include "kernels/triangles/triangle_rows.h"

namespace korin::kernels {

void invertTriangleAvx2(size_t n, const double* l, ptrdiff_t ld, double* w, ptrdiff_t wStride) {
  invertByRows<Lane>(n, l, ld, w, wStride);
}

}  // namespace korin::kernels
