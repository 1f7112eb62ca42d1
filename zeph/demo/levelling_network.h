// The demonstration problem: heights of points from noisy height differences between neighbours and
// a few benchmarks of known height (geodetic levelling), on a random planar network made from a
// seed.
#ifndef ZEPH_DEMO_LEVELLING_NETWORK_H
#define ZEPH_DEMO_LEVELLING_NETWORK_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "types/zttypes.h"
#include "zeph/sparse_matrix.h"

namespace zeph {

/// A point of the network: position in kilometres, true height in metres.
struct LevellingPoint {
  double x;
  double y;
  double height;
};

/// A levelled line between two points. Its standard deviation grows with the square root of the
/// length, as levelling errors do.
struct LevellingLine {
  std::uint32_t from;
  std::uint32_t to;
  double sigma;  // metres
};

/// A point whose height is given from outside.
struct Benchmark {
  std::uint32_t point;
  double sigma;  // metres
};

struct LevellingNetwork {
  std::vector<LevellingPoint> points;
  std::vector<LevellingLine> lines;
  std::vector<Benchmark> benchmarks;
};

/// A connected network of `size` >= 2 points, the same for the same seed.
LevellingNetwork makeLevellingNetwork(std::size_t size, std::uint64_t seed);

/// Normal matrix of the least-squares problem by its lower triangle: per line the 2 x 2 block
/// w [1 -1; -1 1], per benchmark w on the diagonal, w = 1 / sigma^2.
SparseMatrix levellingNormalMatrix(const LevellingNetwork& network);

/// Right-hand sides for `campaigns` independent simulated measurements of the whole network
/// (columns of the result): true height differences and heights plus Gaussian noise of the given
/// sigmas.
ZtMatrix levellingRightSides(const LevellingNetwork& network, std::size_t campaigns,
                             std::uint64_t seed);

/// One simulated campaign as least squares take it: a row for each line, the height of `to` less
/// that of `from`, then one for each benchmark, its height.
struct LevellingCampaign {
  SparseMatrix J;
  std::vector<double> y, sigma;
};

LevellingCampaign levellingCampaign(const LevellingNetwork& network, std::uint64_t seed);

/// A line, by the seed, whose ends have so many other lines that an error of it can be told from
/// errors of its neighbours; in very small networks the best there is.
std::size_t wellConnectedLine(const LevellingNetwork& network, std::uint64_t seed);

/// How well the predicted standard deviations describe the true errors.
struct SpreadCheck {
  /// Root mean square of error / sigma over all points and campaigns: 1 when sigma is right.
  double spread;
  /// Share of errors within one and two sigma: 0.683 and 0.954 when sigma is right.
  double withinOne;
  double withinTwo;
};

/// Compares estimated heights (points x campaigns) with the true ones.
SpreadCheck compareWithTruth(const LevellingNetwork& network, const ZtMatrix& heights,
                             const ZtVector& variances);

}  // namespace zeph

#endif
