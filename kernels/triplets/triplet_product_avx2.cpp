#include "kernels/tiles/lane_avx2.h"
#include "kernels/triplets/triplet_strip.h"

namespace korin::kernels {
namespace {

template <int kVectors, bool kPartial>
constexpr TripletStripFunction kStrip = &TripletStrip<Lane, kVectors, kPartial>::run;

}  // namespace

const TripletStrips kAvx2TripletStrips = {
    4,
    8,
    {kStrip<1, false>, kStrip<2, false>, kStrip<3, false>, kStrip<4, false>, kStrip<5, false>,
     kStrip<6, false>, kStrip<7, false>, kStrip<8, false>},
    {kStrip<1, true>, kStrip<2, true>, kStrip<3, true>, kStrip<4, true>, kStrip<5, true>,
     kStrip<6, true>, kStrip<7, true>, kStrip<8, true>},
};

}  // namespace korin::kernels
