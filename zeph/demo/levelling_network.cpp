#include "zeph/demo/levelling_network.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>
#include <random>

namespace zeph {

namespace {

constexpr double kSigmaPerRootKilometre = 0.0007;  // ordinary double-run levelling
constexpr double kBenchmarkSigma = 0.0005;
constexpr std::size_t kPointsPerBenchmark = 200;
constexpr std::size_t kFewestBenchmarks = 3;
constexpr double kDroppedLines = 0.3;   // share of neighbours that are not connected
constexpr double kLongestLine = 2.2;    // kilometres; longer ones only where nothing else connects
constexpr unsigned kWellConnected = 4;  // lines at either end
constexpr double kTau = 6.283185307179586;

/// The standard library's distributions differ between implementations; the same seed is to give
/// the same network everywhere.
class Random {
 public:
  explicit Random(std::uint64_t seed) : engine_(seed) {}
  double uniform() { return static_cast<double>(engine_() >> 11) * 0x1p-53; }
  double uniform(double low, double high) { return low + (high - low) * uniform(); }
  std::size_t below(std::size_t n) { return static_cast<std::size_t>(engine_() % n); }
  /// Box and Muller, 1958.
  double normal() {
    const double radius = std::sqrt(-2.0 * std::log(1.0 - uniform()));
    return radius * std::cos(kTau * uniform());
  }

 private:
  std::mt19937_64 engine_;
};

class DisjointSets {
 public:
  explicit DisjointSets(std::size_t n) : parent_(n) {
    std::iota(parent_.begin(), parent_.end(), 0);
  }
  std::uint32_t find(std::uint32_t i) {
    while (parent_[i] != i) i = parent_[i] = parent_[parent_[i]];
    return i;
  }
  /// False when the two were joined already.
  bool join(std::uint32_t i, std::uint32_t j) {
    i = find(i);
    j = find(j);
    parent_[i] = j;
    return i != j;
  }

 private:
  std::vector<std::uint32_t> parent_;
};

struct Lake {
  double x, y, radius;
};

/// Hills: a few plane waves of random direction and length.
class Terrain {
 public:
  Terrain(double extent, Random& random) {
    for (Wave& wave : waves_) {
      const double length = extent * random.uniform(0.15, 1.2);
      const double direction = random.uniform(0.0, kTau);
      wave = {kTau * std::cos(direction) / length, kTau * std::sin(direction) / length,
              random.uniform(0.0, kTau), 12.0 * length / extent};
    }
  }
  double height(double x, double y) const {
    double sum = 100.0;
    for (const Wave& w : waves_) sum += w.height * std::sin(w.kx * x + w.ky * y + w.phase);
    return sum;
  }

