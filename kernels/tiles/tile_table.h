#ifndef ZEPH_KERNELS_TILES_TILE_TABLE_H
#define ZEPH_KERNELS_TILES_TILE_TABLE_H

// The table of one processor level. Included only by the tile_*.cpp files, each with the Lane of
// its level (kernels/tiles/lane_*.h).

#include "kernels/tiles/combine_rows.h"
#include "kernels/tiles/register_tile.h"
#include "kernels/tiles/tile.h"

namespace korin::kernels {

/// Fills a table at compile time with the tiles of a Shape, which says what the registers of a
/// level hold:
///
///   struct Shape {
///     static constexpr int kRows;            // of a full tile
///     static constexpr int kVectors[kRows];  // of the widest tile with so many rows
///     static constexpr bool kHalves;         // tiles may end in Lane::Half
///     static constexpr int kDotCols;         // of the widest dot-product tile
///   };
template <class Lane, class Shape>
class TileTableBuilder {
 public:
  static consteval TileTable build(TransposeFunction transpose) {
    TileTable table{};
    table.width = Lane::kWidth;
    table.rows = Shape::kRows;
    for (int r = 0; r < Shape::kRows; ++r) {
      table.vectors[r] = static_cast<unsigned char>(Shape::kVectors[r]);
    }
    table.dotCols = Shape::kDotCols;
    table.transpose = transpose;
    table.combine = &CombineRows<Lane>::run;
    addTiles<TileTail::Whole>(table);
    addTiles<TileTail::Masked>(table);
    if constexpr (Shape::kHalves) {
      table.half = Lane::Half::kWidth;
      addTiles<TileTail::Half>(table);
    }
    addDotTiles(table);
    return table;
  }

 private:
  template <TileTail kTail, int kRows = 1, int kVectors = 1>
  static consteval void addTiles(TileTable& table) {
    constexpr int t = static_cast<int>(kTail), r = kRows - 1, v = kVectors - 1;
    using Ordered = RegisterTile<Lane, kRows, kVectors, false, kTail>;
    using Fused = RegisterTile<Lane, kRows, kVectors, true, kTail>;
    table.ordered[t][r][v] = &Ordered::run;
    table.fused[t][r][v] = &Fused::run;
    if constexpr (kRows == Shape::kRows) {
      table.orderedPacking[t][v] = &Ordered::pack;
      table.fusedPacking[t][v] = &Fused::pack;
    }
    if constexpr (kVectors < Shape::kVectors[r]) {
      addTiles<kTail, kRows, kVectors + 1>(table);
    } else if constexpr (kRows < Shape::kRows) {
      addTiles<kTail, kRows + 1, 1>(table);
    }
  }

  template <int kRows = 1, int kCols = 1>
  static consteval void addDotTiles(TileTable& table) {
    table.dot[kRows - 1][kCols - 1] = &DotTile<Lane, kRows, kCols>::run;
    if constexpr (kCols < Shape::kDotCols) {
      addDotTiles<kRows, kCols + 1>(table);
    } else if constexpr (kRows < static_cast<int>(kDotRows)) {
      addDotTiles<kRows + 1, 1>(table);
    }
  }
};

}  // namespace korin::kernels

#endif
