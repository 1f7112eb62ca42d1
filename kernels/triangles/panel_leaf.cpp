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

}  // namespace korin::kernels
