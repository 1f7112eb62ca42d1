#include "kernels/tiles/tile.h"

#include "kernels/processor.h"

namespace korin::kernels {

const TileTable& tiles() {
  static const TileTable* const kTables[] = {&kBaselineTiles, &kAvx2Tiles, &kAvx512Tiles};
  return *kTables[static_cast<int>(processorLevel())];
}

}  // namespace korin::kernels
