#include "zeph/demo/network_picture.h"

#include <map>

#include "tests/zeph/drawn.h"
#include "tests/zeph/front_test.h"

namespace zeph {
namespace {

class NetworkPictureTest : public FrontTest {};

// Of lines for a small network and of cells for a large one: each piece lies where its points are,
// and the larger its mean standard deviation, the higher its shade.
TEST_F(NetworkPictureTest, PiecesLieAtTheirPointsAndShadesFollowTheStandardDeviations) {
  for (const unsigned size : {300u, 25000u}) {
    const bool lines = size == 300;
    LevellingNetwork net;
    ZtVector variances(size);
    const double scale = 820.0 / 8.0, cell = 820.0 / 160;  // pixels
    net.points = {{3.0, -7.0, 0.0}, {11.0, -1.0, 0.0}};    // the corners
    for (unsigned i = 0; i < size; ++i) {
      const double right = below(820) + 0.2, down = below(615) + 0.2;
      if (i > 1) net.points.push_back({3.0 + right / scale, -1.0 - down / scale, 0.0});
      const double sigma = 0.5 + 0.001 * below(3000);
      variances.data[i] = sigma * sigma;
      if (i > 0) net.lines.push_back({i, below(i), 1.0});
    }
    net.points[2] = {3.0 + 400.2 / scale, -1.0 - 300.2 / scale, 0.0};  // near each other
    net.points[3] = {3.0 + 430.2 / scale, -1.0 - 300.2 / scale, 0.0};
    net.lines[0] = {2, 3, 1.0};
    for (unsigned k = 0; k < 9; ++k) net.benchmarks.push_back({below(size), 1.0});
    const std::string svg = drawNetwork(net, variances, 0);  // the line between these
    expectInside(svg);

    const auto x = [&](unsigned i) { return (net.points[i].x - 3.0) * scale; };
    const auto y = [&](unsigned i) { return (-1.0 - net.points[i].y) * scale; };
    std::map<std::vector<long>, std::vector<double>> wanted;  // by place
    for (unsigned i = 0; i < size && !lines; ++i) {
      wanted[{std::min(159L, long(x(i) / cell)), long(y(i) / cell)}].push_back(
          std::sqrt(variances.data[i]));
    }
    for (const auto& l : lines ? net.lines : std::vector<LevellingLine>()) {
      wanted[{std::lround(x(l.from)), std::lround(y(l.from)), std::lround(x(l.to)),
              std::lround(y(l.to))}] = {std::sqrt(variances.data[l.from]),
                                        std::sqrt(variances.data[l.to])};
    }
    double highest = 0.0;  // mean of a lower shade
    for (int shade = 0; shade < 40; ++shade) {
      const std::string head = "class=\"zn" + std::to_string(shade) + "\" d=\"";
      const std::size_t at = svg.find(head);
      if (at == svg.npos) continue;  // nothing has it
      const std::string path = svg.substr(at, svg.find("/>", at) - at);
      double reached = highest;
      for (const auto& p : drawn(path, "M# #" + std::string(lines ? "L# #" : ""))) {
        std::vector<std::vector<long>> places(1);
        for (std::size_t k = 0; k < p.size(); ++k) {
          const double from = p[k] - (k % 2 ? 64.0 : 28.0);
          places[0].push_back(std::lround(lines ? from : from / cell));
        }
        const auto found = wanted.find(places[0]);
        ASSERT_NE(found, wanted.end()) << p[0] << ", " << p[1];
        double mean = 0.0;
        for (const double s : found->second) mean += s / double(found->second.size());
        EXPECT_GE(mean, highest - 1e-9) << shade;
        reached = std::max(reached, mean);
        wanted.erase(found);
      }
      highest = reached;
    }
    EXPECT_TRUE(wanted.empty());
    // A ring of radius r from its left end, around the suspected line; another is in the legend.
    const auto rings = drawn(svg, "zn-ink\" fill-rule=\"evenodd\" d=\"M# #a#");
    ASSERT_EQ(rings.size(), 2u);
    EXPECT_NEAR(rings[0][0] + rings[0][2], 28.0 + 415.2, 0.2);
    EXPECT_NEAR(rings[0][1], 64.0 + 300.2, 0.2);
    EXPECT_GT(rings[0][2], 15.0);
  }
}

}  // namespace
}  // namespace zeph
