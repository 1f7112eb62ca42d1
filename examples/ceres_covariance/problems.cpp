#include "problems.h"

#include <ceres/ceres.h>
#include <ceres/rotation.h>

#include <cmath>
#include <random>

#include "examples/bundle_adjustment/simulate.h"

namespace zeph_ceres {
namespace {

using std::size_t;

/// The second pose as seen from the first, against a measurement of it.
struct RelativePose {
  std::array<double, 3> motion;
  std::array<double, 4> turn;
  double weight;

  template <class T>
  bool operator()(const T* pa, const T* qa, const T* pb, const T* qb, T* residual) const {
    const T back[4] = {qa[0], -qa[1], -qa[2], -qa[3]};
    const T apart[3] = {pb[0] - pa[0], pb[1] - pa[1], pb[2] - pa[2]};
    T seen[3], relative[4], difference[4];
    ceres::QuaternionRotatePoint(back, apart, seen);
    ceres::QuaternionProduct(back, qb, relative);
    const T measured[4] = {T(turn[0]), T(-turn[1]), T(-turn[2]), T(-turn[3])};
    ceres::QuaternionProduct(measured, relative, difference);
    for (int k = 0; k < 3; ++k) {
      residual[k] = weight * (seen[k] - motion[k]);
      residual[3 + k] = 20.0 * weight * difference[1 + k];
    }
    return true;
  }
};

struct Reprojection {
  double x, y;

  template <class T>
  bool operator()(const T* camera, const T* point, T* residual) const {
    T P[3];
    ceres::AngleAxisRotatePoint(camera, point, P);
    for (int k = 0; k < 3; ++k) P[k] += camera[3 + k];
    const T u = -P[0] / P[2], v = -P[1] / P[2], square = u * u + v * v;
    const T scale = camera[6] * (1.0 + square * (camera[7] + square * camera[8]));
    residual[0] = 2.0 * (scale * u - x);
    residual[1] = 2.0 * (scale * v - y);
    return true;
  }
};

struct Known {
  std::array<double, 3> at;
  double weight;

  template <class T>
  bool operator()(const T* point, T* residual) const {
    for (int k = 0; k < 3; ++k) residual[k] = weight * (point[k] - at[k]);
    return true;
  }
};

}  // namespace

TestProblem poseGraph(size_t poses) {
  constexpr size_t kTurn = 20;  // poses in one turn of the screw
  std::mt19937 random(7);
  std::uniform_real_distribution<double> noise(-0.02, 0.02);
  TestProblem t{"pose graph, " + std::to_string(poses) + " poses", {}, nullptr, {}};
  for (size_t i = 0; i < poses; ++i) {
    const double a = 2.0 * 3.14159265358979 * static_cast<double>(i) / kTurn;
    const double turn[3] = {noise(random), noise(random), a};
    t.values.push_back({10.0 * std::cos(a) + noise(random), 10.0 * std::sin(a) + noise(random),
                        0.1 * static_cast<double>(i)});
    t.values.emplace_back(4);
    ceres::AngleAxisToQuaternion(turn, t.values.back().data());
  }
  t.problem = std::make_unique<ceres::Problem>();
  const auto position = [&](size_t i) { return t.values[2 * i].data(); };
  const auto turn = [&](size_t i) { return t.values[2 * i + 1].data(); };
  for (size_t i = 0; i < poses; ++i) {
    t.problem->AddParameterBlock(position(i), 3);
    t.problem->AddParameterBlock(turn(i), 4, new ceres::QuaternionManifold);
    t.wanted.emplace_back(position(i), position(i));
    t.wanted.emplace_back(turn(i), turn(i));
    t.wanted.emplace_back(turn(i), position(i));
    if (i > 0) t.wanted.emplace_back(position(i - 1), turn(i));
  }
  t.problem->SetParameterBlockConstant(position(0));
  t.problem->SetParameterBlockConstant(turn(0));
  const auto measure = [&](size_t a, size_t b, double weight, ceres::LossFunction* loss) {
    // What is there, and some noise: residuals are not zero, so that the loss shows.
    const double* const q = turn(a);
    const double back[4] = {q[0], -q[1], -q[2], -q[3]};
    double apart[3], relative[4];
    RelativePose cost{{}, {}, weight};
    for (int k = 0; k < 3; ++k) apart[k] = position(b)[k] - position(a)[k];
    ceres::QuaternionRotatePoint(back, apart, cost.motion.data());
    ceres::QuaternionProduct(back, turn(b), relative);
    for (int k = 0; k < 3; ++k) cost.motion[static_cast<size_t>(k)] += noise(random);
    std::copy_n(relative, 4, cost.turn.begin());
    t.problem->AddResidualBlock(
        new ceres::AutoDiffCostFunction<RelativePose, 6, 3, 4, 3, 4>(new RelativePose(cost)), loss,
        position(a), turn(a), position(b), turn(b));
  };
  for (size_t i = 1; i < poses; ++i) measure(i - 1, i, 100.0, nullptr);
  for (size_t i = kTurn; i < poses; ++i) measure(i - kTurn, i, 50.0, new ceres::HuberLoss(0.5));
  return t;
}

TestProblem smallBundle(size_t images, size_t pointsPerImage) {
  bundle::Simulation simulation;
  simulation.images = images;
  simulation.pointsPerImage = pointsPerImage;
  const bundle::Simulated s = bundle::simulate(simulation);
  TestProblem t{"bundle, " + std::to_string(images) + " images", {}, nullptr, {}};
  for (const bundle::Camera& c : s.truth.cameras) {
    const auto p = bundle::parametersOf(c);
    t.values.emplace_back(p.begin(), p.end());
  }
  for (const bundle::Vector3& p : s.truth.points) t.values.emplace_back(p.begin(), p.end());
  const auto camera = [&](size_t c) { return t.values[c].data(); };
  const auto point = [&](size_t i) { return t.values[images + i].data(); };
  t.problem = std::make_unique<ceres::Problem>();
  for (size_t c = 0; c < images; ++c) {
    t.problem->AddParameterBlock(camera(c), 9, new ceres::SubsetManifold(9, {8}));
    t.wanted.emplace_back(camera(c), camera(c));
    t.wanted.emplace_back(camera(c), point(c));
  }
  t.wanted.emplace_back(point(0), point(0));
  for (const bundle::Observation& o : s.truth.observations) {
    t.problem->AddResidualBlock(
        new ceres::AutoDiffCostFunction<Reprojection, 2, 9, 3>(new Reprojection{o.x, o.y}),
        new ceres::CauchyLoss(3.0), camera(o.camera), point(o.point));
  }
  for (const bundle::Control& c : s.control) {
    t.problem->AddResidualBlock(
        new ceres::AutoDiffCostFunction<Known, 3, 3>(new Known{c.at, 1.0 / c.sigma}), nullptr,
        point(c.point));
  }
  return t;
}

}  // namespace zeph_ceres
