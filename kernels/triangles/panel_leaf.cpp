#include "kernels/triangles/panel_leaf.h"

#include "kernels/processor.h"

namespace korin::kernels {

PanelLeafFunction panelLeaf() {
  switch (processorLevel()) {
    case ProcessorLevel::Avx512:
      return panelLeafAvx512;
    case ProcessorLevel::Avx2:
      return panelLeafAvx2;
    default:
      return panelLeafBaseline;
  }
}

LeafSolveFunction leafSolve() {
  switch (processorLevel()) {
    case ProcessorLevel::Avx512:
      return leafSolveAvx512;
    case ProcessorLevel::Avx2:
      return leafSolveAvx2;
    default:
      return leafSolveBaseline;
  }
}

}  // namespace korin::kernels
