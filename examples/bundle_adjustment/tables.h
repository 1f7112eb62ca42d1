// What an adjusted bundle is written as.
#ifndef ZEPH_EXAMPLES_BUNDLE_ADJUSTMENT_TABLES_H
#define ZEPH_EXAMPLES_BUNDLE_ADJUSTMENT_TABLES_H

#include <string>
#include <vector>

#include "adjustment.h"

namespace bundle {

/// A line a camera: centre, focal length, k1, k2 and the standard deviations of its nine unknowns,
/// those of the turns in radians.
std::string cameraTable(const Adjustment& adjustment,
                        const std::vector<zeph::DenseMatrix>& covariances);

/// A line a camera: the lower triangle of its covariance, row after row.
std::string blockTable(const std::vector<zeph::DenseMatrix>& covariances);

/// A line a point: coordinates, standard deviations, covariances xy, xz, yz.
std::string pointTable(const Adjustment& adjustment, const std::vector<std::size_t>& points,
                       const std::vector<zeph::DenseMatrix>& covariances);

/// SVG: cameras from above with the ellipses of their positions at 95 %, magnified as it says;
/// points and control points.
std::string picture(const Adjustment& adjustment,
                    const std::vector<zeph::DenseMatrix>& cameraCovariances);

}  // namespace bundle

#endif
