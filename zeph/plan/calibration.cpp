#include "zeph/plan/calibration.h"

#include <malloc.h>
#include <sys/resource.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <vector>

#include "kernels/panel_storage.h"
#include "kernels/triangles/front_cholesky.h"
#include "sparse/inverse/panel_inverter.h"
#include "zeph/error.h"
#include "zeph/factor/cholesky_backend.h"
#include "zeph/factor/watch.h"
#include "zeph/plan/disk_speed.h"
#include "zeph/plan/generated_problem.h"
#include "zeph/plan/stopwatch.h"

namespace zeph {
namespace {

using korin::sparse::Index;
using korin::sparse::Offset;
using std::size_t;

/// A front is worked on so often that its time is well above what the clock resolves.
constexpr double kShortest = 3e-4;
constexpr int kRepetitions = 3;
/// Fresh memory that is touched to learn what that costs, in either kind of pages.
constexpr size_t kFreshDoubles = size_t{1} << 23;
/// Wall time over processor time from which on other programs are at work as well.
constexpr double kBusy = 1.15;
/// Weight of the defaults beside what was measured: keeps what no problem shows near them.
constexpr double kPriorWeight = 1e-3;
constexpr int kSweeps = 400;

struct Problem {
  Shape shape;
  size_t size;
};

/// Small and middling problems of all kinds; the largest take half a second.
constexpr Problem kProblems[] = {
    {Shape::Plane, 2500},   {Shape::Plane, 10000},   {Shape::Plane, 160000},
    {Shape::Space, 1000},   {Shape::Space, 8000},    {Shape::Space, 27000},
    {Shape::Network, 8000}, {Shape::Network, 60000}, {Shape::Network, 300000},
    {Shape::Drive, 6000},   {Shape::Drive, 90000},   {Shape::Sphere, 3000},
    {Shape::Sphere, 30000}, {Shape::Bundle, 10000},  {Shape::Bundle, 150000},
    {Shape::Band, 2000},    {Shape::Band, 20000},
};

constexpr size_t kTiny = 64;
/// The problem on which threads are tried, large enough for many of them.
constexpr Problem kShared = {Shape::Plane, 160000};

template <class Work>
double leastSeconds(const Work& work) {
  double least = std::numeric_limits<double>::infinity();
  int calls = 1;
  for (int done = 0; done < kRepetitions;) {
    const Stopwatch watch;
    for (int k = 0; k < calls; ++k) work();
    const double spent = watch.seconds();
    if (spent < kShortest) {
      calls *= 2;
      continue;
    }
    least = std::min(least, spent / calls);
    ++done;
  }
  return least;
}

/// A panel of `width` columns above a root of the rows below it.
class SingleFront {
 public:
  SingleFront(size_t width, size_t below)
      : width_(width),
        height_(width + below),
        panel_(korin::kernels::rawPanels(height_ * width)),
        update_(korin::kernels::rawPanels(below * below + 1)),
        scratch_(korin::kernels::rawPanels(korin::kernels::frontScratch(height_, width) + 1)),
        inverse_(korin::kernels::rawPanels(height_ * width)),
        root_(korin::kernels::rawPanels(below * below + 1)) {
    std::fill_n(root_.get(), below * below, 1.0 / static_cast<double>(height_));
    std::fill_n(update_.get(), below * below, 0.0);
  }

  void factorise(bool leaf) {
    const double small = 1.0 / static_cast<double>(height_);
    for (size_t c = 0; c < width_; ++c) {
      std::fill_n(&panel_[c * height_], height_, small);
      panel_[c * height_ + c] = 2.0;
    }
    korin::kernels::frontCholesky(height_, width_, panel_.get(), height_,
                                  leaf ? nullptr : update_.get(), scratch_.get(), nullptr);
  }

