// The program: simulates bundles and adjusts them.
#include <zeph/error.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <map>
#include <new>
#include <string>
#include <vector>

#include "adjustment.h"
#include "simulate.h"
#include "tables.h"

namespace {

using std::size_t;

struct GenerateArguments {
  bundle::Simulation simulation;
  std::string out, control, truth;
};

struct AdjustArguments {
  bundle::Options options;
  std::string in, control, cameras, blocks, points, plot, adjusted;
  std::vector<size_t> chosen;
};

void generate(const GenerateArguments& a) {
  const bundle::Simulated s = bundle::simulate(a.simulation);
  bundle::writeProblem(a.out, s.start);
  if (!a.control.empty()) bundle::writeControl(a.control, s.control);
  if (!a.truth.empty()) bundle::writeProblem(a.truth, s.truth);
  std::printf("%zu cameras, %zu points, %zu observations\n", s.start.cameras.size(),
              s.start.points.size(), s.start.observations.size());
}

bundle::Datum datumOf(const AdjustArguments& a, const bundle::Problem& p) {
  if (!a.control.empty()) {
    return bundle::chooseDatum(p, bundle::readControl(a.control, p.points.size()));
  }
  return bundle::chooseDatum(p, {});
}

// Before the work, not after it.
void requireExisting(const AdjustArguments& a, const bundle::Problem& p) {
  for (const size_t chosen : a.chosen) {
    if (chosen < p.points.size()) continue;
    throw zeph::Error(zeph::ErrorKind::Usage,
                      "--only: there is no point " + std::to_string(chosen) + "; " + p.source +
                          " has " + std::to_string(p.points.size()) + ", from 0");
  }
}

void adjust(AdjustArguments& a) {
  bundle::Problem problem = bundle::readProblem(a.in);
  requireExisting(a, problem);
  const bundle::Datum datum = datumOf(a, problem);
  std::printf("%zu cameras, %zu points, %zu observations\n", problem.cameras.size(),
              problem.points.size(), problem.observations.size());
  if (datum.control.empty()) {
    std::printf("datum: camera %u is held, camera %u in %c for the scale\n", datum.held,
                datum.scaling, "xyz"[datum.coordinate]);
  } else {
    std::printf("datum: %zu control points\n", datum.control.size());
  }
  const auto count = 2.0 * static_cast<double>(problem.observations.size());
  a.options.iterated = [&](const bundle::Iteration& i) {
    std::printf("%3d  cost %.10g  per image coordinate %.4g  damping %.1g  %.3f s\n", i.number,
                i.cost, std::sqrt(i.cost / count), i.damping, i.seconds);
    std::fflush(stdout);
  };
  const bundle::Adjustment result = bundle::adjust(std::move(problem), datum, a.options);
  std::printf("%s; sigma0 %.4f (%.4f pixels), redundancy %lld\n",
              result.converged ? "converged" : "stopped before it converged", result.sigma0,
              result.sigma0 * a.options.pixelSigma, static_cast<long long>(result.redundancy));
  const zeph::Report report = result.factor->report();
  std::printf("factor: %lld unknowns, %lld entries, %.3g operations, analysed once in %.3f s\n",
              static_cast<long long>(report.unknowns), static_cast<long long>(report.entriesOfL),
              report.operations, report.secondsOrdering + report.secondsAnalysis);

  const auto cameras = result.cameraCovariances();
  if (!a.cameras.empty()) bundle::writeWhole(a.cameras, bundle::cameraTable(result, cameras));
  if (!a.blocks.empty()) bundle::writeWhole(a.blocks, bundle::blockTable(cameras));
  if (!a.plot.empty()) bundle::writeWhole(a.plot, bundle::picture(result, cameras));
  if (!a.points.empty()) {
    if (a.chosen.empty()) {
      for (size_t i = 0; i < result.problem.points.size(); ++i) a.chosen.push_back(i);
    }
    bundle::writeWhole(a.points,
                       bundle::pointTable(result, a.chosen, result.pointCovariances(a.chosen)));
  }
  if (!a.adjusted.empty()) bundle::writeProblem(a.adjusted, result.problem);
}

int run(int argc, char** argv) {
  CLI::App app(
      "Bundle adjustment with the covariances of all cameras, on zeph::Factor.\n"
      "\n"
      "  bundle_adjustment generate block.txt --control block.control\n"
      "  bundle_adjustment adjust block.txt --control block.control -o cameras.csv --plot "
      "block.svg");
  app.require_subcommand(1);

  GenerateArguments g;
  CLI::App& generating = *app.add_subcommand("generate", "Write a simulated bundle");
  const std::map<std::string, bundle::Simulation::Layout> layouts = {
      {"block", bundle::Simulation::Layout::Block}, {"ring", bundle::Simulation::Layout::Ring}};
  generating.add_option("out", g.out, "File to write")->required();
  generating.add_option("--control", g.control, "File for control points: point x y z sigma");
  generating.add_option("--truth", g.truth, "File for the bundle without errors");
  generating
      .add_option("--layout", g.simulation.layout, "block: strips from above; ring: around a tower")
      ->transform(CLI::CheckedTransformer(layouts).description("block or ring"));
  generating.add_option("--images", g.simulation.images, "Images [60]")
      ->check(CLI::Range(3, 100000));
  generating
      .add_option("--points-per-image", g.simulation.pointsPerImage, "Points for each image [20]")
      ->check(CLI::Range(2, 100000));
  generating.add_option("--noise", g.simulation.pixelSigma, "Noise of observations, pixels [0.5]")
      ->check(CLI::NonNegativeNumber);
  generating.add_option("--seed", g.simulation.seed, "Of the noise [1]");

  AdjustArguments a;
  CLI::App& adjusting = *app.add_subcommand("adjust", "Adjust a bundle");
  adjusting.add_option("in", a.in, "Bundle: cameras points observations, ...")->required();
  adjusting.add_option("--control", a.control,
                       "Control points that fix the datum, lines: point x y z sigma; without it "
                       "camera 0 is held, and one coordinate of the farthest camera");
  adjusting.add_option("--pixel-sigma", a.options.pixelSigma, "Of image coordinates [1]")
      ->check(CLI::PositiveNumber);
  adjusting.add_option("-o,--cameras", a.cameras, "CSV of cameras with standard deviations");
  adjusting.add_option("--blocks", a.blocks, "CSV of the cameras' whole covariances");
  auto* const points = adjusting.add_option("--points", a.points, "CSV of points with covariances");
  adjusting.add_option("--only", a.chosen, "Indices of the points wanted, for example 3,17")
      ->delimiter(',')
      ->needs(points);
  adjusting.add_option("--plot", a.plot, "SVG of the cameras and their uncertainty");
  adjusting.add_option("--adjusted", a.adjusted, "File for the adjusted bundle");
  adjusting.add_option("--iterations", a.options.maxIterations, "At most [50]")
      ->check(CLI::Range(1, 10000));
  adjusting.add_option("--threads", a.options.threads, "0: all processors [0]")
      ->check(CLI::Range(0, 1024));

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    const int status = app.exit(e);
    return status == 0 ? 0 : zeph::exitCode(zeph::ErrorKind::Usage);
  }
  if (generating.parsed()) {
    generate(g);
  } else {
    adjust(a);
  }
  if (std::fflush(stdout) != 0) {
    throw zeph::Error(zeph::ErrorKind::Output, "standard output cannot be written");
  }
  return 0;
}

int fail(int status, const char* sentence) {
  std::fprintf(stderr, "bundle_adjustment: %s\n", sentence);
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const zeph::Error& e) {
    return fail(zeph::exitCode(e.kind()), e.what());
  } catch (const std::bad_alloc&) {
    return fail(zeph::exitCode(zeph::ErrorKind::Memory), "not enough memory for this bundle");
  } catch (const std::exception& e) {
    return fail(70, e.what());
  }
}