 private:
  struct Wave {
    double kx, ky, phase, height;
  };
  std::array<Wave, 12> waves_;
};

/// Points on a shaken lattice, pushed out of a few lakes.
std::vector<LevellingPoint> makePoints(std::size_t size, std::size_t across, Random& random) {
  const double extent = static_cast<double>(across);
  std::array<Lake, 4> lakes;
  for (Lake& lake : lakes) {
    lake = {random.uniform(0.15, 0.85) * extent, random.uniform(0.15, 0.85) * extent,
            random.uniform(0.05, 0.12) * extent};
  }
  const Terrain terrain(extent, random);
  std::vector<LevellingPoint> points(size);
  for (std::size_t i = 0; i < size; ++i) {
    const std::size_t column = i % across, row = i / across;
    double x = static_cast<double>(column) + random.uniform(-0.38, 0.38);
    double y = static_cast<double>(row) + random.uniform(-0.38, 0.38);
    for (const Lake& lake : lakes) {
      const double dx = x - lake.x, dy = y - lake.y;
      const double squared = dx * dx + dy * dy, radius = lake.radius * lake.radius;
      // Full push at the shore, fading with distance, so that the lattice stays planar.
      const double push = std::sqrt((squared + radius * std::exp(-squared / (4.0 * radius))) /
                                    std::max(squared, 1e-12));
      x = lake.x + push * dx;
      y = lake.y + push * dy;
    }
    points[i] = {x, y, terrain.height(x, y)};
  }
  return points;
}

/// Neighbours on the lattice (right, up, and one of the two diagonals of every cell), less a random
/// share; lines that would leave the network disconnected stay.
std::vector<LevellingLine> makeLines(const std::vector<LevellingPoint>& points, std::size_t across,
                                     Random& random) {
  const std::size_t size = points.size();
  std::vector<LevellingLine> kept, spare;
  DisjointSets parts(size);
  const auto offer = [&](std::size_t i, std::size_t j) {
    if (j >= size) return;
    const double length = std::hypot(points[i].x - points[j].x, points[i].y - points[j].y);
    const LevellingLine line = {static_cast<std::uint32_t>(i), static_cast<std::uint32_t>(j),
                                kSigmaPerRootKilometre * std::sqrt(length)};
    if (length > kLongestLine || random.uniform() < kDroppedLines) {
      spare.push_back(line);
    } else {
      kept.push_back(line);
      parts.join(line.from, line.to);
    }
  };
  for (std::size_t i = 0; i < size; ++i) {
    const bool last = i % across == across - 1;
    if (!last) offer(i, i + 1);
    offer(i, i + across);
    if (last) continue;
    if (random.uniform() < 0.5) {
      offer(i, i + across + 1);
    } else {
      offer(i + 1, i + across);
    }
  }
  std::sort(spare.begin(), spare.end(),
            [](const LevellingLine& a, const LevellingLine& b) { return a.sigma < b.sigma; });
  for (const LevellingLine& line : spare) {
    if (parts.join(line.from, line.to)) kept.push_back(line);
  }
  return kept;
}

std::vector<Benchmark> makeBenchmarks(std::size_t size, Random& random) {
  const std::size_t wanted =
      std::min(size, std::max(kFewestBenchmarks, size / kPointsPerBenchmark));
  std::vector<bool> taken(size, false);
  std::vector<Benchmark> benchmarks;
  while (benchmarks.size() < wanted) {
    const std::size_t point = random.below(size);
    if (taken[point]) continue;
    taken[point] = true;
    benchmarks.push_back({static_cast<std::uint32_t>(point), kBenchmarkSigma});
  }
  return benchmarks;
}

}  // namespace

LevellingNetwork makeLevellingNetwork(std::size_t size, std::uint64_t seed) {
  Random random(seed);
  const auto across = static_cast<std::size_t>(std::ceil(std::sqrt(static_cast<double>(size))));
  LevellingNetwork network;
  network.points = makePoints(size, across, random);
  network.lines = makeLines(network.points, across, random);
  network.benchmarks = makeBenchmarks(size, random);
  return network;
}

SparseMatrix levellingNormalMatrix(const LevellingNetwork& network) {
  SparseMatrix A;
  A.source = "the normal matrix";
  A.rows = A.cols = network.points.size();
  A.symmetry = Symmetry::Symmetric;
  A.entries.reserve(3 * network.lines.size() + network.benchmarks.size());
  for (const LevellingLine& line : network.lines) {
    const double weight = 1.0 / (line.sigma * line.sigma);
    A.entries.push_back({line.from, line.from, weight});
    A.entries.push_back({line.to, line.to, weight});
    A.entries.push_back({std::max(line.from, line.to), std::min(line.from, line.to), -weight});
  }
  for (const Benchmark& b : network.benchmarks) {
    A.entries.push_back({b.point, b.point, 1.0 / (b.sigma * b.sigma)});
  }
  return A;
}

ZtMatrix levellingRightSides(const LevellingNetwork& network, std::size_t campaigns,
                             std::uint64_t seed) {
  Random random(seed ^ 0x9E3779B97F4A7C15u);
  ZtMatrix B(network.points.size(), campaigns, campaigns, nullptr);
  ZtMatrix_setZero(&B);
  for (const LevellingLine& line : network.lines) {
    const double weight = 1.0 / (line.sigma * line.sigma);
    const double rise = network.points[line.to].height - network.points[line.from].height;
    double* from = B.data + line.from * B.stride;
    double* to = B.data + line.to * B.stride;
    for (std::size_t k = 0; k < campaigns; ++k) {
      const double weighted = weight * (rise + line.sigma * random.normal());
      from[k] -= weighted;
      to[k] += weighted;
    }
  }
  for (const Benchmark& b : network.benchmarks) {
    for (std::size_t k = 0; k < campaigns; ++k) {
      B.data[b.point * B.stride + k] +=
          (network.points[b.point].height + b.sigma * random.normal()) / (b.sigma * b.sigma);
    }
  }
  return B;
}

LevellingCampaign levellingCampaign(const LevellingNetwork& network, std::uint64_t seed) {
  Random random(seed ^ 0xD1B54A32D192ED03u);
  LevellingCampaign c;
  const std::size_t lines = network.lines.size(), rows = lines + network.benchmarks.size();
  c.J.source = "the levelling network";
  c.J.rows = rows;
  c.J.cols = network.points.size();
  c.J.entries.reserve(lines + rows);
  c.y.reserve(rows);
  c.sigma.reserve(rows);
  const auto observe = [&](double truth, double sigma) {
    c.y.push_back(truth + sigma * random.normal());
    c.sigma.push_back(sigma);
  };
  for (const LevellingLine& line : network.lines) {
    const auto row = static_cast<std::uint32_t>(c.y.size());
    c.J.entries.push_back({row, line.from, -1.0});
    c.J.entries.push_back({row, line.to, 1.0});
    observe(network.points[line.to].height - network.points[line.from].height, line.sigma);
  }
  for (const Benchmark& b : network.benchmarks) {
    c.J.entries.push_back({static_cast<std::uint32_t>(c.y.size()), b.point, 1.0});
    observe(network.points[b.point].height, b.sigma);
  }
  return c;
}

std::size_t wellConnectedLine(const LevellingNetwork& network, std::uint64_t seed) {
  std::vector<unsigned> degree(network.points.size(), 0);
  for (const LevellingLine& line : network.lines) ++degree[line.from], ++degree[line.to];
  const std::size_t count = network.lines.size(), first = Random(seed).below(count);
  std::size_t best = first;
  const auto worse = [&](std::size_t k) {
    return std::min(degree[network.lines[k].from], degree[network.lines[k].to]);
  };
  for (std::size_t k = 1; k < count && worse(best) < kWellConnected; ++k) {
    const std::size_t other = (first + k) % count;
    if (worse(other) > worse(best)) best = other;
  }
  return best;
}

SpreadCheck compareWithTruth(const LevellingNetwork& network, const ZtMatrix& heights,
                             const ZtVector& variances) {
  double squares = 0.0;
  std::size_t one = 0, two = 0;
  for (std::size_t i = 0; i < network.points.size(); ++i) {
    const double sigma = std::sqrt(variances.data[i]);
    for (ZtSize k = 0; k < heights.cols; ++k) {
      const double error =
          (heights.data[i * heights.stride + k] - network.points[i].height) / sigma;
      squares += error * error;
      one += std::fabs(error) <= 1.0;
      two += std::fabs(error) <= 2.0;
    }
  }
  const double count = static_cast<double>(network.points.size() * heights.cols);
  return {std::sqrt(squares / count), static_cast<double>(one) / count,
          static_cast<double>(two) / count};
}

}  // namespace zeph
