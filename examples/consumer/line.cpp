// Heights along a line of five points from height differences: the first point is known to 1 mm,
// every difference between neighbours was measured to 2 mm.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <vector>

#include "zeph/zeph.h"

int main() {
  try {
    constexpr std::uint32_t points = 5;
    const double known = 1.0 / (1e-3 * 1e-3), measured = 1.0 / (2e-3 * 2e-3);
    const std::vector<double> differences = {0.412, -0.105, 0.230, 0.018};

    zeph::SparseMatrix normal;  // duplicates add up
    normal.rows = normal.cols = points;
    normal.symmetry = zeph::Symmetry::Symmetric;  // one triangle is enough
    std::vector<double> right(points, 0.0);
    normal.entries.push_back({0, 0, known});
    right[0] = known * 100.0;
    for (std::uint32_t i = 0; i + 1 < points; ++i) {
      normal.entries.push_back({i, i, measured});
      normal.entries.push_back({i + 1, i, -measured});
      normal.entries.push_back({i + 1, i + 1, measured});
      right[i] -= measured * differences[i];
      right[i + 1] += measured * differences[i];
    }

    const zeph::Factor factor(normal);
    const std::vector<double> heights = factor.solve(right), variances = factor.variances();
    for (std::uint32_t i = 0; i < points; ++i) {
      std::printf("%u: %.3f m, standard deviation %.3f mm\n", i, heights[i],
                  1e3 * std::sqrt(variances[i]));
    }
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
