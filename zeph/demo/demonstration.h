// The main job from end to end on the levelling network: assemble, solve, variances, comparison
// with the truth, the search for a planted blunder, estimates, picture and report.
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
  /// Made when missing; gets estimates.csv, network.svg and report.html.
  std::string folder = "zeph-demo";
  Options solver;
};

/// A gross error in one line of a campaign, and what the adjustment made of it.
struct PlantedBlunder {
  std::size_t line = 0;
  std::uint32_t from = 0, to = 0;   ///< the points that it joins
  double size = 0.0;                ///< metres
  std::size_t observations = 0;     ///< among which it was looked for
  std::int64_t suspect = -1;        ///< observation that the adjustment suspects; lines come first
  double normalizedResidual = 0.0;  ///< of the suspect
  double estimate = 0.0;            ///< its error as it follows from its residual, metres
  double seconds = 0.0;

  bool found() const { return suspect == static_cast<std::int64_t>(line); }
};

struct DemonstrationReport {
  std::size_t points = 0, lines = 0, benchmarks = 0;
  std::size_t campaigns = 0;  ///< simulated measurements of the network that were solved
  double assemblySeconds = 0.0, solveSeconds = 0.0, varianceSeconds = 0.0;
  double smallestSigma = 0.0, largestSigma = 0.0;  ///< metres
  double largestError = 0.0;                       ///< metres, first campaign
  SpreadCheck check{};
  PlantedBlunder blunder;
  std::string estimatesFile, pictureFile, reportFile;
};

/// Runs the demonstration. Memory is proportional to the Cholesky factor.
/// Throws Error(Usage) for a size out of range, Error(Output) when the folder cannot be written.
DemonstrationReport runDemonstration(const DemonstrationOptions& options,
                                     const Progress& progress = Progress());

}  // namespace zeph

#endif
