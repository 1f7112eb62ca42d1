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
constexpr double kRingGap = 7.0;
constexpr double kLeastRing = 12.0;

constexpr int kShades = 40;  // classes of colour, zn0 to zn39

struct Colour {
  double r, g, b;
};

using Ramp = std::array<Colour, 6>;

// Violet over teal and green to gold: lightness rises steadily, so that they can be read without
// colour vision; on dark ground both ends are lighter, on light ground darker.
constexpr Ramp kOnLight = {
    {{48, 18, 92}, {52, 75, 145}, {34, 132, 141}, {62, 161, 92}, {142, 172, 38}, {222, 160, 0}}};
constexpr Ramp kOnDark = {{{118, 84, 206},
                           {84, 124, 214},
                           {56, 162, 176},
                           {80, 192, 122},
                           {176, 217, 74},
                           {253, 236, 90}}};

Colour shade(const Ramp& ramp, double t) {
  const double place = std::clamp(t, 0.0, 1.0) * static_cast<double>(ramp.size() - 1);
  const auto low = std::min(static_cast<std::size_t>(place), ramp.size() - 2);
  const double f = place - static_cast<double>(low);
  const auto mix = [f](double a, double b) { return a + f * (b - a); };
  const Colour &a = ramp[low], &b = ramp[low + 1];
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
  void rectangle(double x, double y, double width, double height, int shade) {
    add("<rect x=\"%.1f\" y=\"%.1f\" width=\"%.2f\" height=\"%.2f\" class=\"zn%d\"/>\n", x, y,
        width, height, shade);
  }
  std::string take() { return std::move(text_); }

 private:
  std::string text_;
};

/// The colours of one scheme, as rules for the classes.
void addColours(Svg& svg, const Ramp& ramp, const char* paper, const char* ink, const char* mark) {
  svg.add(".zn-paper{fill:%s}.zn-ink{fill:%s}.zn-mark{color:%s;stroke:%s}\n", paper, ink, mark,
          paper);
  for (int k = 0; k < kShades; ++k) {
    const Colour c = shade(ramp, (k + 0.5) / kShades);
    svg.add(".zn%d{color:#%02x%02x%02x}", k, static_cast<int>(c.r), static_cast<int>(c.g),
            static_cast<int>(c.b));
  }
}

/// Pieces of paths by shade: a path each instead of thousands.
class Shaded {
 public:
  template <class... Values>
  void add(int shade, const char* format, Values... values) {
    char piece[160];
    std::snprintf(piece, sizeof piece, format, values...);
    paths_[static_cast<std::size_t>(shade)] += piece;
  }
  void drawOn(Svg& svg) const {
    for (int k = 0; k < kShades; ++k) {
      const std::string& path = paths_[static_cast<std::size_t>(k)];
      if (path.empty()) continue;
      svg.add("<path class=\"zn%d\" d=\"", k);
      svg.add(path.c_str());
      svg.add("\"/>\n");
    }
  }

 private:
  std::array<std::string, kShades> paths_;
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
  int shadeOf(double sigma) const {
    const double t = (sigma - lowSigma) / (highSigma - lowSigma);
    return std::clamp(static_cast<int>(t * kShades), 0, kShades - 1);
  }

  double leastSigma, mostSigma;  // of all points
  double lowSigma, highSigma;    // ends of the colour scale; what lies beyond has their colours

 private:
  double lowX_, lowY_, extent_, height_;
};

void drawLines(Svg& svg, const Frame& frame, const LevellingNetwork& network,
               const ZtVector& variances) {
  const double spacing = kSide / std::sqrt(static_cast<double>(network.points.size()));
  svg.add(
      "<g fill=\"none\" stroke=\"currentColor\" stroke-width=\"%.2f\" stroke-linecap=\"round\">\n",
      std::clamp(spacing * 0.22, 0.6, 4.0));
  Shaded shaded;
  for (const LevellingLine& line : network.lines) {
    const LevellingPoint &a = network.points[line.from], &b = network.points[line.to];
    const double sigma =
        0.5 * (std::sqrt(variances.data[line.from]) + std::sqrt(variances.data[line.to]));
    shaded.add(frame.shadeOf(sigma), "M%.1f %.1fL%.1f %.1f", frame.x(a.x), frame.y(a.y),
               frame.x(b.x), frame.y(b.y));
  }
  shaded.drawOn(svg);
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
  Shaded shaded;
  for (std::size_t at = 0; at < sums.size(); ++at) {
    if (counts[at] == 0) continue;
    const auto column = at % kMosaicCells, row = at / kMosaicCells;
    shaded.add(frame.shadeOf(sums[at] / counts[at]), "M%.1f %.1fh%.3fv%.3fh-%.3fz",
               kMargin + static_cast<double>(column) * cell,
               kHeader + static_cast<double>(row) * cell, cell, cell, cell);
  }
  svg.add("<g fill=\"currentColor\" shape-rendering=\"crispEdges\">\n");
  shaded.drawOn(svg);
  svg.add("</g>\n");
}

