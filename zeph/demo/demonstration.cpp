#include "zeph/demo/demonstration.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "zeph/demo/network_picture.h"
#include "zeph/factor.h"
#include "zeph/files/atomic_file.h"
#include "zeph/matrix/record.h"

namespace zeph {

namespace {

constexpr std::size_t kSmallestSize = 2;
constexpr std::size_t kLargestDemonstration = 10000000;
// Errors within one campaign are correlated over wide areas; several campaigns make the comparison
// of their spread with 1 a sharp one. Large networks hold enough independent regions by themselves.
constexpr std::size_t kMostCampaigns = 50;
constexpr std::size_t kSolutionBudget = 2000000;

class StopWatch {
 public:
  double lap() {
    const auto now = std::chrono::steady_clock::now();
    const double seconds = std::chrono::duration<double>(now - start_).count();
    start_ = now;
    return seconds;
  }

 private:
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

std::string makeFolder(const std::string& folder) {
  std::error_code failure;
  std::filesystem::create_directories(folder, failure);
  if (failure || !std::filesystem::is_directory(folder)) {
    throw Error(ErrorKind::Output, folder + ": the folder cannot be made (" +
                                       (failure ? failure.message() : "a file is in the way") +
                                       "); choose another with --out");
  }
  return folder + "/";
}

void writeEstimates(const std::string& path, const LevellingNetwork& network,
                    const ZtMatrix& heights, const ZtVector& variances) {
  AtomicFile out(path);
  out.write("point,x_km,y_km,true_height_m,estimated_height_m,standard_deviation_m\n");
  char line[192];
  for (std::size_t i = 0; i < network.points.size(); ++i) {
    const LevellingPoint& p = network.points[i];
    std::snprintf(line, sizeof line, "%zu,%.6f,%.6f,%.6f,%.6f,%.9f\n", i, p.x, p.y, p.height,
                  heights.data[i * heights.stride], std::sqrt(variances.data[i]));
    out.write(line);
  }
  out.commit();
}

void writePicture(const std::string& path, const LevellingNetwork& network,
                  const ZtVector& variances) {
  AtomicFile out(path);
  out.write(drawNetwork(network, variances));
  out.commit();
}

}  // namespace

DemonstrationReport runDemonstration(const DemonstrationOptions& options,
                                     const Progress& progress) {
  if (options.size < kSmallestSize || options.size > kLargestDemonstration) {
    throw Error(ErrorKind::Usage, "a network of " + std::to_string(options.size) +
                                      " points cannot be made; choose a size from 2 to 10000000");
  }
  const std::string folder = makeFolder(options.folder);
  DemonstrationReport report;
  report.estimatesFile = folder + "estimates.csv";
  report.pictureFile = folder + "network.svg";
  AtomicFile::requireWritable(report.estimatesFile);
  AtomicFile::requireWritable(report.pictureFile);

  progress.begin("making the network");
  const LevellingNetwork network = makeLevellingNetwork(options.size, options.seed);
  report.points = network.points.size();
  report.lines = network.lines.size();
  report.benchmarks = network.benchmarks.size();
  report.campaigns = std::clamp<std::size_t>(kSolutionBudget / options.size, 1, kMostCampaigns);

  progress.begin("assembling");
  StopWatch watch;
  const SparseMatrix A = levellingNormalMatrix(network);
  const DenseMatrix B = fromRecord(levellingRightSides(network, report.campaigns, options.seed));
  report.assemblySeconds = watch.lap();

  progress.begin("factorising and solving");
  const Factor factor(A, options.solver);
  const ZtMatrix heights = toRecord(factor.solve(B));
  report.solveSeconds = watch.lap();

  progress.begin("computing the variances");
  ZtVector variances(report.points);
  factor.variances(variances.data, variances.size);
  report.varianceSeconds = watch.lap();

  progress.begin("comparing with the truth");
  report.check = compareWithTruth(network, heights, variances);
  const auto [low, high] = std::minmax_element(variances.data, variances.data + variances.size);
  report.smallestSigma = std::sqrt(*low);
  report.largestSigma = std::sqrt(*high);
  for (std::size_t i = 0; i < report.points; ++i) {
    report.largestError = std::max(report.largestError, std::fabs(heights.data[i * heights.stride] -
                                                                  network.points[i].height));
  }

  progress.begin("writing the estimates and the picture");
  writeEstimates(report.estimatesFile, network, heights, variances);
  writePicture(report.pictureFile, network, variances);
  return report;
}

}  // namespace zeph
