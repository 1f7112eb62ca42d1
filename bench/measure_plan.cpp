// Runs of the Cholesky route beside what was predicted of them, a JSON object a line;
// bench/plan_check and bench/scaling make tables of it.
//   measure_plan [--calibration=FILE] [--threads=N] [--rounds=N] [--scratch=DIR] SHAPE:UNKNOWNS ...
//   measure_plan --write=FILE SHAPE:UNKNOWNS                the matrix alone
// Each round is a process of its own. On one thread seconds are processor time, which other
// programs hardly disturb; on several, and with a scratch file, wall time. The scratch file is
// forced by a limit that everything but the panels fits into.
#include <malloc.h>
#include <sys/resource.h>

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
#include "zeph/matrix_file.h"
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

// What a round leaves behind: seconds of the stages, and bytes that went to the disk and came back.
enum Result { kAnalysis, kFactor, kInverse, kWritten, kRead, kResults };
constexpr double kDiskBlock = 512.0;
// Short runs are repeated more often, up to so many seconds.
constexpr int kMostRounds = 12;
constexpr double kEnough = 0.3;

double now(bool processorTime) {
  std::timespec t{};
  clock_gettime(processorTime ? CLOCK_PROCESS_CPUTIME_ID : CLOCK_MONOTONIC, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

void runOnce(const zeph::SparseMatrix& A, const zeph::Options& options, double* results) {
  const bool processorTime = options.threads == 1 && options.scratchFolder.empty();
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
  rusage used{};
  getrusage(RUSAGE_SELF, &used);
  results[kWritten] = kDiskBlock * static_cast<double>(used.ru_oublock);
  results[kRead] = kDiskBlock * static_cast<double>(used.ru_inblock);
}

double megabytes(double bytes) {
  return bytes / 0x1p20;
}

zeph::SparseMatrix problem(const std::string& text) {
  const std::size_t colon = text.find(':');
  const auto kind = std::find_if(std::begin(kKinds), std::end(kKinds),
                                 [&](const Kind& k) { return text.substr(0, colon) == k.word; });
  if (kind == std::end(kKinds) || colon == text.npos) {
    throw zeph::Error(zeph::ErrorKind::Usage, "\"" + text + "\" is no SHAPE:UNKNOWNS");
  }
  const double unknowns = std::strtod(text.c_str() + colon + 1, nullptr);
  return zeph::generatedProblem(kind->shape, static_cast<std::size_t>(unknowns));
}

void check(const std::string& text, const zeph::CostModel& model, zeph::Options options,
           int rounds) {
  const zeph::SparseMatrix A = problem(text);
  const zeph::RunPlan plan = zeph::planRun(A, options, model);
  const bool inFile = !options.scratchFolder.empty();
  const zeph::MemoryPlan& memory = inFile ? plan.factorInFile : plan.memory;
  const zeph::StageSeconds seconds =
      inFile ? plan.scratch
             : zeph::StageSeconds{plan.report.secondsFactorisation, plan.report.secondsInverse};
  if (inFile) options.memoryLimit = std::max(memory.factorisation, memory.inversion) + 1.0;
  malloc_trim(0);
  compare::Best best[kResults];
  double peak = 0.0;
  double spent = 0.0;
  for (int k = 0; k < rounds || (k < kMostRounds && spent < kEnough); ++k) {
    const compare::IsolatedRun run =
        compare::runIsolated(kResults, [&](double* results) { runOnce(A, options, results); });
    if (!run.completed) {
      throw zeph::Error(zeph::ErrorKind::Unfit, text + " did not come to its end");
    }
    for (int r = 0; r < kResults; ++r) best[r].add(run.results[static_cast<std::size_t>(r)]);
    spent += run.results[kFactor] + run.results[kInverse];
    peak = std::max(peak, run.megabytes);
  }
  const zeph::Report& r = plan.report;
  compare::Record("plan")
      .add("shape", text.substr(0, text.find(':')))
      .add("name", A.source)
      .add("unknowns", r.unknowns)
      .add("threads", r.threads)
      .add("ordering", zeph::name(r.ordering))
      .add("entries_of_a", r.entriesOfA)
      .add("entries_of_l", r.entriesOfL)
      .add("operations", r.operations)
      .add("predicted_factor", seconds.factor)
      .add("predicted_inverse", seconds.inverse)
      .add("predicted_megabytes", megabytes(memory.peak()))
      .add("predicted_process", megabytes(plan.process()))
      .add("predicted_file", megabytes(plan.scratchBytes))
      .add("analysis", best[kAnalysis].value)
      .add("factor", best[kFactor].value)
      .add("inverse", best[kInverse].value)
      .add("written", megabytes(best[kWritten].value))
      .add("read", megabytes(best[kRead].value))
      .add("megabytes", peak)
      .print();
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
    zeph::Options options;
    options.threads = static_cast<int>(arguments.number("threads", 1.0));
    options.scratchFolder = arguments.text("scratch");
    const std::string file = arguments.text("write");
    for (const std::string& text : arguments.positions()) {
      if (file.empty()) {
        check(text, model, options, static_cast<int>(arguments.number("rounds", 2.0)));
      } else {
        zeph::writeSparse(file, problem(text));
      }
    }
    return 0;
  } catch (const zeph::Error& e) {
    std::fprintf(stderr, "measure_plan: %s\n", e.what());
    return 1;
  }
}
