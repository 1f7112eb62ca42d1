#include "kernels/triplets/triplet_product.h"

#include "kernels/processor.h"
#include "kernels/tiles/lane_sse2.h"
#include "kernels/triplets/triplet_strip.h"

namespace korin::kernels {
namespace {

struct SingleLane {
  using Vector = double;
  struct Mask {};
  static constexpr int kWidth = 1;
  static Vector load(const double* p) { return *p; }
  static void store(double* p, Vector x) { *p = x; }
  static Mask mask(size_t) { return {}; }
  static Vector broadcast(const double* p) { return *p; }
  static Vector add(Vector x, Vector y) { return x + y; }
  static Vector multiply(Vector x, Vector y) { return x * y; }
};

template <int kVectors, bool kPartial>
constexpr TripletStripFunction kStrip = &TripletStrip<Lane, kVectors, kPartial>::run;

constexpr TripletStrips kBaselineTripletStrips = {
    2,
    8,
    {kStrip<1, false>, kStrip<2, false>, kStrip<3, false>, kStrip<4, false>, kStrip<5, false>,
     kStrip<6, false>, kStrip<7, false>, kStrip<8, false>},
    {kStrip<1, true>, kStrip<2, true>, kStrip<3, true>, kStrip<4, true>, kStrip<5, true>,
     kStrip<6, true>, kStrip<7, true>, kStrip<8, true>},
};

const TripletStrips& tripletStrips() {
  switch (processorLevel()) {
    case ProcessorLevel::Avx512:
      return kAvx512TripletStrips;
    case ProcessorLevel::Avx2:
      return kAvx2TripletStrips;
    default:
      return kBaselineTripletStrips;
  }
}

}  // namespace

void addTripletProduct(const void* triplets, std::size_t count, const double* b, std::size_t ldb,
                       double* c, std::size_t ldc, std::size_t cols) {
  const char* list = static_cast<const char*>(triplets);
  if (cols == 1) return TripletStrip<SingleLane, 1, false>::run(list, count, b, ldb, c, ldc, 1);
  const TripletStrips& strips = tripletStrips();
  const std::size_t widest = strips.width * strips.vectors;
  for (std::size_t first = 0; first < cols; first += widest) {
    const std::size_t strip = cols - first < widest ? cols - first : widest;
    const std::size_t vectors = (strip + strips.width - 1) / strips.width;
    const std::size_t lastCols = strip - (vectors - 1) * strips.width;
    const TripletStripFunction* run = lastCols == strips.width ? strips.full : strips.partial;
    run[vectors - 1](list, count, b + first, ldb, c + first, ldc, lastCols);
  }
}

}  // namespace korin::kernels
