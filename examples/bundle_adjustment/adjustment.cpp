#include "adjustment.h"

#include <zeph/error.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

namespace bundle {
namespace {

using std::size_t;
using zeph::Error;
using zeph::ErrorKind;

constexpr double kFirstDamping = 1e-4;
constexpr double kLeastDamping = 1e-10;  // below it steps are Gauss and Newton's
constexpr double kLargestDamping = 1e10;

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

class Descent {
 public:
  Descent(Adjustment& result, const Options& options) : result_(result), options_(options) {
    solver_.route = zeph::Route::Cholesky;
    solver_.threads = options.threads;
    result_.cost = result_.system->cost(result_.problem);
  }

  void run() {
    tell(0, 0.0, 0.0);
    for (int k = 1; !result_.converged && k <= options_.maxIterations; ++k) {
      const auto start = std::chrono::steady_clock::now();
      const double damping = step();
      tell(k, damping, secondsSince(start));
    }
    factorise(0.0);
  }

 private:
  void tell(int number, double damping, double seconds) const {
    if (options_.iterated) options_.iterated({number, result_.cost, damping, seconds});
  }

  // Orders and analyses the first time only.
  void factorise(double damping) {
    NormalSystem& system = *result_.system;
    const std::vector<double>& values = system.values(damping);
    try {
      if (result_.factor != nullptr) {
        result_.factor->refactorise(values);
        return;
      }
      zeph::SparseMatrix A = system.matrix();
      for (size_t k = 0; k < values.size(); ++k) A.entries[k].value = values[k];
      result_.factor = std::make_shared<zeph::Factor>(A, solver_);
    } catch (const Error& e) {
      if (e.kind() != ErrorKind::NotPositiveDefinite && e.kind() != ErrorKind::Singular) throw;
      throw Error(ErrorKind::Singular,
                  result_.problem.source + ": the observations leave " +
                      (e.row() < 0 ? "something" : system.nameOf(e.row())) +
                      " free to move; it needs more of them, from other directions",
                  e.row());
    }
  }

  // One step that lowers the cost, or the end. Returns the damping that it took.
  double step() {
    for (;; damping_ = std::max(kFirstDamping, 10.0 * damping_)) {
      result_.converged = damping_ > kLargestDamping;  // no step lowers the cost
      if (result_.converged) return damping_;
      const double damping = damping_;
      std::vector<double> step;
      try {
        factorise(damping);
        step = result_.factor->solve(result_.system->right());
      } catch (const Error& e) {
        if (e.kind() != ErrorKind::Singular) throw;
        continue;
      }
      Problem next = result_.system->moved(result_.problem, step);
      const double cost = result_.system->cost(next);
      if (cost <= result_.cost) {  // not where the cost is not finite
        // A step that had to be short says nothing about the end.
        result_.converged = damping < 1e-2 && result_.cost - cost <= options_.tolerance * cost;
        result_.problem = std::move(next);
        result_.cost = cost;
        result_.system->linearise(result_.problem);
        damping_ = damping > kLeastDamping ? 0.1 * damping : 0.0;
        return damping;
      }
    }
  }

  Adjustment& result_;
  const Options& options_;
  zeph::Options solver_;
  double damping_ = kFirstDamping;
};

/// The blocks whose unknowns are at(block, 0 .. size-1), in one call.
template <class At>
std::vector<zeph::DenseMatrix> blocksOf(const Adjustment& a, size_t count, int size, const At& at) {
  std::vector<std::int64_t> rows, cols;
  const auto forEach = [&](const auto& visit) {
    for (size_t k = 0; k < count; ++k) {
      for (int j = 0; j < size; ++j) {
        for (int i = j; i < size; ++i) {
          if (at(k, i) >= 0 && at(k, j) >= 0) visit(k, i, j);
        }
      }
    }
  };
  forEach([&](size_t k, int i, int j) {
    rows.push_back(at(k, i));
    cols.push_back(at(k, j));
  });
  const std::vector<double> z = a.factor->covariance(rows, cols);
  const auto order = static_cast<size_t>(size);
  std::vector<zeph::DenseMatrix> blocks(count, zeph::DenseMatrix::zeros(order, order));
  auto next = z.begin();
  forEach([&](size_t k, int i, int j) {
    const double value = a.sigma0 * a.sigma0 * *next++;
    const auto row = static_cast<size_t>(i), col = static_cast<size_t>(j);
    blocks[k].values[row + col * order] = blocks[k].values[col + row * order] = value;
  });
  return blocks;
}

}  // namespace

std::vector<zeph::DenseMatrix> Adjustment::cameraCovariances() const {
  return blocksOf(*this, problem.cameras.size(), kCameraUnknowns,
                  [&](size_t c, int k) { return system->ofCamera(c, k); });
}

std::vector<zeph::DenseMatrix> Adjustment::pointCovariances(
    const std::vector<size_t>& points) const {
  for (const size_t p : points) {
    if (p < problem.points.size()) continue;
    throw Error(ErrorKind::Unfit, "there is no point " + std::to_string(p) + "; " + problem.source +
                                      " has " + std::to_string(problem.points.size()) + ", from 0");
  }
  return blocksOf(*this, points.size(), kPointUnknowns,
                  [&](size_t k, int i) { return system->ofPoint(points[k], i); });
}

Adjustment adjust(Problem problem, const Datum& datum, const Options& options) {
  Adjustment result;
  result.problem = std::move(problem);
  result.datum = datum;
  result.system = std::make_shared<NormalSystem>(result.problem, datum, options.pixelSigma);
  result.redundancy = result.system->measurements() - result.system->unknowns();
  if (result.redundancy <= 0) {
    throw Error(ErrorKind::Unfit,
                result.problem.source + ": " + std::to_string(result.system->measurements()) +
                    " measurements for " + std::to_string(result.system->unknowns()) +
                    " unknowns leave nothing to adjust");
  }
  Descent(result, options).run();
  result.sigma0 = std::sqrt(result.cost / static_cast<double>(result.redundancy));
  return result;
}

}  // namespace bundle
