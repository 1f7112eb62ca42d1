#include "zeph/demo/demonstration.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "zeph/adjust.h"
#include "zeph/demo/network_picture.h"
#include "zeph/factor.h"
#include "zeph/files/atomic_file.h"
#include "zeph/jobs/report/page.h"
#include "zeph/matrix/record.h"

namespace zeph {

namespace {

constexpr std::size_t kSmallestSize = 2;
constexpr std::size_t kLargestDemonstration = 10000000;
// Errors within one campaign are correlated over wide areas; several campaigns make the comparison
// of their spread with 1 a sharp one. Large networks hold enough independent regions by themselves.
constexpr std::size_t kMostCampaigns = 50;
constexpr std::size_t kSolutionBudget = 2000000;
constexpr double kBlunder = 0.01;  // metres: a staff read wrong by one centimetre

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
  if (failure || !std::filesystem::is_directory(folder, failure)) {
    throw Error(ErrorKind::Output, folder + ": the folder cannot be made (" +
                                       (failure ? failure.message() : "a file is in the way") +
                                       "); choose another with --out");
  }
  return folder + "/";
}

void writeEstimates(AtomicFile& out, const LevellingNetwork& network, const ZtMatrix& heights,
                    const ZtVector& variances) {
  out.write("point,x_km,y_km,true_height_m,estimated_height_m,standard_deviation_m\n");
  char line[192];
  for (std::size_t i = 0; i < network.points.size(); ++i) {
    const LevellingPoint& p = network.points[i];
    std::snprintf(line, sizeof line, "%zu,%.6f,%.6f,%.6f,%.6f,%.9f\n", i, p.x, p.y, p.height,
                  heights.data[i * heights.stride], std::sqrt(variances.data[i]));
    out.write(line);
  }
}

/// Heights (points x campaigns) and their variances.
struct Solution {
  ZtMatrix heights;
  ZtVector variances;
};

Solution solveCampaigns(const LevellingNetwork& network, const DemonstrationOptions& options,
                        const Progress& progress, DemonstrationReport& report) {
  progress.begin("assembling");
  StopWatch watch;
  const SparseMatrix A = levellingNormalMatrix(network);
  const DenseMatrix B = fromRecord(levellingRightSides(network, report.campaigns, options.seed));
  report.assemblySeconds = watch.lap();

  progress.begin("factorising and solving");
  const Factor factor(A, options.solver);
  Solution s{toRecord(factor.solve(B)), ZtVector(report.points)};
  report.solveSeconds = watch.lap();

  progress.begin("computing the variances");
  factor.variances(s.variances.data, s.variances.size);
  report.varianceSeconds = watch.lap();
  return s;
}

/// One more campaign, with a blunder that its adjustment is to find.
Adjustment adjustWithBlunder(const LevellingNetwork& network, const DemonstrationOptions& options,
                             PlantedBlunder& b) {
  StopWatch watch;
  LevellingCampaign campaign = levellingCampaign(network, options.seed);
  b.line = wellConnectedLine(network, options.seed);
  b.from = network.lines[b.line].from;
  b.to = network.lines[b.line].to;
  b.size = kBlunder;
  b.observations = campaign.y.size();
  campaign.y[b.line] += b.size;
  Adjustment a = adjust(campaign.J, campaign.y, campaign.sigma, options.solver);
  b.suspect = a.suspect;
  if (b.suspect >= 0) {
    const auto s = static_cast<std::size_t>(b.suspect);
    b.normalizedResidual = a.normalizedResiduals[s];
    b.estimate = a.residuals[s] / a.redundancy[s];
  }
  b.seconds = watch.lap();
  return a;
}

std::string blunderPage(const LevellingNetwork& network, const Adjustment& a,
                        const std::string& picture, const DemonstrationOptions& options,
                        const PlantedBlunder& b) {
  ReportContents contents{a, {}, picture, {}, {}};
  contents.observationName = [&network](std::size_t i) {
    if (i >= network.lines.size()) {
      return "benchmark " + std::to_string(network.benchmarks[i - network.lines.size()].point);
    }
    const LevellingLine& line = network.lines[i];
    return "line " + std::to_string(line.from) + " to " + std::to_string(line.to);
  };
  contents.options.title = "Levelling network of " + std::to_string(options.size) + " points";
  contents.options.inputs = {
      {"Made by", "zeph demo --size " + std::to_string(options.size) + " --seed " +
                      std::to_string(options.seed)},
      {"Unit", "metre"},
      {"Blunder planted in", contents.observationName(b.line) + ": " +
                                 std::to_string(std::lround(1000.0 * b.size)) + " mm"}};
  contents.pictureCaption =
      "The network by the standard deviations of its heights. Triangles are benchmarks; the ring "
      "is around the observation with the largest normalised residual.";
  return adjustmentPage(contents);
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
  report.reportFile = folder + "report.html";
  AtomicFile::requireWritable(report.estimatesFile);
  AtomicFile::requireWritable(report.pictureFile);
  AtomicFile::requireWritable(report.reportFile);

  progress.begin("making the network");
  const LevellingNetwork network = makeLevellingNetwork(options.size, options.seed);
  report.points = network.points.size();
  report.lines = network.lines.size();
  report.benchmarks = network.benchmarks.size();
  report.campaigns = std::clamp<std::size_t>(kSolutionBudget / options.size, 1, kMostCampaigns);

  const auto [heights, variances] = solveCampaigns(network, options, progress, report);

  progress.begin("comparing with the truth");
  report.check = compareWithTruth(network, heights, variances);
  const auto [low, high] = std::minmax_element(variances.data, variances.data + variances.size);
  report.smallestSigma = std::sqrt(*low);
  report.largestSigma = std::sqrt(*high);
  for (std::size_t i = 0; i < report.points; ++i) {
    report.largestError = std::max(report.largestError, std::fabs(heights.data[i * heights.stride] -
                                                                  network.points[i].height));
  }

  progress.begin("looking for a planted blunder");
  const Adjustment adjustment = adjustWithBlunder(network, options, report.blunder);

  progress.begin("writing the estimates, the picture and the report");
  AtomicFile estimates(report.estimatesFile), drawing(report.pictureFile), page(report.reportFile);
  const std::string picture = drawNetwork(network, variances, report.blunder.suspect);
  writeEstimates(estimates, network, heights, variances);
  drawing.write(picture);
  page.write(blunderPage(network, adjustment, picture, options, report.blunder));
  AtomicFile::commitAll({&estimates, &drawing, &page});
  return report;
}

}  // namespace zeph
