// The covariances of all cameras of a simulated bundle: zeph::Factor on the whole normal matrix
// beside the cameras' Schur complement on Eigen.
//   compare_bundle IMAGES [--points=POINTS_PER_IMAGE] [--repeats=N]
#include <algorithm>
#include <cmath>
#include <optional>
#include <vector>

#include "eigen_schur.h"
#include "examples/bundle_adjustment/normal_system.h"
#include "examples/bundle_adjustment/simulate.h"
#include "measure.h"
#include "zeph/factor.h"

namespace {

using compare::Best;
using compare::processorSeconds;
using std::size_t;

constexpr int kSize = bundle::kCameraUnknowns;

struct BlockEntries {
  std::vector<std::int64_t> rows, cols;
};

BlockEntries lowerTriangles(size_t cameras) {
  BlockEntries e;
  for (std::int64_t first = 0; first < static_cast<std::int64_t>(kSize * cameras); first += kSize) {
    for (int j = 0; j < kSize; ++j) {
      for (int i = j; i < kSize; ++i) {
        e.rows.push_back(first + i);
        e.cols.push_back(first + j);
      }
    }
  }
  return e;
}

/// Largest difference as a share of the standard deviations.
double difference(const BlockEntries& e, const std::vector<double>& ours,
                  const std::vector<double>& theirs) {
  const auto block = [&](std::int64_t row, std::int64_t col) {
    return theirs[static_cast<size_t>(row * kSize + col % kSize)];
  };
  double largest = 0.0;
  for (size_t k = 0; k < ours.size(); ++k) {
    const double scale = std::sqrt(block(e.rows[k], e.rows[k]) * block(e.cols[k], e.cols[k]));
    const double d = std::fabs(ours[k] - block(e.rows[k], e.cols[k])) / scale;
    largest = d <= largest ? largest : d;  // a NaN stays
  }
  return largest;
}

int measure(const compare::Arguments& arguments) {
  bundle::Simulation simulation;
  simulation.images = static_cast<size_t>(std::atoi(arguments.positions().at(0).c_str()));
  simulation.pointsPerImage = static_cast<size_t>(arguments.number("points", 40));
  const bundle::Simulated s = bundle::simulate(simulation);
  const bundle::Datum datum = bundle::chooseDatum(s.truth, s.control);
  bundle::NormalSystem system(s.truth, datum, simulation.pixelSigma);
  const zeph::SparseMatrix A = system.matrix();
  const std::vector<double> values = system.values(0.0);
  const BlockEntries entries = lowerTriangles(simulation.images);
  const size_t size = kSize * kSize * simulation.images;

  zeph::Options options;
  options.threads = 1;
  options.route = zeph::Route::Cholesky;
  std::vector<double> ours;
  std::vector<double> dense(size), sparse(size);
  Best made, kept, refactored, covariances;  // the last two are parts of `kept`
  compare::SchurTimes bestDense, bestSparse;
  const auto keepBest = [](compare::SchurTimes& best, const compare::SchurTimes& t) {
    if (!best.completed || t.total() < best.total()) best = t;
  };
  const int repeats = static_cast<int>(arguments.number("repeats", 3));
  std::optional<zeph::Factor> factor;
  for (int k = 0; k < repeats; ++k) {
    factor.reset();
    made.add(processorSeconds([&] { factor.emplace(A, options); }));
    const double first = processorSeconds([&] { factor->refactorise(values); });
    const double second =
        processorSeconds([&] { ours = factor->covariance(entries.rows, entries.cols); });
    if (first + second < kept.value) {
      refactored.value = first;
      covariances.value = second;
    }
    kept.add(first + second);
    keepBest(bestSparse, compare::eigenSparseSchur(system, s.truth.observations, sparse.data()));
    keepBest(bestDense, compare::eigenDenseSchur(system, s.truth.observations, dense.data()));
  }
  compare::Record record("bundle");
  record.add("images", simulation.images).add("points", s.truth.points.size());
  record.add("observations", s.truth.observations.size()).add("unknowns", A.rows);
  record.add("made", made.value).add("refactorise", refactored.value);
  record.add("covariances", covariances.value).add("kept", kept.value);
  const auto add = [&](const std::string& name, const compare::SchurTimes& t,
                       const std::vector<double>& blocks) {
    if (!t.completed) return;
    record.add(name, t.total()).add(name + "_complement", t.complement);
    record.add(name + "_factor", t.factor).add(name + "_inverse", t.inverse);
    record.add(name + "_difference", difference(entries, ours, blocks));
  };
  add("dense", bestDense, dense);
  add("sparse", bestSparse, sparse);
  // Both ways lose what the condition takes: unknowns scaled to a diagonal of ones.
  double condition = 0.0;
  for (size_t k = 0; k < entries.rows.size(); ++k) {
    if (entries.rows[k] != entries.cols[k]) continue;
    const auto camera = static_cast<size_t>(entries.rows[k] / kSize);
    const auto own = static_cast<size_t>(entries.rows[k] % kSize);
    condition += ours[k] * system.U()[camera][own * (kSize + 1)];
  }
  record.add("tolerance", std::max(1e-10, 4.0 * 2.220446049250313e-16 * condition));
  record.print();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  return compare::run("compare_bundle", measure, argc, argv);
}
