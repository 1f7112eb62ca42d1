// Cameras from above, with the uncertainty of their positions.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdarg>
#include <cstdio>

#include "tables.h"

namespace bundle {
namespace {

using std::size_t;

constexpr double kSide = 820.0;  // pixels of the longer side of the map
constexpr double kMargin = 48.0, kHeader = 58.0;
constexpr size_t kMostPoints = 4000;
constexpr double kChiSquare95 = 5.991464547107979;  // two degrees of freedom
// The largest ellipse is drawn with a half axis of this many pixels at most.
constexpr double kLargestEllipse = 36.0;

__attribute__((format(printf, 2, 3))) void appendf(std::string& text, const char* format, ...) {
  char line[512];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  text += line;
}

struct Ellipse {
  double major, minor, angle;
};

Ellipse ellipseOf(const zeph::DenseMatrix& C) {
  const double xx = C(3, 3), yy = C(4, 4), xy = C(3, 4);
  const double mean = 0.5 * (xx + yy), spread = std::hypot(0.5 * (xx - yy), xy);
  return {std::sqrt(kChiSquare95 * (mean + spread)),
          std::sqrt(kChiSquare95 * std::max(0.0, mean - spread)),
          0.5 * std::atan2(2.0 * xy, xx - yy)};
}

// One, two or five times a power of ten, at most x.
double roundedDown(double x) {
  const double decade = std::pow(10.0, std::floor(std::log10(x)));
  const double first = x / decade;
  return decade * (first >= 5.0 ? 5.0 : first >= 2.0 ? 2.0 : 1.0);
}

// Blue where the standard deviation is least, red where it is largest.
std::array<int, 3> colour(double share) {
  const auto between = [&](double from, double to) {
    return static_cast<int>(std::lround(from + share * (to - from)));
  };
  return {between(33, 200), between(102, 50), between(172, 40)};
}

/// Where the plane of x and y lies on the picture.
class Map {
 public:
  explicit Map(const Problem& p) {
    for (const Camera& c : p.cameras) widen(c.centre);
    // Stray points must not shrink the map.
    const double reach = 0.08 * std::max(high_[0] - low_[0], high_[1] - low_[1]);
    for (int k = 0; k < 2; ++k) low_[k] -= reach, high_[k] += reach;
    const double extent = std::max(high_[0] - low_[0], high_[1] - low_[1]);
    scale_ = extent > 0.0 ? kSide / extent : 1.0;
  }

  double scale() const { return scale_; }
  double x(double at) const { return kMargin + scale_ * (at - low_[0]); }
  double y(double at) const { return kHeader + kMargin + scale_ * (high_[1] - at); }
  double width() const { return std::max(560.0, x(high_[0]) + kMargin); }
  double height() const { return y(low_[1]) + kMargin; }
  bool shows(const Vector3& p) const {
    return p[0] >= low_[0] && p[0] <= high_[0] && p[1] >= low_[1] && p[1] <= high_[1];
  }

 private:
  void widen(const Vector3& p) {
    for (int k = 0; k < 2; ++k) {
      low_[k] = std::min(low_[k], p[k]);
      high_[k] = std::max(high_[k], p[k]);
    }
  }

  double low_[2] = {HUGE_VAL, HUGE_VAL}, high_[2] = {-HUGE_VAL, -HUGE_VAL};
  double scale_ = 1.0;
};

void drawPoints(std::string& svg, const Adjustment& a, const Map& map) {
  const auto& points = a.problem.points;
  const size_t step = points.size() / kMostPoints + 1;
  svg += "<g fill=\"#b9c0c7\">\n";
  for (size_t i = 0; i < points.size(); i += step) {
    if (!map.shows(points[i])) continue;
    appendf(svg, "<circle cx=\"%.1f\" cy=\"%.1f\" r=\"1\"/>\n", map.x(points[i][0]),
            map.y(points[i][1]));
  }
  svg += "</g>\n<g fill=\"none\" stroke=\"#1b7837\" stroke-width=\"1.8\">\n";
  for (const Control& c : a.datum.control) {
    if (!map.shows(c.at)) continue;
    const double x = map.x(c.at[0]), y = map.y(c.at[1]);
    appendf(svg, "<path d=\"M%.1f %.1fl6 11h-12z\"/>\n", x, y - 7.0);
  }
  svg += "</g>\n";
}

}  // namespace

std::string picture(const Adjustment& a, const std::vector<zeph::DenseMatrix>& covariances) {
  const auto& cameras = a.problem.cameras;
  const Map map(a.problem);
  double largest = 0.0, least = HUGE_VAL;
  for (const auto& C : covariances) {
    const double major = ellipseOf(C).major;
    largest = std::max(largest, major);
    if (major > 0.0) least = std::min(least, major);
  }
  const double factor =
      largest > 0.0 ? roundedDown(kLargestEllipse / (largest * map.scale())) : 1.0;
  std::string svg;
  appendf(svg,
          "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%.0f\" height=\"%.0f\" "
          "font-family=\"sans-serif\" font-size=\"13\">\n"
          "<rect width=\"100%%\" height=\"100%%\" fill=\"#fff\"/>\n",
          map.width(), map.height());
  appendf(svg,
          "<text x=\"%.0f\" y=\"26\" font-size=\"17\">%zu cameras from above, %zu points</text>\n",
          kMargin, cameras.size(), a.problem.points.size());
  appendf(svg,
          "<text x=\"%.0f\" y=\"48\" fill=\"#555\">Positions at 95 %%, magnified %g times; half "
          "axes from %.3g (blue) to %.3g (red)</text>\n",
          kMargin, factor, least, largest);
  drawPoints(svg, a, map);
  for (size_t c = 0; c < cameras.size(); ++c) {
    const double x = map.x(cameras[c].centre[0]), y = map.y(cameras[c].centre[1]);
    const Ellipse e = ellipseOf(covariances[c]);
    const auto rgb =
        colour(largest > least ? std::max(0.0, (e.major - least) / (largest - least)) : 0.0);
    const double pixels = factor * map.scale();
    appendf(svg,
            "<ellipse rx=\"%.2f\" ry=\"%.2f\" transform=\"translate(%.1f %.1f) rotate(%.2f)\" "
            "fill=\"rgb(%d,%d,%d)\" fill-opacity=\"0.25\" stroke=\"rgb(%d,%d,%d)\"/>\n",
            pixels * e.major, std::max(0.5, pixels * e.minor), x, y,
            -e.angle * 180.0 / 3.14159265358979323846, rgb[0], rgb[1], rgb[2], rgb[0], rgb[1],
            rgb[2]);
    appendf(svg, "<circle cx=\"%.1f\" cy=\"%.1f\" r=\"1.6\" fill=\"#222\"/>\n", x, y);
  }
  svg += "</svg>\n";
  return svg;
}

}  // namespace bundle
