#include "simulate.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace bundle {
namespace {

using std::size_t;

constexpr double kPi = 3.14159265358979323846;
constexpr double kFocal = 1000.0, kHalfImage = 500.0;  // pixels
constexpr size_t kLeastViews = 3;

class Noise {
 public:
  explicit Noise(std::uint64_t seed) : engine_(seed) {}
  double uniform(double from, double to) {
    return from + (to - from) * static_cast<double>(engine_() >> 11) * 0x1p-53;
  }
  double normal(double sigma) {  // Box and Muller
    const double radius = std::sqrt(-2.0 * std::log(1.0 - uniform(0.0, 1.0)));
    return sigma * radius * std::cos(uniform(0.0, 2.0 * kPi));
  }

 private:
  std::mt19937_64 engine_;
};

Camera cameraAt(const Vector3& centre, const Matrix3& facing, double tilt, Noise& noise) {
  const Vector3 turn = {noise.normal(tilt), noise.normal(tilt), noise.normal(0.1)};
  return {product(rotationBy(turn), facing), centre, kFocal * (1.0 + noise.normal(0.01)),
          noise.normal(0.02), noise.normal(0.005)};
}

// 70 % of an image is on the next one in the strip, 40 % on the next strip; strips in turn.
void layBlock(const Simulation& s, Problem& p, Noise& noise) {
  constexpr double kHeight = 1000.0, kStep = 300.0, kStripStep = 600.0, kRelief = 300.0;
  const auto strips = static_cast<size_t>(
      std::max(1.0, std::round(std::sqrt(static_cast<double>(s.images) / 2.0))));
  const size_t inStrip = (s.images + strips - 1) / strips;
  for (size_t c = 0; c < s.images; ++c) {
    const size_t strip = c / inStrip;
    const double x = kStep * static_cast<double>(c % inStrip);
    const double turn = strip % 2 == 0 ? 0.0 : kPi;
    p.cameras.push_back(cameraAt(
        {x + noise.normal(20.0), kStripStep * static_cast<double>(strip) + noise.normal(20.0),
         kHeight + noise.normal(30.0)},
        rotationBy({0.0, 0.0, turn}), 0.1, noise));
  }
  const double width = kStep * static_cast<double>(inStrip - 1);
  const double depth = kStripStep * static_cast<double>(strips - 1);
  for (size_t i = 0; i < s.images * s.pointsPerImage; ++i) {
    p.points.push_back({noise.uniform(-400.0, width + 400.0), noise.uniform(-400.0, depth + 400.0),
                        noise.uniform(0.0, kRelief)});
  }
}

void layRing(const Simulation& s, Problem& p, Noise& noise) {
  constexpr double kRadius = 100.0, kTower = 30.0, kTall = 60.0;
  for (size_t c = 0; c < s.images; ++c) {
    const double a = 2.0 * kPi * static_cast<double>(c) / static_cast<double>(s.images);
    // Looks along -z at the axis, y up.
    const Matrix3 facing = {-std::sin(a), std::cos(a), 0.0,         0.0, 0.0,
                            1.0,          std::cos(a), std::sin(a), 0.0};
    p.cameras.push_back(cameraAt({kRadius * std::cos(a), kRadius * std::sin(a), noise.normal(5.0)},
                                 facing, 0.05, noise));
  }
  for (size_t i = 0; i < s.images * s.pointsPerImage; ++i) {
    const double a = noise.uniform(0.0, 2.0 * kPi), r = kTower * noise.uniform(0.5, 1.5);
    p.points.push_back(
        {r * std::cos(a), r * std::sin(a), noise.uniform(-0.5 * kTall, 0.5 * kTall)});
  }
}

// A camera of the ring sees what is within three and a half steps of its own direction.
bool sees(const Simulation& s, Camera camera, const Vector3& point) {
  if (s.layout == Simulation::Layout::Ring) {
    const double apart =
        std::atan2(camera.centre[1], camera.centre[0]) - std::atan2(point[1], point[0]);
    if (std::fabs(std::remainder(apart, 2.0 * kPi)) > 7.0 * kPi / static_cast<double>(s.images)) {
      return false;
    }
  } else if (std::hypot(camera.centre[0] - point[0], camera.centre[1] - point[1]) > 2000.0) {
    return false;  // far off the image
  }
  // Without distortion, which folds what is far outside back into the image.
  camera.k1 = camera.k2 = 0.0;
  const auto at = project(camera, point);
  return std::max(std::fabs(at[0]), std::fabs(at[1])) <= kHalfImage;
}

// Images of all points, those that too few cameras see left out.
void observe(const Simulation& s, Problem& p, Noise& noise) {
  std::vector<Vector3> kept;
  std::vector<Observation> views;
  for (const Vector3& point : p.points) {
    views.clear();
    for (size_t c = 0; c < p.cameras.size(); ++c) {
      if (!sees(s, p.cameras[c], point)) continue;
      const auto at = project(p.cameras[c], point);
      views.push_back(
          {static_cast<std::uint32_t>(c), static_cast<std::uint32_t>(kept.size()), at[0], at[1]});
    }
    if (views.size() < kLeastViews) continue;
    kept.push_back(point);
    p.observations.insert(p.observations.end(), views.begin(), views.end());
  }
  p.points = std::move(kept);
  for (Observation& o : p.observations) {
    o.x += noise.normal(s.pixelSigma);
    o.y += noise.normal(s.pixelSigma);
  }
}

// Points far from each other, each the farthest from those before it.
std::vector<Control> spread(const Simulation& s, const Problem& p, Noise& noise) {
  std::vector<double> distance(p.points.size(), HUGE_VAL);
  std::vector<Control> control;
  size_t next = 0;
  while (control.size() < std::min(s.control, p.points.size())) {
    Control c{static_cast<std::uint32_t>(next), p.points[next], s.controlSigma};
    for (size_t i = 0; i < p.points.size(); ++i) {
      double square = 0.0;
      for (size_t k = 0; k < 3; ++k) {
        square += (p.points[i][k] - c.at[k]) * (p.points[i][k] - c.at[k]);
      }
      distance[i] = std::min(distance[i], square);
    }
    next =
        static_cast<size_t>(std::max_element(distance.begin(), distance.end()) - distance.begin());
    for (double& x : c.at) x += noise.normal(s.controlSigma);
    control.push_back(c);
  }
  return control;
}

}  // namespace

Simulated simulate(const Simulation& s) {
  Noise noise(s.seed);
  Simulated result;
  Problem& truth = result.truth;
  if (s.layout == Simulation::Layout::Block) {
    layBlock(s, truth, noise);
  } else {
    layRing(s, truth, noise);
  }
  observe(s, truth, noise);
  result.control = spread(s, truth, noise);
  result.start = truth;
  const double extent = s.layout == Simulation::Layout::Block ? 5.0 : 0.5;
  for (Camera& camera : result.start.cameras) {
    double d[kCameraUnknowns];
    for (int k = 0; k < 3; ++k) d[k] = noise.normal(0.005);
    for (int k = 3; k < 6; ++k) d[k] = noise.normal(extent);
    d[6] = kFocal - camera.focal;
    d[7] = -camera.k1;
    d[8] = -camera.k2;
    camera = moved(camera, d);
  }
  for (Vector3& point : result.start.points) {
    for (double& x : point) x += noise.normal(extent);
  }
  return result;
}

}  // namespace bundle
