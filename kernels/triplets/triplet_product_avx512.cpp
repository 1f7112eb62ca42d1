#include "kernels/tiles/lane_avx512.h"
#include "kernels/triplets/triplet_strip.h"

namespace korin::kernels {
namespace {

template <int kVectors, bool kPartial>
constexpr TripletStripFunction kStrip = &TripletStrip<Lane, kVectors, kPartial>::run;

}  // namespace

const TripletStrips kAvx512TripletStrips = {
    8,
    4,
    {kStrip<1, false>, kStrip<2, false>, kStrip<3, false>, kStrip<4, false>},
    {kStrip<1, true>, kStrip<2, true>, kStrip<3, true>, kStrip<4, true>},
};

}  // namespace korin::kernels
