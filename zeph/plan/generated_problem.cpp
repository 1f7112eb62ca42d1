#include "zeph/plan/generated_problem.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <utility>
#include <vector>

#include "zeph/demo/levelling_network.h"

namespace zeph {
namespace {

using std::size_t;

/// Nodes of some unknowns each, and which of them are coupled.
struct Couplings {
  std::vector<std::uint32_t> unknowns;
  std::vector<std::pair<std::uint32_t, std::uint32_t>> pairs;

  void couple(size_t i, size_t j) {
    pairs.emplace_back(static_cast<std::uint32_t>(std::max(i, j)),
                       static_cast<std::uint32_t>(std::min(i, j)));
  }
};

/// Random blocks below a dominant diagonal. A pair that is there twice adds up.
SparseMatrix coupledMatrix(const Couplings& c, const char* source) {
  std::mt19937 random(1);
  const auto value = [&] { return static_cast<double>(random()) / 4294967296.0 - 0.5; };
  std::vector<std::uint32_t> first{0};
  for (const std::uint32_t count : c.unknowns) first.push_back(first.back() + count);
  SparseMatrix A;
  A.source = source;
  A.rows = A.cols = first.back();
  A.symmetry = Symmetry::Symmetric;
  std::vector<double> sum(A.rows, 1.0);
  const auto add = [&](std::uint32_t row, std::uint32_t col) {
    const double v = value();
    A.entries.push_back({row, col, v});
    sum[row] += std::abs(v);
    sum[col] += std::abs(v);
  };
  for (const auto& [i, j] : c.pairs) {
    for (std::uint32_t row = first[i]; row < first[i + 1]; ++row) {
      for (std::uint32_t col = first[j]; col < first[j + 1]; ++col) add(row, col);
    }
  }
  for (size_t i = 0; i < c.unknowns.size(); ++i) {
    for (std::uint32_t row = first[i]; row < first[i + 1]; ++row) {
      for (std::uint32_t col = first[i]; col < row; ++col) add(row, col);
    }
  }
  for (std::uint32_t i = 0; i < A.rows; ++i) A.entries.push_back({i, i, sum[i]});
  return A;
}

size_t root(double value, double degree) {
  return std::max<size_t>(2, static_cast<size_t>(std::lround(std::pow(value, 1.0 / degree))));
}

Couplings grid(size_t side, int dimensions) {
  Couplings c;
  const size_t layer = side * side, layers = dimensions == 2 ? 1 : side;
  c.unknowns.assign(layer * layers, 1);
  for (size_t i = 0; i < c.unknowns.size(); ++i) {
    if (i % side + 1 < side) c.couple(i, i + 1);
    if (i / side % side + 1 < side) c.couple(i, i + side);
    if (i + layer < c.unknowns.size()) c.couple(i, i + layer);
  }
  return c;
}

/// A walk over the corners of a town, coupled with the last visit of a corner and its neighbours.
Couplings drive(size_t poses) {
  Couplings c;
  c.unknowns.assign(poses, 3);
  const size_t side = root(static_cast<double>(poses) / 2.0, 2.0);
  std::vector<std::int64_t> last(side * side, -1);
  std::mt19937 random(2);
  size_t x = side / 2, y = x;
  bool along = true;
  for (size_t i = 0; i < poses; ++i) {
    if (i > 0) c.couple(i, i - 1);
    std::int64_t& seen = last[y * side + x];
    if (seen >= 0 && static_cast<size_t>(seen) + 1 < i) c.couple(i, static_cast<size_t>(seen));
    seen = static_cast<std::int64_t>(i);
    if (random() % 4 == 0) along = !along;
    size_t& step = along ? x : y;
    const bool up = step == 0 || (step + 1 < side && random() % 2 == 0);
    step = up ? step + 1 : step - 1;
  }
  return c;
}

/// Rings of as many poses as there are rings, coupled along the ring and with the next one.
Couplings sphere(size_t poses) {
  const size_t ring = root(static_cast<double>(poses), 2.0);
  Couplings c;
  c.unknowns.assign(ring * ring, 6);
  for (size_t i = 0; i + 1 < c.unknowns.size(); ++i) {
    c.couple(i, i + 1);
    if (i + ring < c.unknowns.size()) c.couple(i, i + ring);
  }
  return c;
}

/// A camera for every 250 points, which stand in a row; a point is seen by five near each other.
Couplings bundle(size_t points) {
  constexpr size_t kSeen = 5, kReach = 2 * kSeen;
  const size_t cameras = std::max<size_t>(2 * kReach, points / 250);
  Couplings c;
  c.unknowns.assign(points, 3);
  c.unknowns.resize(points + cameras, 6);
  std::mt19937 random(3);
  for (size_t p = 0; p < points; ++p) {
    size_t camera = random() % (cameras - kReach);
    for (size_t seen = 0; seen < kSeen; ++seen) {
      c.couple(p, points + camera);
      camera += 1 + random() % 2;
    }
  }
  return c;
}

Couplings band(size_t blocks) {
  constexpr size_t kUnknowns = 24, kReach = 8;
  Couplings c;
  c.unknowns.assign(blocks, kUnknowns);
  for (size_t i = 0; i < blocks; ++i) {
    for (size_t j = i + 1; j < std::min(i + 1 + kReach, blocks); ++j) c.couple(i, j);
  }
  return c;
}

Couplings couplings(Shape shape, size_t size) {
  const auto unknowns = static_cast<double>(size);
  switch (shape) {
    case Shape::Plane:
      return grid(root(unknowns, 2.0), 2);
    case Shape::Space:
      return grid(root(unknowns, 3.0), 3);
    case Shape::Drive:
      return drive(size / 3 + 1);
    case Shape::Sphere:
      return sphere(size / 6 + 1);
    case Shape::Bundle:
      return bundle(size / 3 + 1);
    case Shape::Band:
    case Shape::Network:
      break;
  }
  return band(size / 24 + 1);
}

}  // namespace

SparseMatrix generatedProblem(Shape shape, size_t size) {
  if (shape == Shape::Network) {
    SparseMatrix A = levellingNormalMatrix(makeLevellingNetwork(std::max<size_t>(size, 2), 1));
    A.source = name(shape);
    return A;
  }
  return coupledMatrix(couplings(shape, size), name(shape));
}

const char* name(Shape shape) {
  switch (shape) {
    case Shape::Plane:
      return "2-D grid";
    case Shape::Space:
      return "3-D grid";
    case Shape::Network:
      return "levelling network";
    case Shape::Drive:
      return "pose graph 2-D";
    case Shape::Sphere:
      return "pose graph 3-D";
    case Shape::Bundle:
      return "bundle adjustment";
    case Shape::Band:
      return "banded matrix";
  }
  return "";
}

}  // namespace zeph
