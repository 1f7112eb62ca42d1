// A picture of the levelling network, coloured by standard deviation.
#ifndef ZEPH_DEMO_NETWORK_PICTURE_H
#define ZEPH_DEMO_NETWORK_PICTURE_H

#include <cstdint>
#include <string>

#include "zeph/demo/levelling_network.h"

namespace zeph {

/// An SVG document. Networks of up to some thousand points are drawn line by line; larger ones as a
/// mosaic of the mean standard deviation, so that the file stays small. The observation `suspect`
/// (lines first, then benchmarks; -1 for none) gets a ring. Colours follow the reader's scheme,
/// light or dark.
std::string drawNetwork(const LevellingNetwork& network, const ZtVector& variances,
                        std::int64_t suspect);

}  // namespace zeph

#endif
