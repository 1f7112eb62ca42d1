// A picture of the levelling network, coloured by standard deviation.
#ifndef ZEPH_DEMO_NETWORK_PICTURE_H
#define ZEPH_DEMO_NETWORK_PICTURE_H

#include <string>

#include "zeph/demo/levelling_network.h"

namespace zeph {

/// An SVG document. Networks of up to some thousand points are drawn line by line; larger ones as a
/// mosaic of the mean standard deviation, so that the file stays small.
std::string drawNetwork(const LevellingNetwork& network, const ZtVector& variances);

}  // namespace zeph

#endif
