// Runs of the Cholesky route beside what was predicted of them, a JSON object a line;
// bench/plan_check and bench/scaling make tables of it.
//   measure_plan [--calibration=FILE] [--threads=N] [--rounds=N] SHAPE:UNKNOWNS ...
// Each round is a process of its own. On one thread seconds are processor time, which other
// programs hardly disturb; on several wall time.
#include <malloc.h>

#include <algorithm>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "kernels/processor.h"
#include "peers/measure.h"
#include "zeph/error.h"
#include "zeph/factor/cholesky_backend.h"
#include "zeph/factor/first_route.h"
#include "zeph/plan/calibration_file.h"
#include "zeph/plan/generated_problem.h"
#include "zeph/plan/run_plan.h"

namespace {

using zeph::Shape;

struct Kind {
  const char* word;
  Shape shape;
};
constexpr Kind kKinds[] = {{"plane", Shape::Plane},     {"space", Shape::Space},
                           {"network", Shape::Network}, {"drive", Shape::Drive},
                           {"sphere", Shape::Sphere},   {"bundle", Shape::Bundle},
                           {"band", Shape::Band}};

// What a round leaves behind: seconds of the stages, and the error estimate of the variances.
enum Result { kAnalysis, kFactor, kInverse, kResults };

double now(bool processorTime) {
  std::timespec t{};
  clock_gettime(processorTime ? CLOCK_PROCESS_CPUTIME_ID : CLOCK_MONOTONIC, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

void runOnce(const zeph::SparseMatrix& A, const zeph::Options& options, double* results) {
  const bool processorTime = options.threads == 1;
  zeph::Watch watch(options);
  std::vector<double> diagonal(A.rows);
  std::string against;
  double last = now(processorTime);
  const auto lap = [&](Result which) {
    const double here = now(processorTime);
    results[which] = here - last;
    last = here;
  };
  zeph::CholeskyBackend f(zeph::symmetricInput(A, against), options, watch);
  lap(kAnalysis);
  f.factorise(A, watch);
  lap(kFactor);
  f.variances(diagonal.data(), watch);
  lap(kInverse);
}

int check(const std::string& text, const zeph::CostModel& model, int threads, int rounds) {
  const std::size_t colon = text.find(':');
  const auto kind = std::find_if(std::begin(kKinds), std::end(kKinds),
                                 [&](const Kind& k) { return text.substr(0, colon) == k.word; });
  if (kind == std::end(kKinds) || colon == text.npos) {
    std::fprintf(stderr, "measure_plan: \"%s\" is no SHAPE:UNKNOWNS\n", text.c_str());
    return 2;
  }
  const zeph::SparseMatrix A = zeph::generatedProblem(
      kind->shape, static_cast<std::size_t>(std::strtod(text.c_str() + colon + 1, nullptr)));
  zeph::Options options;
  options.threads = threads;
  const zeph::RunPlan plan = zeph::planRun(A, options, model);
  malloc_trim(0);
  compare::Best best[kResults];
  double peak = 0.0;
  for (int k = 0; k < rounds; ++k) {
    const compare::IsolatedRun run =
        compare::runIsolated(kResults, [&](double* results) { runOnce(A, options, results); });
    if (!run.completed) {
      std::fprintf(stderr, "measure_plan: %s did not come to its end\n", text.c_str());
      return 1;
    }
    for (int r = 0; r < kResults; ++r) best[r].add(run.results[static_cast<std::size_t>(r)]);
    peak = std::max(peak, run.megabytes);
  }
  const zeph::Report& r = plan.report;
  compare::Record("plan")
      .add("shape", kind->word)
      .add("name", zeph::name(kind->shape))
      .add("unknowns", r.unknowns)
      .add("threads", r.threads)
      .add("ordering", zeph::name(r.ordering))
      .add("entries_of_a", r.entriesOfA)
      .add("entries_of_l", r.entriesOfL)
      .add("operations", r.operations)
      .add("predicted_factor", r.secondsFactorisation)
      .add("predicted_inverse", r.secondsInverse)
      .add("predicted_megabytes", plan.memory.peak() / 0x1p20)
      .add("analysis", best[kAnalysis].value)
      .add("factor", best[kFactor].value)
      .add("inverse", best[kInverse].value)
      .add("megabytes", peak)
      .print();
  std::fflush(stdout);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const compare::Arguments arguments(argc, argv);
    zeph::CostModel model = zeph::defaultCostModel(korin::kernels::processorLevel());
    if (const std::string path = arguments.text("calibration"); !path.empty()) {
      std::string against;
      const auto known = zeph::readCalibration(path, against);
      if (!known) {
        std::fprintf(stderr, "measure_plan: no calibration in %s %s\n", path.c_str(),
                     against.c_str());
        return 2;
      }
      model = *known;
    }
    for (const std::string& text : arguments.positions()) {
      const int status = check(text, model, static_cast<int>(arguments.number("threads", 1.0)),
                               static_cast<int>(arguments.number("rounds", 2.0)));
      if (status != 0) return status;
    }
    return 0;
  } catch (const zeph::Error& e) {
    std::fprintf(stderr, "measure_plan: %s\n", e.what());
    return 1;
  }
}
