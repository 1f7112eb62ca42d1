#include "kernels/triplets/triplet_bands.h"

#include <algorithm>
#include <cstdint>
#include <new>
#include <utility>
#include <vector>

#include "kernels/panel_storage.h"
#include "kernels/triplets/triplet_product.h"

namespace korin::kernels {
namespace {

/// The widest strip of columns that the product takes in one pass.
constexpr std::size_t kStripCols = 32;
/// With fewer columns the sort costs more than the cache misses it saves.
constexpr std::size_t kLeastCols = 16;
/// Up to this size C, and B with it, are close enough without bands: in the third-level cache.
constexpr std::size_t kLeastBytes = 6u << 20;
/// A band's share of C: what the second-level cache holds beside rows of B.
constexpr std::size_t kBandBytes = 64u << 10;
/// So many places at a time can be written to without missing the address cache on each.
constexpr std::size_t kMostBands = 1024;

struct Triplet {
  std::uint32_t row;
  std::uint32_t col;
  double value;
};

std::size_t rowBytes(std::size_t cols) {
  return std::min(cols, kStripCols) * sizeof(double);
}

/// Bands have 2^shift rows.
unsigned bandShift(std::size_t rows, std::size_t cols) {
  unsigned shift = 0;
  while ((rowBytes(cols) << (shift + 1)) <= kBandBytes || (rows >> shift) >= kMostBands) ++shift;
  return shift;
}

bool near(std::uint32_t a, std::uint32_t b) {
  constexpr std::uint32_t kNear = 64;
  return (a < b ? b - a : a - b) <= kNear;
}

/// Whether one of the triplets that follow is in a row or column near to the first one's.
bool hasNeighbour(const Triplet* t, std::size_t following) {
  for (std::size_t k = 1; k <= following; ++k) {
    if (near(t[0].row, t[k].row) || near(t[0].col, t[k].col)) return true;
  }
  return false;
}

/// Copies the triplets into bands; ends[k] = where band k ends.
void fillBands(const Triplet* list, std::size_t count, unsigned shift,
               std::vector<std::size_t>& ends, Triplet* banded) {
  std::fill(ends.begin(), ends.end(), 0);
  for (std::size_t i = 0; i < count; ++i) ++ends[list[i].row >> shift];
  std::size_t total = 0;
  for (std::size_t& end : ends) total += std::exchange(end, total);
  for (std::size_t i = 0; i < count; ++i) banded[ends[list[i].row >> shift]++] = list[i];
}

}  // namespace

bool bandsPay(const void* triplets, std::size_t count, std::size_t rows, std::size_t cols) {
  constexpr std::size_t kSamples = 256;
  constexpr std::size_t kFollowing = 4;
  if (cols < kLeastCols || rows * rowBytes(cols) < kLeastBytes) return false;
  if (count < kSamples * (kFollowing + 1)) return false;
  const auto* list = static_cast<const Triplet*>(triplets);
  const std::size_t step = (count - kFollowing) / kSamples;
  std::size_t alone = 0;
  for (std::size_t s = 0; s < kSamples; ++s) alone += !hasNeighbour(list + s * step, kFollowing);
  return 2 * alone > kSamples;
}

void addTripletProductInBands(const void* triplets, std::size_t count, const double* b,
                              std::size_t ldb, double* c, std::size_t ldc, std::size_t rows,
                              std::size_t cols) {
  const unsigned shift = bandShift(rows, cols);
  PanelStorage workspace;
  std::vector<std::size_t> ends;
  try {
    ends.resize((rows >> shift) + 1);
    workspace = rawPanels(std::min(count, kBandPortion) * (sizeof(Triplet) / sizeof(double)));
  } catch (const std::bad_alloc&) {
    return addTripletProduct(triplets, count, b, ldb, c, ldc, cols);
  }
  auto* const banded = reinterpret_cast<Triplet*>(workspace.get());
  const auto* list = static_cast<const Triplet*>(triplets);
  while (count > 0) {
    const std::size_t portion = std::min(count, kBandPortion);
    fillBands(list, portion, shift, ends, banded);
    std::size_t first = 0;
    for (const std::size_t end : ends) {
      addTripletProduct(banded + first, end - first, b, ldb, c, ldc, cols);
      first = end;
    }
    list += portion;
    count -= portion;
  }
}

}  // namespace korin::kernels