void drawRing(Svg& svg, double x, double y, double radius) {
  // Ink within paper, so that it stands out from lines of any colour.
  for (const auto& [kind, width] : {std::pair("zn-paper", 6.0), std::pair("zn-ink", 2.6)}) {
    svg.add("<path class=\"%s\" fill-rule=\"evenodd\" d=\"", kind);
    for (const double r : {radius + 0.5 * width, radius - 0.5 * width}) {
      svg.add("M%.1f %.1fa%.1f %.1f 0 1 0 %.1f 0a%.1f %.1f 0 1 0 -%.1f 0z", x - r, y, r, r, 2.0 * r,
              r, r, 2.0 * r);
    }
    svg.add("\"/>\n");
  }
}

void drawBenchmarks(Svg& svg, const Frame& frame, const LevellingNetwork& network) {
  const double r =
      std::clamp(90.0 / std::sqrt(static_cast<double>(network.benchmarks.size())), 2.0, 7.0);
  svg.add("<g class=\"zn-mark\" fill=\"currentColor\" stroke-width=\"%.1f\">\n", r * 0.2);
  for (const Benchmark& b : network.benchmarks) {
    const double x = frame.x(network.points[b.point].x), y = frame.y(network.points[b.point].y);
    svg.add("<path d=\"M%.1f %.1fL%.1f %.1fL%.1f %.1fZ\"/>\n", x, y - r, x + 0.87 * r, y + 0.5 * r,
            x - 0.87 * r, y + 0.5 * r);
  }
  svg.add("</g>\n");
}

/// A ring around a line or a benchmark, with a gap to what it surrounds.
void drawSuspect(Svg& svg, const Frame& frame, const LevellingNetwork& network,
                 std::size_t suspect) {
  LevellingPoint a{}, b{};
  if (suspect < network.lines.size()) {
    a = network.points[network.lines[suspect].from];
    b = network.points[network.lines[suspect].to];
  } else {
    a = b = network.points[network.benchmarks[suspect - network.lines.size()].point];
  }
  const double x = 0.5 * (frame.x(a.x) + frame.x(b.x)), y = 0.5 * (frame.y(a.y) + frame.y(b.y));
  const double half = 0.5 * std::hypot(frame.x(a.x) - frame.x(b.x), frame.y(a.y) - frame.y(b.y));
  drawRing(svg, x, y, std::max(half + kRingGap, kLeastRing));
}

void drawLegend(Svg& svg, const Frame& frame, bool benchmarks, bool suspect) {
  constexpr int kTicks = 5;
  const double x = kMargin + kSide + 26.0, top = kHeader + 46.0;
  const double height = std::max(frame.mapHeight() - 152.0, 120.0);
  svg.add("<text x=\"%.1f\" y=\"%.1f\" font-size=\"13\">std. deviation</text>\n", x,
          kHeader + 14.0);
  svg.add("<text x=\"%.1f\" y=\"%.1f\" font-size=\"13\">of height, mm</text>\n", x, kHeader + 31.0);
  svg.add("<g fill=\"currentColor\">\n");
  for (int i = 0; i < kShades; ++i) {
    svg.rectangle(x, top + height * i / kShades, 20.0, height / kShades + 0.5, kShades - 1 - i);
  }
  svg.add("</g>\n");
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
  double y = top + height + 34.0;
  if (benchmarks) {
    y += 22.0;
    svg.add("<path class=\"zn-mark\" fill=\"currentColor\" d=\"M%.1f %.1fl6 10.5h-12Z\"/>\n",
            x + 8.0, y - 10.0);
    svg.add("<text x=\"%.1f\" y=\"%.1f\" font-size=\"13\">benchmark</text>\n", x + 28.0, y);
  }
  if (suspect) {
    y += 22.0;
    drawRing(svg, x + 8.0, y - 4.5, 7.0);
    svg.add("<text x=\"%.1f\" y=\"%.1f\" font-size=\"13\">suspected</text>\n", x + 28.0, y);
  }
}

}  // namespace

std::string drawNetwork(const LevellingNetwork& network, const ZtVector& variances,
                        std::int64_t suspect) {
  const Frame frame(network, variances);
  const double width = kMargin + kSide + kLegend + kMargin;
  const double height = kHeader + frame.mapHeight() + kMargin;
  Svg svg;
  svg.add(
      "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 %.0f %.0f\" width=\"%.0f\" "
      "height=\"%.0f\" font-family=\"sans-serif\" class=\"zn-ink\">\n",
      width, height, width, height);
  svg.add("<style>\n");
  addColours(svg, kOnLight, "#ffffff", "#222222", "#d9480f");
  svg.add("\n@media (prefers-color-scheme: dark) {\n");
  addColours(svg, kOnDark, "#11151b", "#e6eaf0", "#ff7a4d");
  svg.add("\n}\n</style>\n");
  svg.add("<rect class=\"zn-paper\" width=\"100%\" height=\"100%\" rx=\"14\"/>\n");
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
  if (suspect >= 0) drawSuspect(svg, frame, network, static_cast<std::size_t>(suspect));
  drawLegend(svg, frame, benchmarks, suspect >= 0);
  svg.add("</svg>\n");
  return svg.take();
}

}  // namespace zeph
