#include "kernels/triangles/triangle_inverse.h"

#include "kernels/processor.h"

namespace korin::kernels {

TriangleInverseFunction smallTriangleInverse() {
  switch (processorLevel()) {
    case ProcessorLevel::Avx512:
      return invertTriangleAvx512;
    case ProcessorLevel::Avx2:
      return invertTriangleAvx2;
    default:
      return invertTriangleBaseline;
  }
}

}  // namespace korin::kernels
