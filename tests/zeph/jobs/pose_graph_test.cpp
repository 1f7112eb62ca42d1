#include "zeph/pose_graph.h"

#include <array>
#include <sstream>

#include "tests/zeph/factor/dense_truth.h"
#include "tests/zeph/front_test.h"
#include "zeph/jobs/pose_graph_output.h"
#include "zeph/jobs/pose_motion.h"

namespace zeph {
namespace {

class PoseGraphTest : public FrontTest {
 protected:
  double uniform(double high) {
    return high * (static_cast<double>(random_()) / 2147483648.0 - 1.0);
  }

  Pose randomPose(std::size_t freedom, double turn) {
    double step[6];
    for (double& s : step) s = uniform(turn);
    step[0] = uniform(5.0);
    return moved(freedom, identityPose(freedom), step);
  }

  /// A chain with loops; measurements are exact but for `noise`, initial poses but for 0.1.
  PoseGraph graph(std::size_t freedom, std::size_t count, double noise, PoseGraph* truth) {
    PoseGraph g;
    g.freedom = freedom;
    for (std::size_t i = 0; i < count; ++i) {
      g.ids.push_back(static_cast<std::int64_t>(2 * i));
      g.poses.push_back(randomPose(freedom, 2.0));
      g.fixed.push_back(i == 0);
    }
    const auto join = [&](std::size_t from, std::size_t to) {
      PoseEdge e;
      e.from = from;
      e.to = to;
      double off[6];
      for (double& v : off) v = uniform(noise);
      e.measurement =
          moved(freedom, composed(freedom, inverted(freedom, g.poses[from]), g.poses[to]), off);
      std::array<double, 36> root{};
      for (double& v : root) v = uniform(1.0);
      for (std::size_t k = 0; k < freedom * freedom; ++k) {
        const std::size_t r = k % freedom, c = k / freedom;
        e.information[k] = r == c ? 3.0 : 0.0;
        for (std::size_t m = 0; m < freedom; ++m) {
          e.information[k] += root[r + m * freedom] * root[c + m * freedom];
        }
      }
      g.edges.push_back(e);
    };
    for (std::size_t i = 1; i < count; ++i) {
      i % 2 ? join(i - 1, i) : join(i, i - 1);
      if (i > 1) join(i, below(i - 1));
    }
    if (truth) *truth = g;
    for (std::size_t i = 1; i < count; ++i) {
      double off[6];
      for (double& v : off) v = uniform(0.1);
      g.poses[i] = moved(freedom, g.poses[i], off);
    }
    return g;
  }
};

double distance(const PoseGraph& a, const PoseGraph& b) {
  double largest = 0.0;
  for (std::size_t i = 0; i < a.poses.size(); ++i) {
    const Pose d = composed(a.freedom, inverted(a.freedom, a.poses[i]), b.poses[i]);
    for (std::size_t k = 0; k < 6; ++k) largest = std::max(largest, std::fabs(d[k]));
  }
  return largest;
}

std::vector<double> terms(const PoseGraph& g, const PoseEdge& e, const Pose& from, const Pose& to) {
  const auto r = edgeTerms(g.freedom, from, to, e.measurement).residual;
  return {r.begin(), r.begin() + static_cast<std::ptrdiff_t>(g.freedom)};
}

TEST_F(PoseGraphTest, DerivativesAndCovariancesAgreeWithDifferencesAndADenseInverse) {
  constexpr double kStep = 1e-5;
  for (const std::size_t d : {3u, 6u}) {
    for (const double noise : {1e-7, 0.3, 1.5}) {
      const PoseGraph g = graph(d, 6, noise, nullptr);
      const std::size_t n = d * (g.poses.size() - 1);
      SparseMatrix dense;
      dense.rows = dense.cols = n;
      PoseGraphOptions one;
      one.maxIterations = 0;  // covariances where the graph stands
      const PoseGraphResult result = optimise(g, one);
      EXPECT_FALSE(result.converged);
      for (const PoseEdge& e : g.edges) {
        const Pose ends[] = {g.poses[e.from], g.poses[e.to]};
        const EdgeTerms t = edgeTerms(d, ends[0], ends[1], e.measurement);
        std::vector<double> J(d * 2 * d);  // by differences, the columns of both ends
        for (std::size_t c = 0; c < 2 * d; ++c) {
          std::vector<double> side[2];
          for (const int s : {0, 1}) {
            double step[6] = {};
            step[c % d] = s ? kStep : -kStep;
            Pose p[] = {ends[0], ends[1]};
            p[c / d] = moved(d, p[c / d], step);
            side[s] = terms(g, e, p[0], p[1]);
          }
          for (std::size_t r = 0; r < d; ++r) {
            J[r + c * d] = (side[1][r] - side[0][r]) / (2.0 * kStep);
            const double own = (c < d ? t.from : t.to)[r + c % d * d];
            EXPECT_NEAR(own, J[r + c * d], 1e-7) << d << " " << r << " " << c;
            J[r + c * d] = own;
          }
        }
        const auto unknown = [&](std::size_t c) {
          return static_cast<std::int64_t>((c < d ? e.from : e.to) * d + c % d) -
                 static_cast<std::int64_t>(d);
        };
        for (std::size_t a = 0; a < 2 * d; ++a) {
          for (std::size_t b = 0; b < 2 * d; ++b) {
            if (unknown(a) < 0 || unknown(b) < 0) continue;
            double sum = 0.0;
            for (std::size_t r = 0; r < d; ++r) {
              for (std::size_t c = 0; c < d; ++c) {
                sum += J[r + a * d] * e.information[r + c * d] * J[c + b * d];
              }
            }
            dense.entries.push_back({static_cast<std::uint32_t>(unknown(a)),
                                     static_cast<std::uint32_t>(unknown(b)), sum});
          }
        }
      }
      const DenseTruth Z(dense);
      const auto all = result.covariances();
      for (std::size_t i = 0; i < g.poses.size(); ++i) {
        for (std::size_t j = 0; j < g.poses.size(); ++j) {
          const DenseMatrix block = result.covariance(i, j);
          for (std::size_t k = 0; k < d * d; ++k) {
            const std::size_t r = k % d, c = k / d;
            const auto truth =
                i == 0 || j == 0 ? 0.0 : static_cast<double>(Z((i - 1) * d + r, (j - 1) * d + c));
            EXPECT_NEAR(block(r, c), truth, 1e-10);
            EXPECT_NEAR(i == j ? all[i](r, c) : truth, truth, 1e-10);
          }
        }
      }
    }
  }
}

TEST_F(PoseGraphTest, MovesByAStepAndFindsItAgain) {
  const Pose start = identityPose(6);
  for (double size = 1.0; size > 1e-9; size *= 0.8) {
    const double step[6] = {0, 0, 0, uniform(size), uniform(size), uniform(size)};
    const auto found = edgeTerms(6, start, moved(6, start, step), start).residual;
    for (const int k : {3, 4, 5}) EXPECT_NEAR(found[k], step[k], 1e-14 * size);
  }
}

TEST_F(PoseGraphTest, PictureShowsPositionsAndTheirEllipses) {
  for (const std::size_t d : {3u, 6u}) {
    const PoseGraphResult r = optimise(graph(d, 25, 0.05, nullptr));
    const auto covariances = r.covariances();
    const std::string svg = drawPoseGraph(r.graph, covariances);
    double width = 0.0, height = 0.0;
    ASSERT_EQ(
        std::sscanf(svg.c_str() + svg.find("viewBox"), "viewBox=\"0 0 %lf %lf", &width, &height),
        2);
    std::vector<std::array<double, 5>> drawn;  // x, y, half axes, degrees
    for (std::size_t at = 0; (at = svg.find("<ellipse", at)) != svg.npos; ++at) {
      auto& [x, y, a, b, turn] = drawn.emplace_back();
      ASSERT_EQ(std::sscanf(svg.c_str() + at,
                            "<ellipse cx=\"%lf\" cy=\"%lf\" rx=\"%lf\" ry=\"%lf\" "
                            "transform=\"rotate(%lf",
                            &x, &y, &a, &b, &turn),
                5);
      EXPECT_TRUE(x > 0 && x < width && y > 0 && y < height) << x << " " << y;
    }
    const auto& poses = r.graph.poses;
    ASSERT_EQ(drawn.size(), poses.size());
    const auto [low, high] = std::minmax_element(poses.begin(), poses.end());  // in x
    const std::size_t first = low - poses.begin(), last = high - poses.begin();
    const double scale = (drawn[last][0] - drawn[first][0]) / ((*high)[0] - (*low)[0]);
    EXPECT_GT(scale, 0.0);
    double magnified = 0.0;  // squared
    for (std::size_t i = 0; i < poses.size(); ++i) {
      const auto& [x, y, a, b, turn] = drawn[i];
      EXPECT_NEAR(x - drawn[0][0], scale * (poses[i][0] - poses[0][0]), 0.2);
      EXPECT_NEAR(drawn[0][1] - y, scale * (poses[i][1] - poses[0][1]), 0.2);
      if (i == 0) continue;
      // Where a small step in each direction leads, and so the covariance of x and y.
      std::vector<double> to[2];
      for (std::size_t k = 0; k < d; ++k) {
        double step[6] = {};
        step[k] = 1e-6;
        const Pose p = moved(d, poses[i], step);
        for (const int c : {0, 1}) to[c].push_back((p[c] - poses[i][c]) / 1e-6);
      }
      double own[4] = {};
      for (std::size_t k = 0; k < 4 * d * d; ++k) {
        const std::size_t m = k / 4 % d, n = k / 4 / d;
        own[k % 4] += to[k % 2][m] * covariances[i](m, n) * to[k / 2 % 2][n];
      }
      const double c = std::cos(turn * M_PI / 180), s = -std::sin(turn * M_PI / 180);
      if (i == 1) magnified = (a * a + b * b) / (own[0] + own[3]);
      const double size = 0.02 * magnified * (own[0] + own[3]);
      EXPECT_NEAR(a * a * c * c + b * b * s * s, magnified * own[0], size);
      EXPECT_NEAR((a * a - b * b) * c * s, magnified * own[1], size);
      EXPECT_NEAR(a * a * s * s + b * b * c * c, magnified * own[3], size);
    }
    double said = 0.0;
    ASSERT_EQ(std::sscanf(svg.c_str() + svg.find("drawn at "), "drawn at %lf", &said), 1);
    EXPECT_NEAR(said * said * scale * scale * 5.991 / magnified, 1.0, 0.02);
  }
}

TEST_F(PoseGraphTest, FindsTheTrueGraphAndALeastCost) {
  for (const std::size_t d : {3u, 6u}) {
    PoseGraph truth;
    const PoseGraph exact = graph(d, 30, 0.0, &truth);
    PoseGraphResult r = optimise(exact);
    EXPECT_TRUE(r.converged);
    EXPECT_LT(r.cost, 1e-18);
    EXPECT_LT(distance(r.graph, truth), 1e-9);
    EXPECT_EQ(r.graph.poses[0], exact.poses[0]);

    for (const double off : {0.0, 2.5}) {  // from afar whole steps lead astray
      PoseGraph start = graph(d, 30, 0.2, nullptr);
      for (std::size_t i = 1; i < 30; ++i) {
        double step[6];
        for (double& s : step) s = uniform(off);
        start.poses[i] = moved(d, start.poses[i], step);
      }
      double last = 0.0, largest = 0.0;
      int calls = 0;
      PoseGraphOptions told;
      told.iterated = [&](int iteration, double cost, double damping) {
        EXPECT_EQ(iteration, calls++);
        EXPECT_TRUE(iteration == 0 || cost <= last);
        last = cost;
        largest = std::max(largest, damping);
      };
      r = optimise(start, told);
      EXPECT_TRUE(r.converged);
      EXPECT_EQ(largest > 0.0, off > 0.0 && d == 6);
      EXPECT_EQ(calls, r.iterations + 1);
      EXPECT_EQ(last, r.cost);
      for (int trial = 0; trial < 50 && off == 0.0; ++trial) {  // no neighbour is better
        PoseGraph other = r.graph;
        double step[6];
        for (double& s : step) s = uniform(1e-3);
        Pose& pose = other.poses[1 + below(29)];
        pose = moved(d, pose, step);
        told.maxIterations = 0;
        told.iterated = nullptr;
        EXPECT_GT(optimise(other, told).cost, r.cost);
      }
    }
  }
}

TEST_F(PoseGraphTest, ReadsTheTextFormAndPlacesMissingPoses) {
  const std::string info = " 1 0 0 1 0 1\n";
  const PoseGraph g = readPoseGraph(
      write("a.g2o", "# a square walked round\r\nEDGE_SE2 10 11 1 0 1.5707963267948966" + info +
                         "EDGE_SE2 12 11 1 0 -1.5707963267948966 4 1 2 5 3 6\n\n"
                         "EDGE_SE2 11 40 7 0 0" +
                         info + "VERTEX_SE2 11 1 0 1.5707963267948966\nFIX 11\n"));
  EXPECT_EQ(g.ids, (std::vector<std::int64_t>{10, 11, 12, 40}));
  EXPECT_EQ(g.fixed, (std::vector<bool>{false, true, false, false}));
  const double places[][3] = {{0, 0, 0}, {1, 0, M_PI_2}, {1, 0, M_PI}, {1, 7, M_PI_2}};
  for (std::size_t i : {0u, 1u, 3u}) {
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(g.poses[i][k], places[i][k], 1e-15) << i << k;
  }
  EXPECT_NEAR(optimise(g).initialCost, 0.0, 1e-25);  // every edge is met exactly
  EXPECT_EQ(g.edges[1].information[2 + 1 * 3], 3.0);
  EXPECT_EQ(g.edges[1].information[1 + 2 * 3], 3.0);
  const PoseGraph s =
      readPoseGraph(write("b.g2o",
                          "VERTEX_SE3:QUAT 3 1 2 3 0 0 2 0\nEDGE_SE3:QUAT 3 4 1 0 0 0 0 0 1 "
                          "1 0 0 0 0 0 1 0 0 0 0 1 0 0 0 1 0 0 1 0 1\n"));
  EXPECT_EQ(s.poses[0], (Pose{1, 2, 3, 0, 0, 1, 0}));
  EXPECT_NEAR(s.poses[1][0], 0.0, 1e-15);
}

TEST_F(PoseGraphTest, FaultsAreNamedWithTheirLine) {
  const std::string good = "VERTEX_SE2 0 0 0 0\nEDGE_SE2 0 1 1 0 0 1 0 0 1 0 1\n";
  const std::pair<std::string, const char*> cases[] = {
      {"EDGE_SE2 0 2 1 0 0 1 2 0 1 0 1\n", "3 x, line 3: the information matrix of edge 0 -> 2"},
      {"EDGE_SE2 0 2 1 0 0 1 0 0 1 0 -1\n", "3 x, line 3: the information matrix"},
      {"EDGE_SE2 0 2 1 0 0 1 0 0 1 0\n", "3 x, line 3: the line ends within the information"},
      {"EDGE_SE2 0 2 1 0 nan 1 0 0 1 0 1\n", "3 x, line 3: \"nan\" in the pose"},
      {"EDGE_SE2 0 2 1 0 0 1 0 0 1 0 1 9\n", "3 x, line 3: unexpected \"9\""},
      {"EDGE_SE2 2 2 1 0 0 1 0 0 1 0 1\n", "3 x, line 3: the edge leads from pose 2 to itself"},
      {"VERTEX_SE2 -1 0 0 0\n", "3 x, line 3: expected the id of a pose"},
      {"VERTEX_SE2 0 1 0 0\n", "3 x, line 3: pose 0 is given a second time"},
      {"VERTEX_SE3:QUAT 5 0 0 0 0 0 0 1\n", "3 x, line 3: poses in the plane"},
      {"EDGE_XY 5 0\n", "3 x, line 3: \"EDGE_XY\" is no record"},
      {"FIX 9\n", "3 x, line 3: pose 9 does not occur"},
      {"VERTEX_SE2 7 0 0 0\n", "6 x: no chain of edges ties pose 7"},
      {"EDGE_SE2 1 2 1 0 0 1 0 0 1 0 0\n", "6 x: the edges leave a pose free to move"},
  };
  for (const auto& [line, error] : cases) {
    const std::string file = write("x", good + line);
    expectError([&] { optimise(readPoseGraph(file)); }, error);
  }
  const std::string empty = write("x", "# nothing\n");
  expectError([&] { readPoseGraph(empty); }, "3 x holds no poses");
  PoseGraph g = graph(3, 3, 0.1, nullptr);
  const PoseGraphResult r = optimise(g);
  expectError([&] { r.covariance(3); }, "4 there is no pose with index 3");
  g.edges[0].to = 3;
  expectError([&] { optimise(g); }, "4 the graph: edge 0 does not join");
}

}  // namespace
}  // namespace zeph
