// Bundles whose truth is known.
#ifndef ZEPH_EXAMPLES_BUNDLE_ADJUSTMENT_SIMULATE_H
#define ZEPH_EXAMPLES_BUNDLE_ADJUSTMENT_SIMULATE_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "problem.h"

namespace bundle {

struct Simulation {
  enum class Layout {
    Block,  ///< strips of images from above hilly ground, each overlapping its neighbours
    Ring    ///< cameras around a tower, each of which sees the side before it
  };
  Layout layout = Layout::Block;
  std::size_t images = 60;
  std::size_t pointsPerImage = 20;  ///< points of the whole for each image; it sees more
  double pixelSigma = 0.5;
  std::size_t control = 8;  ///< control points
  double controlSigma = 0.02;
  std::uint64_t seed = 1;
};

struct Simulated {
  Problem truth;  ///< without noise in cameras and points
  Problem start;  ///< the same observations, cameras and points off by some per cent
  std::vector<Control> control;
};

/// The same for the same seed everywhere. Points that fewer than three cameras see are left out.
Simulated simulate(const Simulation& simulation);

}  // namespace bundle

#endif
