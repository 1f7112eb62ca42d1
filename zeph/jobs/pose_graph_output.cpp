#include "zeph/jobs/pose_graph_output.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <string_view>

#include "zeph/error.h"
#include "zeph/files/atomic_file.h"
#include "zeph/files/number_text.h"
#include "zeph/jobs/pose_motion.h"

namespace zeph {
namespace {

using std::size_t;

constexpr double kSide = 820.0;  // pixels of the longer side of the map
constexpr double kMargin = 40.0;
constexpr double kHeader = 64.0;
constexpr size_t kMostEllipses = 60;
constexpr double kChiSquare95 = 5.991464547107979;  // two degrees of freedom
// The largest ellipse is drawn as wide as this share of the map.
constexpr double kLargestEllipse = 0.08;

void append(std::string& line, double value) {
  line += ',';
  appendShortest(line, value);
}

/// The covariance of x and y: xx, xy, yy. In space movements are in the pose's own frame.
std::array<double, 3> positionCovariance(size_t freedom, const Pose& pose, const DenseMatrix& c) {
  if (freedom == 3) return {c(0, 0), c(1, 0), c(1, 1)};
  const std::array<double, 9> R = rotation(pose);
  const auto entry = [&](size_t a, size_t b) {
    double sum = 0.0;
    for (size_t i = 0; i < 3; ++i) {
      for (size_t j = 0; j < 3; ++j) sum += R[3 * a + i] * c(i, j) * R[3 * b + j];
    }
    return sum;
  };
  return {entry(0, 0), entry(1, 0), entry(1, 1)};
}

struct Ellipse {
  double major, minor;  // half axes at 95 %
  double angle;         // of the major axis
};

Ellipse ellipseOf(const std::array<double, 3>& c) {
  const double mean = 0.5 * (c[0] + c[2]), difference = 0.5 * (c[0] - c[2]);
  const double spread = std::hypot(difference, c[1]);
  return {std::sqrt(kChiSquare95 * (mean + spread)),
          std::sqrt(kChiSquare95 * std::max(0.0, mean - spread)),
          0.5 * std::atan2(c[1], difference)};
}

/// Where positions lie on the picture.
class Map {
 public:
  explicit Map(const std::vector<Pose>& poses) {
    double highX = poses[0][0], highY = poses[0][1];
    lowX_ = highX, lowY_ = highY;
    for (const Pose& p : poses) {
      lowX_ = std::min(lowX_, p[0]), highX = std::max(highX, p[0]);
      lowY_ = std::min(lowY_, p[1]), highY = std::max(highY, p[1]);
    }
    const double extent = std::max({highX - lowX_, highY - lowY_, 1e-9});
    scale = kSide / extent;
    width = (highX - lowX_) * scale, height = (highY - lowY_) * scale;
  }
  double x(const Pose& p) const { return kMargin + (p[0] - lowX_) * scale; }
  double y(const Pose& p) const { return kHeader + kMargin + height - (p[1] - lowY_) * scale; }

  double scale, width, height;

