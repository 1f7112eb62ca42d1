#include "zeph/demo/network_picture.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <vector>

namespace zeph {

namespace {

constexpr std::size_t kDrawnPoints = 20000;    // above this, a mosaic
constexpr std::size_t kDrawnBenchmarks = 500;  // more would hide the map
constexpr int kMosaicCells = 160;              // across
constexpr double kSide = 820.0;                // pixels of the map
constexpr double kMargin = 28.0;
constexpr double kHeader = 64.0;
constexpr double kLegend = 120.0;

struct Colour {
  double r, g, b;
};

/// Dark blue over teal and green to yellow: perceptually even and readable without colour vision.
Colour shade(double t) {
  static constexpr std::array<Colour, 6> stops = {{{48, 18, 92},
                                                   {52, 75, 145},
                                                   {34, 132, 141},
                                                   {62, 181, 112},
                                                   {170, 217, 57},
                                                   {253, 236, 60}}};
  const double place = std::clamp(t, 0.0, 1.0) * (stops.size() - 1);
  const auto low = std::min(static_cast<std::size_t>(place), stops.size() - 2);
  const double f = place - static_cast<double>(low);
  const auto mix = [f](double a, double b) { return a + f * (b - a); };
  const Colour &a = stops[low], &b = stops[low + 1];
  return {mix(a.r, b.r), mix(a.g, b.g), mix(a.b, b.b)};
}

/// Grows an SVG text by formatted pieces.
class Svg {
 public:
  void add(const char* text) { text_ += text; }
  template <class... Values>
  void add(const char* format, Values... values) {
    char piece[512];
    std::snprintf(piece, sizeof piece, format, values...);
    text_ += piece;
  }
  void rectangle(double x, double y, double width, double height, const Colour& c) {
    add("<rect x=\"%.1f\" y=\"%.1f\" width=\"%.2f\" height=\"%.2f\" fill=\"#%02x%02x%02x\"/>\n", x,
        y, width, height, static_cast<int>(c.r), static_cast<int>(c.g), static_cast<int>(c.b));
  }
  std::string take() { return std::move(text_); }

 private:
  std::string text_;
};

/// Where a point of the network lies on the picture, and what its standard deviation looks like.
class Frame {
 public:
  Frame(const LevellingNetwork& network, const ZtVector& variances) {
    lowX_ = lowY_ = 1e300;
    double highX = -1e300, highY = -1e300;
    std::vector<double> sigmas(network.points.size());
    for (std::size_t i = 0; i < network.points.size(); ++i) {
      const LevellingPoint& p = network.points[i];
      lowX_ = std::min(lowX_, p.x);
      lowY_ = std::min(lowY_, p.y);
      highX = std::max(highX, p.x);
      highY = std::max(highY, p.y);
      sigmas[i] = std::sqrt(variances.data[i]);
    }
    extent_ = std::max({highX - lowX_, highY - lowY_, 1e-9});
    height_ = (highY - lowY_) / extent_ * kSide;
    std::sort(sigmas.begin(), sigmas.end());
    leastSigma = sigmas.front();
    mostSigma = sigmas.back();
    // A few extreme points are not to squeeze the scale of all others.
    lowSigma = sigmas[sigmas.size() / 100];
    highSigma = std::max(sigmas[sigmas.size() - 1 - sigmas.size() / 100], lowSigma * 1.0000001);
  }
  double x(double px) const { return kMargin + (px - lowX_) / extent_ * kSide; }
  double y(double py) const { return kHeader + height_ - (py - lowY_) / extent_ * kSide; }
  double mapHeight() const { return height_; }
  Colour colour(double sigma) const { return shade((sigma - lowSigma) / (highSigma - lowSigma)); }

  double leastSigma, mostSigma;  // of all points
  double lowSigma, highSigma;    // ends of the colour scale; what lies beyond has their colours

