#include "zeph/jobs/report/charts.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <utility>

namespace zeph {
namespace {

using std::size_t;

constexpr double kWidth = 480.0, kHeight = 320.0;  // pixels of a chart
constexpr double kLeft = 62.0, kRight = 12.0, kTop = 14.0, kBottom = 44.0;
constexpr double kPlotWidth = kWidth - kLeft - kRight, kPlotHeight = kHeight - kTop - kBottom;

constexpr double kCell = 3.0;          // pixels; dots nearer than this are one
constexpr double kLargestLinear = 12;  // of normalised residuals; beyond, the scale is logarithmic
constexpr double kHeadroom = 1.12;     // above the largest value
constexpr double kLeastBar = 1.5;      // pixels, so that a single blunder in a million shows
constexpr double kThousands = 2e4;     // observations in a bar, from which on they are counted so
constexpr double kTau = 6.283185307179586;

/// Grows an SVG text by formatted pieces.
class Drawing {
 public:
  explicit Drawing(const char* label) {
    add("<svg class=\"chart\" viewBox=\"0 0 %.0f %.0f\" role=\"img\" aria-label=\"%s\">\n", kWidth,
        kHeight, label);
  }
  void add(const char* text) { text_ += text; }
  template <class... Values>
  void add(const char* format, Values... values) {
    char piece[320];
    std::snprintf(piece, sizeof piece, format, values...);
    text_ += piece;
  }
  void line(const char* kind, double x1, double y1, double x2, double y2) {
    add("<path class=\"%s\" d=\"M%.1f %.1fL%.1f %.1f\"/>\n", kind, x1, y1, x2, y2);
  }
  void label(const char* anchor, double x, double y, const std::string& text) {
    add("<text text-anchor=\"%s\" x=\"%.1f\" y=\"%.1f\">", anchor, x, y);
    text_ += text + "</text>\n";
  }
  void tickX(double x, const std::string& text) {
    line("grid", x, kTop, x, kTop + kPlotHeight);
    label("middle", x, kTop + kPlotHeight + 17.0, text);
  }
  void tickY(double y, const std::string& text) {
    line("grid", kLeft, y, kLeft + kPlotWidth, y);
    label("end", kLeft - 7.0, y + 4.5, text);
  }
  void titles(const char* x, const char* y) {
    label("middle", kLeft + 0.5 * kPlotWidth, kHeight - 8.0, x);
    add("<text text-anchor=\"middle\" transform=\"translate(13 %.1f) rotate(-90)\">%s</text>\n",
        kTop + 0.5 * kPlotHeight, y);
  }
  std::string take() { return std::move(text_) + "</svg>\n"; }

 private:
  std::string text_;
};

std::string plain(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3g", value);
  return text;
}

/// 1, 2 or 5 times a power of ten, so that at most `most` steps cover the range.
double niceStep(double range, int most) {
  const double least = range / most, power = std::pow(10.0, std::floor(std::log10(least)));
  for (const double factor : {1.0, 2.0, 5.0}) {
    if (factor * power >= least * (1.0 - 1e-9)) return factor * power;
  }
  return 10.0 * power;
}

/// Places of normalised residuals: linear, or asinh where one of them would flatten all others.
class Scale {
 public:
  explicit Scale(double largest)
      : linear(largest <= kLargestLinear), largest_(shape(largest) * kHeadroom) {}
  double y(double w) const {
    return kTop + 0.5 * kPlotHeight * (1.0 - std::clamp(shape(w) / largest_, -1.0, 1.0));
  }
  bool shows(double w) const { return shape(w) <= largest_; }

  const bool linear;