 private:
  double lowX_, lowY_;
};

template <class... Values>
void add(std::string& svg, const char* format, Values... values) {
  char piece[256];
  std::snprintf(piece, sizeof piece, format, values...);
  svg += piece;
}

void drawEdges(std::string& svg, const Map& map, const PoseGraph& g, bool loops) {
  svg += loops ? "<g stroke=\"#c8762b\" stroke-width=\"1\" stroke-opacity=\"0.6\">\n"
               : "<g stroke=\"#3f86c9\" stroke-width=\"2\" stroke-linecap=\"round\">\n";
  for (const PoseEdge& e : g.edges) {
    const bool neighbours = std::max(e.from, e.to) - std::min(e.from, e.to) == 1;
    if (neighbours == loops) continue;
    const Pose &a = g.poses[e.from], &b = g.poses[e.to];
    add(svg, "<path d=\"M%.1f %.1fL%.1f %.1f\"/>\n", map.x(a), map.y(a), map.x(b), map.y(b));
  }
  svg += "</g>\n";
}

}  // namespace

std::pair<size_t, size_t> posePair(const PoseGraph& graph, const std::string& text) {
  NumberScanner scan(text);
  std::array<size_t, 2> place{};
  for (size_t k = 0; k < 2; ++k) {
    std::uint64_t id = 0;
    const bool read = (k == 0 || scan.accept(',')) && scan.index(id) == NumberScanner::Result::Ok &&
                      (k == 0 || scan.atEnd());
    if (!read) throw Error(ErrorKind::Usage, "\"" + text + "\" is no pair of poses such as 3,17");
    const auto at =
        std::lower_bound(graph.ids.begin(), graph.ids.end(), static_cast<std::int64_t>(id));
    if (at == graph.ids.end() || *at != static_cast<std::int64_t>(id)) {
      throw Error(ErrorKind::Usage, graph.source + " has no pose " + std::to_string(id));
    }
    place[k] = static_cast<size_t>(at - graph.ids.begin());
  }
  return {place[0], place[1]};
}

void writePoses(AtomicFile& out, const PoseGraph& graph,
                const std::vector<DenseMatrix>& covariances) {
  const bool planar = graph.freedom == 3;
  out.write(planar
                ? "id,x,y,angle,sigma_x,sigma_y,sigma_angle\n"
                : "id,x,y,z,qx,qy,qz,qw,sigma_tx,sigma_ty,sigma_tz,sigma_rx,sigma_ry,sigma_rz\n");
  for (size_t i = 0; i < graph.poses.size(); ++i) {
    std::string line = std::to_string(graph.ids[i]);
    for (size_t k = 0; k < (planar ? 3 : 7); ++k) append(line, graph.poses[i][k]);
    for (size_t k = 0; k < graph.freedom; ++k) append(line, std::sqrt(covariances[i](k, k)));
    out.write(line + '\n');
  }
}

void writePairs(AtomicFile& out, const PoseGraphResult& result,
                const std::vector<std::pair<size_t, size_t>>& pairs) {
  out.write("i,j,row,col,covariance\n");
  for (const auto& [i, j] : pairs) {
    const DenseMatrix block = result.covariance(i, j);
    for (size_t k = 0; k < block.values.size(); ++k) {
      const size_t row = k / block.cols, col = k % block.cols;
      std::string line = std::to_string(result.graph.ids[i]) + ',' +
                         std::to_string(result.graph.ids[j]) + ',' + std::to_string(row) + ',' +
                         std::to_string(col);
      append(line, block(row, col));
      out.write(line + '\n');
    }
  }
}

std::string drawPoseGraph(const PoseGraph& graph, const std::vector<DenseMatrix>& covariances) {
  const Map map(graph.poses);
  const double width = std::max(map.width, 640.0) + 2 * kMargin;
  std::string svg;
  add(svg,
      "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 %.0f %.0f\" fill=\"none\" "
      "font-family=\"sans-serif\">\n",
      width, map.height + 2 * kMargin + kHeader);
  const size_t stride =
      std::max<size_t>(1, (graph.poses.size() + kMostEllipses - 1) / kMostEllipses);
  std::vector<std::pair<size_t, Ellipse>> ellipses;
  double largest = 0.0;
  for (size_t i = 0; i < graph.poses.size(); i += stride) {
    ellipses.emplace_back(
        i, ellipseOf(positionCovariance(graph.freedom, graph.poses[i], covariances[i])));
    largest = std::max(largest, ellipses.back().second.major);
  }
  const double wanted = 0.5 * kLargestEllipse * kSide / map.scale;
  const double magnified = largest > 0.0 ? wanted / largest : 1.0;
  drawEdges(svg, map, graph, false);
  drawEdges(svg, map, graph, true);
  svg += "<g stroke=\"#2f9e6e\" stroke-width=\"1.5\" fill=\"#2f9e6e\" fill-opacity=\"0.18\">\n";
  constexpr double kDegrees = 57.29577951308232;
  for (const auto& [i, e] : ellipses) {
    const double scale = magnified * map.scale, x = map.x(graph.poses[i]),
                 y = map.y(graph.poses[i]);
    add(svg,
        "<ellipse cx=\"%.1f\" cy=\"%.1f\" rx=\"%.2f\" ry=\"%.2f\" "
        "transform=\"rotate(%.2f %.1f %.1f)\"/>\n",
        x, y, scale * e.major, scale * e.minor, -kDegrees * e.angle, x, y);
  }
  svg += "</g>\n";
  add(svg,
      "<g fill=\"#808080\"><text x=\"%.0f\" y=\"30\" font-size=\"18\">%zu poses, %zu "
      "edges%s</text>\n",
      kMargin, graph.poses.size(), graph.edges.size(),
      graph.freedom == 6 ? ", seen from above" : "");
  add(svg,
      "<text x=\"%.0f\" y=\"54\" font-size=\"14\"><tspan fill=\"#3f86c9\">trajectory</tspan>, "
      "<tspan fill=\"#c8762b\">loop closures</tspan>, ",
      kMargin);
  add(svg,
      "<tspan fill=\"#2f9e6e\">positions at 95 %%</tspan>, drawn at %.3g times their "
      "size</text></g>\n</svg>\n",
      magnified);
  return svg;
}

}  // namespace zeph
