// The main job from end to end on the levelling network: assemble, solve, variances, comparison
// with the truth, estimates and picture.
#ifndef ZEPH_DEMO_DEMONSTRATION_H
#define ZEPH_DEMO_DEMONSTRATION_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "zeph/checks/progress.h"
#include "zeph/demo/levelling_network.h"
#include "zeph/options.h"

namespace zeph {

struct DemonstrationOptions {
  std::size_t size = 10000;  ///< points, 2 to 10,000,000
  std::uint64_t seed = 1;
  std::string folder = "zeph-demo";  ///< made when missing; gets estimates.csv and network.svg
  Options solver;
};

struct DemonstrationReport {
  std::size_t points = 0, lines = 0, benchmarks = 0;
  std::size_t campaigns = 0;  ///< simulated measurements of the network that were solved
  double assemblySeconds = 0.0, solveSeconds = 0.0, varianceSeconds = 0.0;
  double smallestSigma = 0.0, largestSigma = 0.0;  ///< metres
  double largestError = 0.0;                       ///< metres, first campaign
  SpreadCheck check{};
  std::string estimatesFile, pictureFile;
};

/// Runs the demonstration. Memory is proportional to the Cholesky factor.
/// Throws Error(Usage) for a size out of range, Error(Output) when the folder cannot be written.
DemonstrationReport runDemonstration(const DemonstrationOptions& options,
                                     const Progress& progress = Progress());

}  // namespace zeph

#endif