  double inverseSeconds() {
    const auto w = static_cast<Index>(width_), h = static_cast<Index>(height_);
    std::vector<Index> rows, groupOf(height_, 1);
    std::fill_n(groupOf.begin(), width_, 0);
    for (Index i = 0; i < h; ++i) rows.push_back(i);
    for (Index i = w; i < h; ++i) rows.push_back(i);
    const Index groups = h > w ? 2 : 1;
    const Index firstColumn[] = {0, w, h};
    const Offset rowStart[] = {0, h, h + h - w};
    double* const inverse[] = {inverse_.get(), root_.get()};
    const korin::sparse::PanelStructure structure{groups,      firstColumn,    rowStart,
                                                  rows.data(), groupOf.data(), inverse};
    const korin::sparse::InverterSizes sizes(structure);
    korin::sparse::PanelInverter inverter(structure, sizes, nullptr);
    return leastSeconds([&] { inverter.invertGroup(0, panel_.get()); });
  }

 private:
  size_t width_, height_;
  korin::kernels::PanelStorage panel_, update_, scratch_, inverse_, root_;
};

void measureFronts(CostModel& model, const std::function<void()>& step) {
  for (size_t w = 0; w < FrontTable::kWidths.size(); ++w) {
    for (size_t b = 0; b < FrontTable::kBelow.size(); ++b) {
      step();
      SingleFront front(static_cast<size_t>(FrontTable::kWidths[w]),
                        static_cast<size_t>(FrontTable::kBelow[b]));
      model.factor.at(w, b) = leastSeconds([&] { front.factorise(false); });
      model.factorLeaf.at(w, b) = leastSeconds([&] { front.factorise(true); });
      model.inverse.at(w, b) = front.inverseSeconds();
    }
  }
}

/// Seconds a byte that a first touch takes beyond a second one.
double freshSeconds(size_t block) {
  const size_t count = kFreshDoubles / block;
  double least = std::numeric_limits<double>::infinity();
  for (int k = 0; k < kRepetitions; ++k) {
    malloc_trim(0);
    std::vector<korin::kernels::PanelStorage> blocks(count);
    const auto touch = [&] {
      const Stopwatch watch;
      for (auto& b : blocks) {
        if (!b) b = korin::kernels::rawPanels(block);
        std::fill_n(b.get(), block, 1.0);
      }
      return watch.seconds();
    };
    const double first = touch();
    least = std::min(least, first - touch());
  }
  return std::max(0.0, least) / static_cast<double>(kFreshDoubles * sizeof(double));
}

/// What a stage took beside what the model knows already, and what was counted meanwhile.
template <size_t Count>
struct Sample {
  double seconds, rest;
  std::array<double, Count> counts;
};
using FactorSample = Sample<Terms<FactorTerm>{}.size()>;
using InverseSample = Sample<Terms<InverseTerm>{}.size()>;

/// Terms >= 0 with the least relative squares of misfits, by coordinate descent.
template <size_t Count>
std::array<double, Count> fitted(const std::vector<Sample<Count>>& samples,
                                 const std::array<double, Count>& prior) {
  std::array<double, Count> x = prior;
  for (int sweep = 0; sweep < kSweeps; ++sweep) {
    for (size_t t = 0; t < Count; ++t) {
      // In units of the prior, which is positive.
      double square = kPriorWeight, product = kPriorWeight;
      for (const Sample<Count>& s : samples) {
        double misfit = s.rest;
        for (size_t u = 0; u < Count; ++u) {
          if (u != t) misfit -= x[u] * s.counts[u];
        }
        const double slope = prior[t] * s.counts[t] / s.seconds;
        square += slope * slope;
        product += slope * misfit / s.seconds;
      }
      x[t] = prior[t] * std::max(0.0, product / square);
    }
  }
  return x;
}

struct Measured {
  StageSeconds seconds;
  double wall = 0.0;
};

/// Least times of a factorisation and of all variances in memory that is fresh each time.
Measured measure(const SparseMatrix& A, CholeskyBackend& f, Watch& watch) {
  Measured least{{1e9, 1e9}, 1e9};
  std::vector<double> diagonal(A.rows);
  for (int k = 0; k < kRepetitions; ++k) {
    f.releaseNumbers();
    malloc_trim(0);
    const Stopwatch first;
    f.factorise(A, watch);
    least.seconds.factor = std::min(least.seconds.factor, first.ofAllThreads());
    const Stopwatch second;
    f.variances(diagonal.data(), watch);
    least.seconds.inverse = std::min(least.seconds.inverse, second.ofAllThreads());
    least.wall = std::min(least.wall, first.wall());
  }
  return least;
}

std::unique_ptr<CholeskyBackend> analysed(const SparseMatrix& A, const Options& options,
                                          Watch& watch) {
  std::string against;
  return std::make_unique<CholeskyBackend>(symmetricInput(A, against), options, watch);
}

/// The most that this process has held so far.
double peakOfProcess() {
  rusage used{};
  getrusage(RUSAGE_SELF, &used);
  return 1024.0 * static_cast<double>(used.ru_maxrss);
}

}  // namespace

Calibration calibrate(const CalibrationOptions& how) {
  Calibration result;
  CostModel& model = result.model;
  model = defaultCostModel(korin::kernels::processorLevel());
  Options options;
  options.threads = 1;
  Watch silent(options);
  // A small run brings all of the program into memory that a large one needs.
  const SparseMatrix tiny = generatedProblem(Shape::Space, kTiny);
  measure(tiny, *analysed(tiny, options, silent), silent);
  model.program = peakOfProcess();
  // Before the rest, as a folder may turn out to be of no use.
  if (!how.scratchFolder.empty()) {
    const DiskSpeed disk = diskSpeed(how.scratchFolder);
    model.scratchWrite = disk.write;
    model.scratchRead = disk.read;
    model.scratchWriting = disk.writing;
    model.scratchReading = disk.reading;
    model.scratchPanel = disk.panel;
  }
  const char* stage = "measuring fronts";
  double done = 0.0, all = static_cast<double>(FrontTable::kWidths.size()) *
                           static_cast<double>(FrontTable::kBelow.size());
  const auto step = [&] {
    if (how.progress && !how.progress(stage, done++ / all)) {
      throw Error(ErrorKind::Cancelled, std::string("stopped on request while ") + stage);
    }
  };
  const Stopwatch watch;
  measureFronts(model, step);
  model.smallPages = freshSeconds(korin::kernels::kLargePanels / sizeof(double) / 16);
  model.largePages = freshSeconds(korin::kernels::kLargePanels / sizeof(double) * 8);

  stage = "measuring problems";
  done = 0.0;
  all = static_cast<double>(std::size(kProblems)) + 1.0;
  std::vector<FactorSample> factor;
  std::vector<InverseSample> inverse;
  for (const Problem& p : kProblems) {
    step();
    const SparseMatrix A = generatedProblem(p.shape, p.size);
    const auto f = analysed(A, options, silent);
    const Measured m = measure(A, *f, silent);
    const auto given = static_cast<double>(A.entries.size());
    StageSeconds known = pageSeconds(model, f->symbolic(), given, 1);
    FrontCounts counts = countCommon(f->symbolic().n, given);
    for (Index g = 0; g < f->symbolic().groups(); ++g) {
      const StageSeconds dense = denseSeconds(model, f->symbolic(), g);
      known.factor += dense.factor;
      known.inverse += dense.inverse;
      const FrontCounts more = countFront(f->symbolic(), g);
      for (size_t t = 0; t < counts.factor.size(); ++t) counts.factor[t] += more.factor[t];
      for (size_t t = 0; t < counts.inverse.size(); ++t) counts.inverse[t] += more.inverse[t];
    }
    factor.push_back({m.seconds.factor, m.seconds.factor - known.factor, counts.factor});
    inverse.push_back({m.seconds.inverse, m.seconds.inverse - known.inverse, counts.inverse});
  }
  model.factorTerms = fitted(factor, model.factorTerms);
  model.inverseTerms = fitted(inverse, model.inverseTerms);
  result.busy = watch.wall() > kBusy * watch.seconds();

  options.threads = how.threads;
  if (threadCount(options) > 1) {
    step();
    const SparseMatrix A = generatedProblem(kShared.shape, kShared.size);
    const auto together = measure(A, *analysed(A, options, silent), silent).seconds;
    options.threads = 1;
    const auto alone = measure(A, *analysed(A, options, silent), silent).seconds;
    model.sharing =
        std::max(1.0, (together.factor + together.inverse) / (alone.factor + alone.inverse));
  }
  return result;
}

}  // namespace zeph