 private:
  double shape(double w) const { return linear ? w : std::asinh(w); }
  double largest_;
};

void drawScale(Drawing& svg, const Scale& scale, double largest) {
  for (int k = 0; k <= 5; ++k) svg.tickX(kLeft + 0.2 * k * kPlotWidth, plain(0.2 * k));
  svg.tickY(scale.y(0.0), "0");
  const auto both = [&](double w) {
    if (!scale.shows(w)) return;
    svg.tickY(scale.y(w), plain(w));
    svg.tickY(scale.y(-w), "−" + plain(w));
  };
  if (scale.linear) {
    const double step = niceStep(largest * kHeadroom, 4);
    for (double w = step; scale.shows(w); w += step) both(w);
    return;
  }
  const double decades = std::ceil(std::log10(largest) / 4.0);
  both(1.0);
  for (double w = std::pow(10.0, decades); scale.shows(w); w *= std::pow(10.0, decades)) both(w);
}

/// Dots that would cover each other: where the first of them lies, and how many they are.
struct Dot {
  double x = 0.0, y = 0.0;
  unsigned count = 0;
};

std::vector<Dot> gathered(const Adjustment& a, const Scale& scale) {
  const auto columns = static_cast<size_t>(kPlotWidth / kCell) + 1;
  const auto rows = static_cast<size_t>(kPlotHeight / kCell) + 1;
  std::vector<Dot> dots(columns * rows);
  for (size_t i = 0; i < a.redundancy.size(); ++i) {
    const double w = a.normalizedResiduals[i];
    if (std::isnan(w)) continue;
    const double x = std::clamp(a.redundancy[i], 0.0, 1.0) * kPlotWidth, y = scale.y(w) - kTop;
    Dot& dot = dots[static_cast<size_t>(y / kCell) * columns + static_cast<size_t>(x / kCell)];
    if (dot.count++ == 0) dot.x = kLeft + x, dot.y = kTop + y;
  }
  return dots;
}

void drawDots(Drawing& svg, const std::vector<Dot>& dots) {
  constexpr std::array<unsigned, 4> kUpTo = {1, 4, 16, ~0u};
  unsigned from = 1;
  for (size_t level = 0; level < kUpTo.size(); ++level) {
    svg.add("<path class=\"dots dots%zu\" d=\"", level);
    for (const Dot& dot : dots) {
      if (dot.count >= from && dot.count <= kUpTo[level]) svg.add("M%.1f %.1fh0", dot.x, dot.y);
    }
    svg.add("\"/>\n");
    from = kUpTo[level] + 1;
  }
}

void drawSuspect(Drawing& svg, const Adjustment& a, const Scale& scale, const char* what) {
  const auto s = static_cast<size_t>(a.suspect);
  const double x = kLeft + a.redundancy[s] * kPlotWidth, y = scale.y(a.normalizedResiduals[s]);
  const bool atRight = a.redundancy[s] > 0.6;
  svg.add("<g class=\"suspect\"><circle cx=\"%.1f\" cy=\"%.1f\" r=\"6.5\"/>\n", x, y);
  svg.label(atRight ? "end" : "start", x + (atRight ? -12.0 : 12.0), y + 4.5, what);
  svg.add("</g>\n");
}

}  // namespace

std::string drawResiduals(const ReportContents& c, const ReportFigures& f) {
  const Adjustment& a = c.a;
  Drawing svg("Normalised residuals against redundancies");
  double largest = std::isnan(f.critical) ? 3.0 : std::max(3.0, f.critical);
  if (a.suspect >= 0) {
    largest = std::max(largest, std::fabs(a.normalizedResiduals[static_cast<size_t>(a.suspect)]));
  }
  const Scale scale(largest);
  drawScale(svg, scale, largest);
  svg.titles("redundancy: how far others check the observation",
             scale.linear ? "normalised residual" : "normalised residual (logarithmic)");
  for (const double bound : {f.critical, -f.critical}) {
    if (!std::isnan(bound)) {
      svg.line("bound", kLeft, scale.y(bound), kLeft + kPlotWidth, scale.y(bound));
    }
  }
  drawDots(svg, gathered(a, scale));
  if (a.suspect >= 0) {
    drawSuspect(svg, a, scale, f.suspicion.mood == Verdict::Mood::Bad ? "suspected" : "largest");
  }
  return svg.take();
}

std::string drawHistogram(const Histogram& h) {
  Drawing svg("Histogram of the normalised residuals with the standard normal curve");
  const double scaled = static_cast<double>(h.checked) * h.width;
  const auto expected = [scaled](double w) {
    return scaled * std::exp(-0.5 * w * w) / std::sqrt(kTau);
  };
  double most = std::max(1.0, expected(0.0));
  for (const size_t count : h.counts) most = std::max(most, static_cast<double>(count));
  const double step = std::max(1.0, niceStep(most * kHeadroom, 5)), top = most * kHeadroom;
  const double unit = most < kThousands ? 1.0 : 1e3;
  const auto x = [&](double w) { return kLeft + (w + h.limit) / (2.0 * h.limit) * kPlotWidth; };
  const auto y = [&](double count) { return kTop + kPlotHeight * (1.0 - count / top); };
  for (double w = -h.limit; w <= h.limit; w += 1.0) {
    const std::string end = std::fabs(w) < h.limit ? "" : w < 0 ? "≤ " : "≥ ";
    svg.tickX(x(w), end + (w < 0.0 ? "−" : "") + plain(std::fabs(w)));
  }
  for (double count = 0.0; count <= top; count += step) {
    char text[32];
    std::snprintf(text, sizeof text, "%.0f", count / unit);
    svg.tickY(y(count), text);
  }
  svg.titles("normalised residual", unit == 1.0 ? "observations" : "thousands of observations");
  for (size_t k = 0; k < h.counts.size(); ++k) {
    if (h.counts[k] == 0) continue;
    const double left = -h.limit + static_cast<double>(k) * h.width;
    const double height = std::max(kLeastBar, kPlotHeight * static_cast<double>(h.counts[k]) / top);
    svg.add("<rect class=\"bar\" x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\"/>\n",
            x(left) + 0.7, kTop + kPlotHeight - height, x(left + h.width) - x(left) - 1.4, height);
  }
  if (h.below > 0) {
    svg.label("start", x(-h.limit) + 4.0, kTop + 15.0, std::to_string(h.below) + " beyond");
  }
  if (h.above > 0) {
    svg.label("end", x(h.limit) - 4.0, kTop + 15.0, std::to_string(h.above) + " beyond");
  }
  svg.add("<path class=\"curve\" d=\"");
  constexpr int kSteps = 80;
  for (int k = 0; k <= kSteps; ++k) {
    const double w = h.limit * (2.0 * k / kSteps - 1.0);
    svg.add("%s%.1f %.1f", k == 0 ? "M" : "L", x(w), y(expected(w)));
  }
  svg.add("\"/>\n");
  return svg.take();
}

}  // namespace zeph
