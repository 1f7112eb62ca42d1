#include "zeph/factor/inverse_norm.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <vector>

namespace zeph {
namespace {

using Vector = std::vector<double>;

constexpr int kMostSteps = 5;

double norm1(const Vector& v) {
  return std::accumulate(v.begin(), v.end(), 0.0,
                         [](double sum, double x) { return sum + std::abs(x); });
}

}  // namespace

double inverseNorm(std::size_t n, const SolveWith& solve, const SolveWith& solveTransposed) {
  Vector x(n, 1.0 / static_cast<double>(n)), y(n), signs(n), z(n);
  double estimate = 0.0;
  for (int step = 0; step < kMostSteps; ++step) {
    solve(x.data(), y.data());
    const double reached = norm1(y);
    if (!std::isfinite(reached)) return std::numeric_limits<double>::infinity();
    if (step > 0 && reached <= estimate) break;
    estimate = reached;
    std::transform(y.begin(), y.end(), signs.begin(),
                   [](double v) { return v < 0.0 ? -1.0 : 1.0; });
    solveTransposed(signs.data(), z.data());
    const auto steepest = std::max_element(
        z.begin(), z.end(), [](double a, double b) { return std::abs(a) < std::abs(b); });
    const double here = std::inner_product(z.begin(), z.end(), x.begin(), 0.0);
    if (!(std::abs(*steepest) > here)) break;
    x.assign(n, 0.0);
    x[static_cast<std::size_t>(steepest - z.begin())] = 1.0;
  }
  // Higham's safeguard against matrices whose columns the steps do not reach.
  for (std::size_t i = 0; i < n; ++i) {
    const double along = n == 1 ? 0.0 : static_cast<double>(i) / static_cast<double>(n - 1);
    x[i] = (i % 2 == 0 ? 1.0 : -1.0) * (1.0 + along);
  }
  solve(x.data(), y.data());
  const double alternative = 2.0 * norm1(y) / (3.0 * static_cast<double>(n));
  return std::isfinite(alternative) ? std::max(estimate, alternative)
                                    : std::numeric_limits<double>::infinity();
}

double probeWeight(std::uint64_t k) {
  std::uint64_t z = (k + 1) * 0x9E3779B97F4A7C15u;
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
  z ^= z >> 31;
  const double size = 0.5 + static_cast<double>(z >> 11) * 0x1p-53;
  return (z & 1u) != 0 ? size : -size;
}

}  // namespace zeph
