#include "math/kernels/tile.h"

#include "math/kernels/processor.h"

namespace korin::kernels {

const TileTable& tiles() {
  switch (processorLevel()) {
    case ProcessorLevel::Avx512:
      return kAvx512Tiles;
    case ProcessorLevel::Avx2:
      return kAvx2Tiles;
    default:
      return kBaselineTiles;
  }
}

}  // namespace korin::kernels