 private:
  double lowX_, lowY_, extent_, height_;
};

void drawLines(Svg& svg, const Frame& frame, const LevellingNetwork& network,
               const ZtVector& variances) {
  const double spacing = kSide / std::sqrt(static_cast<double>(network.points.size()));
  svg.add("<g stroke-width=\"%.2f\" stroke-linecap=\"round\">\n",
          std::clamp(spacing * 0.22, 0.6, 4.0));
  for (const LevellingLine& line : network.lines) {
    const LevellingPoint &a = network.points[line.from], &b = network.points[line.to];
    const double sigma =
        0.5 * (std::sqrt(variances.data[line.from]) + std::sqrt(variances.data[line.to]));
    const Colour c = frame.colour(sigma);
    svg.add("<path d=\"M%.1f %.1fL%.1f %.1f\" stroke=\"#%02x%02x%02x\"/>\n", frame.x(a.x),
            frame.y(a.y), frame.x(b.x), frame.y(b.y), static_cast<int>(c.r), static_cast<int>(c.g),
            static_cast<int>(c.b));
  }
  svg.add("</g>\n");
}

void drawMosaic(Svg& svg, const Frame& frame, const LevellingNetwork& network,
                const ZtVector& variances) {
  const double cell = kSide / kMosaicCells;
  std::vector<double> sums(static_cast<std::size_t>(kMosaicCells) * kMosaicCells, 0.0);
  std::vector<int> counts(sums.size(), 0);
  const auto cellOf = [&](double pixel, double origin) {
    return static_cast<std::size_t>(
        std::clamp(static_cast<int>((pixel - origin) / cell), 0, kMosaicCells - 1));
  };
  for (std::size_t i = 0; i < network.points.size(); ++i) {
    const std::size_t at = cellOf(frame.y(network.points[i].y), kHeader) * kMosaicCells +
                           cellOf(frame.x(network.points[i].x), kMargin);
    sums[at] += std::sqrt(variances.data[i]);
    ++counts[at];
  }
  svg.add("<g shape-rendering=\"crispEdges\">\n");
  for (std::size_t at = 0; at < sums.size(); ++at) {
    if (counts[at] == 0) continue;
    const auto column = at % kMosaicCells, row = at / kMosaicCells;
    svg.rectangle(kMargin + static_cast<double>(column) * cell,
                  kHeader + static_cast<double>(row) * cell, cell, cell,
                  frame.colour(sums[at] / counts[at]));
  }
  svg.add("</g>\n");
}

void drawBenchmarks(Svg& svg, const Frame& frame, const LevellingNetwork& network) {
  const double r =
      std::clamp(90.0 / std::sqrt(static_cast<double>(network.benchmarks.size())), 2.0, 7.0);
  svg.add("<g fill=\"#e4572e\" stroke=\"#ffffff\" stroke-width=\"%.1f\">\n", r * 0.2);
  for (const Benchmark& b : network.benchmarks) {
    const double x = frame.x(network.points[b.point].x), y = frame.y(network.points[b.point].y);
    svg.add("<path d=\"M%.1f %.1fL%.1f %.1fL%.1f %.1fZ\"/>\n", x, y - r, x + 0.87 * r, y + 0.5 * r,
            x - 0.87 * r, y + 0.5 * r);
  }
  svg.add("</g>\n");
}

void drawLegend(Svg& svg, const Frame& frame, bool benchmarks) {
  constexpr int kSteps = 48;
  constexpr int kTicks = 5;
  const double x = kMargin + kSide + 26.0, top = kHeader + 46.0;
  const double height = std::max(frame.mapHeight() - 130.0, 120.0);
  svg.add("<text x=\"%.1f\" y=\"%.1f\" font-size=\"13\">std. deviation</text>\n", x,
          kHeader + 14.0);
  svg.add("<text x=\"%.1f\" y=\"%.1f\" font-size=\"13\">of height, mm</text>\n", x, kHeader + 31.0);
  for (int i = 0; i < kSteps; ++i) {
    const double t = 1.0 - (i + 0.5) / kSteps;
    svg.rectangle(x, top + height * i / kSteps, 20.0, height / kSteps + 0.5, shade(t));
  }
  for (int i = 0; i < kTicks; ++i) {
    const double t = static_cast<double>(i) / (kTicks - 1);
    const double y = top + height * (1.0 - t);
    const char* beyond = i == 0 && frame.leastSigma < frame.lowSigma            ? "≤ "
                         : i == kTicks - 1 && frame.mostSigma > frame.highSigma ? "≥ "
                                                                                : "";
    svg.add("<text x=\"%.1f\" y=\"%.1f\" font-size=\"13\">%s%.2f</text>\n", x + 28.0, y + 4.5,
            beyond, 1000.0 * (frame.lowSigma + t * (frame.highSigma - frame.lowSigma)));
  }
  svg.add("<text x=\"%.1f\" y=\"%.1f\" font-size=\"13\">all: %.2f to %.2f</text>\n", x,
          top + height + 28.0, 1000.0 * frame.leastSigma, 1000.0 * frame.mostSigma);
  if (!benchmarks) return;
  const double y = top + height + 56.0;
  svg.add("<path d=\"M%.1f %.1fl6 10.5h-12Z\" fill=\"#e4572e\"/>\n", x + 8.0, y - 10.0);
  svg.add("<text x=\"%.1f\" y=\"%.1f\" font-size=\"13\">benchmark</text>\n", x + 28.0, y);
}

}  // namespace

std::string drawNetwork(const LevellingNetwork& network, const ZtVector& variances) {
  const Frame frame(network, variances);
  const double width = kMargin + kSide + kLegend + kMargin;
  const double height = kHeader + frame.mapHeight() + kMargin;
  Svg svg;
  svg.add(
      "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 %.0f %.0f\" width=\"%.0f\" "
      "height=\"%.0f\" font-family=\"sans-serif\" fill=\"#222222\">\n",
      width, height, width, height);
  svg.add("<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n");
  svg.add(
      "<text x=\"%.0f\" y=\"38\" font-size=\"20\">Levelling network: %zu points, %zu lines, %zu "
      "benchmarks</text>\n",
      kMargin, network.points.size(), network.lines.size(), network.benchmarks.size());
  if (network.points.size() <= kDrawnPoints) {
    drawLines(svg, frame, network, variances);
  } else {
    drawMosaic(svg, frame, network, variances);
  }
  const bool benchmarks = network.benchmarks.size() <= kDrawnBenchmarks;
  if (benchmarks) drawBenchmarks(svg, frame, network);
  drawLegend(svg, frame, benchmarks);
  svg.add("</svg>\n");
  return svg.take();
}

}  // namespace zeph
