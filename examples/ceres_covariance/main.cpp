// Covariances of two problems by ceres::Covariance and by its stand-in, with the times.
#include <ceres/covariance.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "problems.h"
#include "zeph_covariance.h"

namespace {

using std::size_t;
using zeph_ceres::TestProblem;

// More than rounding explains at the conditions of these problems.
constexpr double kTolerance = 1e-6;

double secondsOf(const auto& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Largest difference over all blocks wanted, as a share of each block's largest entry.
double difference(const TestProblem& t, const ceres::Covariance& theirs,
                  const zeph_ceres::Covariance& ours) {
  double largest = 0.0;
  for (const auto& [a, b] : t.wanted) {
    const auto size = static_cast<size_t>(t.problem->ParameterBlockSize(a)) *
                      static_cast<size_t>(t.problem->ParameterBlockSize(b));
    std::vector<double> x(size), y(size);
    if (!theirs.GetCovarianceBlock(a, b, x.data()) || !ours.GetCovarianceBlock(a, b, y.data())) {
      return HUGE_VAL;
    }
    double scale = 0.0, apart = 0.0;
    for (size_t k = 0; k < size; ++k) {
      scale = std::max(scale, std::fabs(x[k]));
      apart = std::max(apart, std::isfinite(y[k]) ? std::fabs(x[k] - y[k]) : HUGE_VAL);
    }
    if (apart > 0.0) largest = std::max(largest, apart / scale);
  }
  return largest;
}

bool compare(const TestProblem& t) {
  ceres::Covariance theirs{ceres::Covariance::Options{}};
  zeph_ceres::Covariance ours{zeph_ceres::Covariance::Options{}};
  bool good[2] = {false, false};
  const double ceres = secondsOf([&] { good[0] = theirs.Compute(t.wanted, t.problem.get()); });
  const double zeph = secondsOf([&] { good[1] = ours.Compute(t.wanted, t.problem.get()); });
  if (!good[0] || !good[1]) {
    std::printf("%s: no covariances by %s; %s\n", t.name.c_str(), good[0] ? "zeph" : "Ceres",
                ours.message().c_str());
    return false;
  }
  const double apart = difference(t, theirs, ours);
  std::printf("%-28s %6zu blocks  Ceres %8.3f s  zeph %8.3f s  %6.1f times  difference %.1e\n",
              t.name.c_str(), t.wanted.size(), ceres, zeph, ceres / zeph, apart);
  return apart <= kTolerance;
}

size_t countOf(int argc, char** argv, int k, size_t otherwise) {
  return argc > k ? static_cast<size_t>(std::max(2, std::atoi(argv[k]))) : otherwise;
}

}  // namespace

// ceres_covariance [POSES [IMAGES]]
int main(int argc, char** argv) {
  try {
    const bool graph = compare(zeph_ceres::poseGraph(countOf(argc, argv, 1, 1000)));
    const bool bundle = compare(zeph_ceres::smallBundle(countOf(argc, argv, 2, 60), 30));
    if (graph && bundle) return 0;
    std::fprintf(stderr, "ceres_covariance: the covariances differ\n");
  } catch (const std::exception& e) {
    std::fprintf(stderr, "ceres_covariance: %s\n", e.what());
  }
  return 1;
}
