// Commands that start at measurements.
#include <cmath>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "cli/command_parts.h"
#include "cli/commands.h"
#include "zeph/adjust.h"
#include "zeph/demo/demonstration.h"
#include "zeph/jobs/adjust_tables.h"
#include "zeph/jobs/pose_graph_output.h"

namespace zeph {

namespace {

struct AdjustOptions : Files {
  std::string sigma;
  std::string residuals;
  std::string report;
};

void addFigures(const Adjustment& a, JsonObject& figures) {
  figures.add("observations", a.residuals.size()).add("unknowns", a.x.size());
  figures.add("degrees_of_freedom", a.degreesOfFreedom).add("variance_factor", a.varianceFactor);
  figures.add("suspect", a.suspect);
}

AdjustmentReportOptions aboutReport(const AdjustOptions& o, std::size_t indexBase) {
  AdjustmentReportOptions about;
  about.inputs = {{"Design matrix", o.first},
                  {"Measured values", o.second},
                  {"Standard deviations", o.sigma.empty() ? "1 for all observations" : o.sigma}};
  about.sigmasGiven = !o.sigma.empty();
  about.indexBase = indexBase;
  return about;
}

int writeAdjusted(const AdjustOptions& o, Console& console) {
  requireOutput(o, o.output, {o.first, o.second, o.sigma});
  requireTwoOutputs(o, "--residuals", o.residuals, {o.first, o.second, o.sigma});
  requireTwoOutputs(o, "--report", o.report, {o.first, o.second, o.sigma});
  if (!o.residuals.empty() && !o.report.empty() && AtomicFile::same(o.residuals, o.report)) {
    throw Error(ErrorKind::Usage,
                "--residuals and --report both name " + o.report + "; name a file each");
  }
  const SparseMatrix J = load(o, console);
  const std::vector<double> y = toVector(loadDense(o, o.second, console), "observations");
  std::vector<double> sigma;
  if (!o.sigma.empty()) {
    sigma = toVector(loadDense(o, o.sigma, console), "standard deviations");
  }
  const Adjustment result = adjust(J, y, sigma, shownOn(console, o));
  console.begin("writing");
  addFigures(result, console.figures);
  if (inFigures(o, console)) {
    console.figures.add("values", result.x).add("standard_deviations", result.sigma);
  }
  for (const std::string& sentence : result.factor->warnings()) console.warning(sentence);
  tellReport(result.factor->report(), console, &J.indexBase);
  // Memory may fail before the files stand, not after.
  const std::vector<std::string> said = summary(result, J.indexBase);
  writeAdjustment({inFigures(o, console) ? "/dev/null" : o.output, o.residuals, o.report}, result,
                  aboutReport(o, J.indexBase));
  for (const std::string& line : said) console.note(line);
  return 0;
}

struct PoseGraphArguments : Files {
  std::vector<std::string> pairs;
  std::string plot;
};

int writePoseGraph(const PoseGraphArguments& o, Console& console) {
  requireNamedOutput(o, console);
  requireOutput(o, o.output, {o.first});
  requireTwoOutputs(o, "--plot", o.plot, {o.first});
  if (!o.pairs.empty() && (o.output == "-" || console.manner.json)) {
    throw Error(ErrorKind::Usage, "--pairs writes to standard output; name a file with -o" +
                                      std::string(console.manner.json ? ", without --json" : ""));
  }
  console.begin("reading");
  PoseGraph graph = readPoseGraph(o.first);
  std::vector<std::pair<std::size_t, std::size_t>> pairs;
  for (const std::string& pair : o.pairs) pairs.push_back(posePair(graph, pair));
  PoseGraphOptions how;
  how.solver = shownOn(console, o);
  how.iterated = [&console](int iteration, double cost, double damping) {
    char line[96];
    std::snprintf(line, sizeof line, "iteration %d: cost %.10g, damping %.3g", iteration, cost,
                  damping);
    console.note(line);
  };
  const PoseGraphResult result = optimise(std::move(graph), how);
  const std::vector<DenseMatrix> covariances = result.covariances();
  for (const std::string& sentence : result.warnings()) console.warning(sentence);
  console.begin("writing");
  AtomicFile poses(o.output);
  std::optional<AtomicFile> picture, blocks;
  writePoses(poses, result.graph, covariances);
  if (!o.plot.empty()) {
    picture.emplace(o.plot);
    picture->write(drawPoseGraph(result.graph, covariances));
  }
  if (!pairs.empty()) {
    blocks.emplace("-");
    writePairs(*blocks, result, pairs);
  }
  AtomicFile::commitAll({&poses, picture ? &*picture : nullptr, blocks ? &*blocks : nullptr});
  console.figures.add("poses", result.graph.poses.size()).add("edges", result.graph.edges.size());
  console.figures.add("initial_cost", result.initialCost).add("cost", result.cost);
  console.figures.add("iterations", result.iterations).add("converged", result.converged);
  if (result.factor != nullptr) tellReport(result.factor->report(), console);
  if (!result.converged) console.warning("the iterations ended before they converged");
  return 0;
}

struct DemoOptions : Files {
  DemonstrationOptions demonstration;
};

void printBlunder(const PlantedBlunder& b) {
  std::printf("Adjustment           %.3f s for one more campaign, with redundancies\n", b.seconds);
  std::printf("Planted blunder      %.1f mm in line %zu, from point %u to %u\n", 1000.0 * b.size,
              b.line, b.from, b.to);
  if (b.suspect < 0) {
    std::printf("Suspected            none: no observation is checked by others\n");
    return;
  }
  std::printf(
      "Suspected            %s, of %zu observations; normalised residual %.1f, by about %.1f mm\n",
      b.found() ? "that line" : ("another: observation " + std::to_string(b.suspect)).c_str(),
      b.observations, b.normalizedResidual, 1000.0 * b.estimate);
}

void printDemonstration(const DemonstrationReport& r) {
  std::printf("Levelling network    %zu points, %zu lines, %zu benchmarks\n", r.points, r.lines,
              r.benchmarks);
  std::printf("Assembly             %.3f s\n", r.assemblySeconds);
  std::printf("Solution             %.3f s for %zu simulated campaigns\n", r.solveSeconds,
              r.campaigns);
  std::printf("Variances            %.3f s, every diagonal entry of the inverse\n",
              r.varianceSeconds);
  std::printf("Standard deviations  %.3f mm to %.3f mm; largest true error %.3f mm\n",
              1000.0 * r.smallestSigma, 1000.0 * r.largestSigma, 1000.0 * r.largestError);
  std::printf(
      "Normalised errors    spread %.3f (1 when the variances are right); within 1 sigma "
      "%.1f %%, within 2 sigma %.1f %% (68.3, 95.4)\n",
      r.check.spread, 100.0 * r.check.withinOne, 100.0 * r.check.withinTwo);
  printBlunder(r.blunder);
  std::printf("Estimates            %s\n", r.estimatesFile.c_str());
  std::printf("Picture              %s\n", r.pictureFile.c_str());
  std::printf("Report               %s\n", r.reportFile.c_str());
}

int runDemo(const DemoOptions& o, Console& console) {
  DemonstrationOptions options = o.demonstration;
  options.solver = shownOn(console, o);
  const DemonstrationReport r = runDemonstration(options, console);
  console.figures.add("points", r.points).add("lines", r.lines).add("benchmarks", r.benchmarks);
  console.figures.add("campaigns", r.campaigns).add("seconds_assembly", r.assemblySeconds);
  console.figures.add("seconds_solution", r.solveSeconds);
  console.figures.add("seconds_variances", r.varianceSeconds);
  console.figures.add("smallest_standard_deviation", r.smallestSigma);
  console.figures.add("largest_standard_deviation", r.largestSigma);
  console.figures.add("largest_true_error", r.largestError).add("spread", r.check.spread);
  console.figures.add("estimates", r.estimatesFile).add("picture", r.pictureFile);
  console.figures.add("planted", r.blunder.line).add("suspect", r.blunder.suspect);
  console.figures.add("report", r.reportFile);
  console.finish();
  if (!console.manner.json) printDemonstration(r);
  return 0;
}

}  // namespace

void declareAdjust(Application& z) {
  auto options = std::make_shared<AdjustOptions>();
  CLI::App* command = declare(
      z, "adjust", "Least squares: unknowns with standard deviations, checked observations",
      "  zeph adjust J.mtx y.mtx --sigma s.mtx -o x.csv --residuals r.csv\n"
      "  zeph adjust J.mtx y.mtx --sigma s.mtx -o x.csv --report out.html\n"
      "  zeph adjust J.mtx y.mtx              all standard deviations 1, lines on standard output",
      options, writeAdjusted);
  addArgument(command, "J", options->first, "design matrix: a row for each observation", "J.mtx");
  addArgument(command, "y", options->second, "observations", "y.mtx");
  command
      ->add_option("--sigma", options->sigma,
                   "standard deviations of the observations, or one for all of them")
      ->type_name("s.mtx");
  addOutput(command, *options, "lines unknown,value,standard_deviation");
  command
      ->add_option("--residuals", options->residuals,
                   "lines observation,residual,standard_deviation,redundancy,leverage,"
                   "normalized_residual")
      ->type_name("FILE");
  command
      ->add_option("--report", options->report,
                   "everything on one page for a browser: figures, tests, charts, sortable tables")
      ->type_name("OUT.html");
  addInput(command, *options);
  addFactorMemory(command, *options);
}

void declarePoseGraph(Application& z) {
  auto options = std::make_shared<PoseGraphArguments>();
  CLI::App* command =
      declare(z, "pose-graph", "Optimise a pose graph: poses with standard deviations",
              "  zeph pose-graph file.g2o -o poses.csv --plot graph.svg\n"
              "  zeph pose-graph file.g2o -o poses.csv --pairs 3,17 3,18   covariances on standard "
              "output",
              options, writePoseGraph);
  addArgument(command, "file", options->first, "pose graph, 2-D or 3-D", "FILE.g2o");
  addOutput(command, *options, "a line for each pose, with its standard deviations");
  command->add_option("--pairs", options->pairs, "ids of poses whose cross-covariance is wanted")
      ->type_name("I,J");
  command->add_option("--plot", options->plot, "a picture")->type_name("OUT.svg");
  addFactorMemory(command, *options);
}

void declareDemo(Application& z) {
  auto options = std::make_shared<DemoOptions>();
  CLI::App* command =
      declare(z, "demo", "Adjust a levelling network and draw its standard deviations",
              "  zeph demo\n"
              "  zeph demo --size 1000000 --out big",
              options, runDemo);
  command->add_option("--size", options->demonstration.size, "points of the network")
      ->check(wholeNumber(2, 10000000))
      ->type_name("N")
      ->capture_default_str();
  command->add_option("--seed", options->demonstration.seed, "another network for another seed")
      ->check(wholeNumber(0, INT64_MAX))
      ->type_name("S")
      ->capture_default_str();
  command
      ->add_option("--out", options->demonstration.folder,
                   "folder for estimates.csv, network.svg and report.html")
      ->type_name("DIR")
      ->capture_default_str();
  addFactorMemory(command, *options);
}

}  // namespace zeph
