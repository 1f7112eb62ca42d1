#include "examples/bundle_adjustment/simulate.h"
#include "examples/bundle_adjustment/tables.h"
#include "tests/zeph/front_test.h"

namespace {

using bundle::Camera;
using bundle::kCameraUnknowns;
using bundle::Problem;
using bundle::Simulation;
using bundle::Vector3;

class BundleAdjustment : public FrontTest {
 protected:
  static bundle::Simulated simulated(Simulation::Layout layout, std::uint64_t seed) {
    Simulation s;
    s.layout = layout;
    s.images = 12;
    s.pointsPerImage = 25;
    s.seed = seed;
    return simulate(s);
  }

  static bundle::Adjustment adjusted(const bundle::Simulated& s, bool control) {
    bundle::Options options;
    options.pixelSigma = 0.5;
    const auto given = control ? s.control : std::vector<bundle::Control>();
    return adjust(s.start, chooseDatum(s.start, given), options);
  }
};

// The movement that makes one camera of the other.
std::array<double, kCameraUnknowns> movement(const Camera& from, const Camera& to) {
  bundle::Matrix3 back = from.rotation;
  std::swap(back[1], back[3]), std::swap(back[2], back[6]), std::swap(back[5], back[7]);
  const Vector3 turn = bundle::vectorOf(bundle::product(to.rotation, back));
  return {turn[0],
          turn[1],
          turn[2],
          to.centre[0] - from.centre[0],
          to.centre[1] - from.centre[1],
          to.centre[2] - from.centre[2],
          to.focal - from.focal,
          to.k1 - from.k1,
          to.k2 - from.k2};
}

TEST_F(BundleAdjustment, DerivativesAreThoseOfMovements) {
  std::mt19937 random(5);
  std::uniform_real_distribution<double> unit(-1.0, 1.0);
  for (int round = 0; round < 50; ++round) {
    const Camera camera{bundle::rotationBy({3.0 * unit(random), unit(random), unit(random)}),
                        {unit(random), unit(random), unit(random)},
                        2.0 + unit(random),
                        0.1 * unit(random),
                        0.1 * unit(random)};
    // In front of the camera: depth 2 to 4 along its axis.
    Vector3 point = camera.centre;
    const Vector3 seen = {unit(random), unit(random), -3.0 + unit(random)};
    for (int i = 0; i < 3; ++i) {
      for (int k = 0; k < 3; ++k) point[i] += camera.rotation[3 * k + i] * seen[k];
    }
    const bundle::Image image = projectWithDerivatives(camera, point);
    for (int k = 0; k < kCameraUnknowns + 3; ++k) {
      constexpr double kStep = 1e-6;
      std::array<double, 2> at[2];
      for (const int side : {0, 1}) {
        const double h = side == 0 ? -kStep : kStep;
        double d[kCameraUnknowns] = {};
        Vector3 shifted = point;
        (k < kCameraUnknowns ? d[k] : shifted[k - kCameraUnknowns]) += h;
        at[side] = project(moved(camera, d), shifted);
      }
      for (int i = 0; i < 2; ++i) {
        const double given =
            k < kCameraUnknowns ? image.byCamera[i][k] : image.byPoint[i][k - kCameraUnknowns];
        EXPECT_NEAR(given, (at[1][i] - at[0][i]) / (2.0 * kStep), 1e-7) << k;
        EXPECT_EQ(image.at[i], project(camera, point)[i]);
      }
    }
  }
}

TEST_F(BundleAdjustment, TextFormKeepsEveryCameraPointAndObservation) {
  bundle::Simulated s = simulated(Simulation::Layout::Block, 1);
  // Half turns, and turns that are next to none.
  s.start.cameras[0].rotation = bundle::rotationBy({0.0, 3.14159265358979, 1e-9});
  s.start.cameras[1].rotation = bundle::rotationBy({1e-13, 0.0, 2e-13});
  writeProblem(path("b.txt"), s.start);
  const Problem read = bundle::readProblem(path("b.txt"));
  EXPECT_EQ(read.points, s.start.points);
  ASSERT_EQ(read.cameras.size(), s.start.cameras.size());
  for (std::size_t c = 0; c < read.cameras.size(); ++c) {
    for (const double d : movement(s.start.cameras[c], read.cameras[c])) EXPECT_NEAR(d, 0.0, 1e-9);
  }
  ASSERT_EQ(read.observations.size(), s.start.observations.size());
  for (std::size_t o = 0; o < read.observations.size(); ++o) {
    EXPECT_EQ(read.observations[o].camera, s.start.observations[o].camera);
    EXPECT_EQ(read.observations[o].point, s.start.observations[o].point);
    EXPECT_EQ(read.observations[o].y, s.start.observations[o].y);
  }
}

TEST_F(BundleAdjustment, RefusesWithFileLineAndReason) {
  const std::string camera = "0\n0\n0\n0\n0\n0\n1\n0\n0\n";
  const struct {
    std::string text, error;
  } cases[] = {
      {"", "3 b.txt, line 1: the file ends where the number of cameras is expected"},
      {"1 1 x",
       "3 b.txt, line 1: expected the number of observations, a whole number from 0, "
       "found \"x\""},
      {"1 -1 1", "3 b.txt, line 1: expected the number of points"},
      {"4000000000 1 1", "3 b.txt, line 1: the file is too short for 4000000000 cameras"},
      {"1 1 1\n0 1 2 3\n" + camera + "1 2 3", "3 b.txt, line 2: there is no point 1 among 1"},
      {"1 1 1\n0 0 nan 3\n" + camera + "1 2 3", "3 b.txt, line 2: expected an image coordinate"},
      {"1 1 1\r\n0 0 2 3\r\n" + camera + "1 2",
       "3 b.txt, line 12: the file ends where a "
       "coordinate of point 0 is expected"},
      {"1 1 1\n0 0 2 3\n" + camera + "1 2 3\n4", "3 b.txt, line 13: expected the end of the file"},
      {"BZh91AY", "3 b.txt: is compressed; unpack it first"},
  };
  for (const auto& c : cases) {
    const std::string file = write("b.txt", c.text);
    expectError([&] { bundle::readProblem(file); }, c.error);
  }
  expectError([&] { bundle::readProblem(path("none")); }, "3 none: cannot be read");
  const std::string control = write("c.txt", "# point x y z sigma\n0 1 2 3 0.1\n1 1 2 3 0\n");
  expectError([&] { bundle::readControl(control, 2); },
              "3 c.txt, line 3: a standard deviation has to be positive");
  expectError([&] { bundle::readControl(control, 1); }, "3 c.txt, line 3: there is no point 1");
  expectError([&] { bundle::writeWhole(path("none/b"), "x"); }, "7 none/b: cannot be written");

  bundle::Simulated s = simulated(Simulation::Layout::Ring, 1);
  const auto expectUnfit = [&](const Problem& p, const std::string& words) {
    expectError([&] { adjust(p, chooseDatum(p, s.control)); }, words);
  };
  Problem single = s.start;
  single.points.push_back({0.0, 0.0, 0.0});
  const auto last = static_cast<std::uint32_t>(single.points.size() - 1);
  single.observations.push_back({3, last, 0.0, 0.0});
  expectUnfit(single, "4 the problem: point " + std::to_string(last) + " has 1 observations");
  // Seen twice by one camera: only its direction is known.
  single.observations.push_back({3, last, 0.0, 0.0});
  expectUnfit(single, "6 the problem: the observations leave");
  Problem beside = s.start;
  beside.points[beside.observations[0].point] =
      beside.cameras[beside.observations[0].camera].centre;
  expectUnfit(beside, "4 the problem: observation 0: camera");
}

// Against the dense inverse: solves for all columns.
TEST_F(BundleAdjustment, CovariancesAreBlocksOfTheInverse) {
  for (const auto layout : {Simulation::Layout::Block, Simulation::Layout::Ring}) {
    for (const bool control : {true, false}) {
      const bundle::Adjustment a = adjusted(simulated(layout, 3), control);
      ASSERT_TRUE(a.converged);
      EXPECT_NEAR(a.sigma0, 1.0, 0.2);
      const auto n = a.factor->rows();
      auto inverse = zeph::DenseMatrix::zeros(n, n);
      for (std::size_t k = 0; k < n; ++k) inverse.values[k * (n + 1)] = 1.0;
      inverse = a.factor->solve(inverse);
      int fixed = 0;
      const auto expectBlock = [&](const zeph::DenseMatrix& C, const auto& unknown) {
        for (int i = 0; i < static_cast<int>(C.rows); ++i) {
          for (int j = 0; j < static_cast<int>(C.rows); ++j) {
            const auto r = static_cast<std::size_t>(unknown(i));
            const auto c = static_cast<std::size_t>(unknown(j));
            const bool free = unknown(i) >= 0 && unknown(j) >= 0;
            fixed += i == j && !free;
            const double scale = free ? std::sqrt(inverse(r, r) * inverse(c, c)) : 1.0;
            EXPECT_NEAR(C(static_cast<std::size_t>(i), static_cast<std::size_t>(j)) / scale,
                        free ? a.sigma0 * a.sigma0 * inverse(r, c) / scale : 0.0, 1e-7);
          }
        }
      };
      const auto cameras = a.cameraCovariances();
      for (std::size_t c = 0; c < cameras.size(); ++c) {
        expectBlock(cameras[c], [&](int k) { return a.system->ofCamera(c, k); });
      }
      EXPECT_EQ(fixed, control ? 0 : 7);
      const std::vector<std::size_t> chosen = {5, 0, 7};
      const auto points = a.pointCovariances(chosen);
      for (std::size_t k = 0; k < chosen.size(); ++k) {
        expectBlock(points[k], [&](int i) { return a.system->ofPoint(chosen[k], i); });
      }
      const std::string svg = picture(a, cameras);
      std::size_t ellipses = 0;
      for (std::size_t at = 0; (at = svg.find("<ellipse", at)) != svg.npos; ++at) ++ellipses;
      EXPECT_EQ(ellipses, cameras.size());
      EXPECT_EQ(svg.find("nan"), svg.npos);
    }
  }
}

}  // namespace
