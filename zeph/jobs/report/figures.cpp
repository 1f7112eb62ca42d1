#include "zeph/jobs/report/figures.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <numeric>

#include "zeph/factor/first_route.h"
#include "zeph/jobs/report/distributions.h"

namespace zeph {
namespace {

using std::size_t;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kError = 0.05;     // of both tests
constexpr double kTie = 1e-6;       // relative; nearer ones are the same but for rounding
constexpr double kHistogram = 4.0;  // standard deviations either way
constexpr size_t kFew = 60, kMany = 2000;

Verdict factorVerdict(const ReportContents& c, const ReportFigures& f) {
  const double s = c.a.varianceFactor;
  if (c.a.degreesOfFreedom == 0) {
    return {Verdict::Mood::Plain, "Nothing is left to test with.",
            "There are as many observations as unknowns, so that every residual is zero."};
  }
  if (!c.options.sigmasGiven) {
    return {Verdict::Mood::Plain, "No standard deviations were given.",
            "1 was taken for all; if no observation is wrong, they are about √" + shortText(s) +
                " = " + shortText(std::sqrt(s)) + "."};
  }
  const std::string bounds = shortText(f.lowFactor) + " to " + shortText(f.highFactor) +
                             ", where it falls in 95 of 100 adjustments whose standard deviations "
                             "are right";
  const std::string factor = "The variance factor, " + shortText(s) + ", lies ";
  if (s > f.highFactor) {
    return {Verdict::Mood::Bad, "The residuals are too large.",
            factor + "above " + bounds +
                ": observations are wrong, or their standard deviations are too small."};
  }
  if (s < f.lowFactor) {
    return {Verdict::Mood::Bad, "The residuals are too small.",
            factor + "below " + bounds + ": the given standard deviations are too large."};
  }
  return {Verdict::Mood::Good, "The standard deviations fit the residuals.",
          factor + "within " + bounds + "."};
}

/// How many observations but the suspect have normalised residuals of at least that size.
size_t othersFrom(const Adjustment& a, double bound) {
  const auto& w = a.normalizedResiduals;
  const auto from = [bound](double v) { return std::fabs(v) >= bound; };
  return static_cast<size_t>(std::count_if(w.begin(), w.end(), from)) - 1;
}

std::string counted(size_t count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

Verdict suspicion(const ReportContents& c, const ReportFigures& f) {
  if (c.a.suspect < 0) {
    return {Verdict::Mood::Plain, "Blunders cannot be found.",
            "No observation is checked by others."};
  }
  const auto s = static_cast<size_t>(c.a.suspect);
  const double w = std::fabs(c.a.normalizedResiduals[s]);
  const std::string name = nameOf(c, s), size = shortText(c.a.normalizedResiduals[s]);
  const size_t ties = othersFrom(c.a, f.tied);
  std::string tied;
  if (ties > 0) {
    tied = " " + counted(ties, "other observation has", "other observations have") +
           " one of the same size: residuals alone cannot tell them apart.";
  }
  if (!c.options.sigmasGiven) {
    return {Verdict::Mood::Plain,
            "The largest normalised residual is that of " + name + ": " + size + ".",
            "Where no standard deviations are given, its size alone does not tell whether it is "
            "too large." +
                tied};
  }
  const std::string bound = shortText(f.critical) + ", below which the largest of " +
                            std::to_string(f.checked) +
                            " right ones stays in at least 95 of 100 adjustments.";
  if (w <= f.critical) {
    return {Verdict::Mood::Good, "No observation is suspected of a blunder.",
            "The largest normalised residual, that of " + name + ", is " + size +
                "; it does not exceed " + bound};
  }
  std::string sentence = "Its normalised residual, " + size + ", exceeds " + bound +
                         " If this observation alone is wrong, then by about " +
                         shortText(c.a.residuals[s] / c.a.redundancy[s]) + " in its unit." + tied;
  const size_t beyond = othersFrom(c.a, f.critical);
  if (beyond > ties) {
    sentence += " " + counted(beyond, "other exceeds", "others exceed") +
                " the bound too, which one blunder can cause: look at the largest first, and "
                "adjust again.";
  }
  return {Verdict::Mood::Bad, "Suspected of a blunder: " + name + ".", sentence};
}

Histogram histogramOf(const Adjustment& a, size_t checked) {
  Histogram h;
  h.limit = kHistogram;
  h.width = checked < kFew ? 1.0 : checked < kMany ? 0.5 : 0.25;
  h.counts.assign(static_cast<size_t>(2.0 * h.limit / h.width), 0);
  h.checked = checked;
  const double last = static_cast<double>(h.counts.size()) - 1.0;
  for (const double w : a.normalizedResiduals) {
    if (std::isnan(w)) continue;
    h.below += w < -h.limit;
    h.above += w > h.limit;
    ++h.counts[static_cast<size_t>(std::clamp(std::floor((w + h.limit) / h.width), 0.0, last))];
  }
  return h;
}

/// The first `most` indices by falling size; NaN is smallest, equal ones stay in order.
std::vector<size_t> largest(const std::vector<double>& values, size_t most) {
  std::vector<size_t> order(values.size());
  std::iota(order.begin(), order.end(), 0);
  const auto size = [&](size_t i) { return std::isnan(values[i]) ? -1.0 : std::fabs(values[i]); };
  const auto middle = order.begin() + static_cast<std::ptrdiff_t>(std::min(most, order.size()));
  std::partial_sort(order.begin(), middle, order.end(), [&](size_t i, size_t j) {
    return size(i) != size(j) ? size(i) > size(j) : i < j;
  });
  order.erase(middle, order.end());
  return order;
}

void fillFactor(const Adjustment& a, ReportFigures& f) {
  if (!a.factor) return;
  if (a.factor->report().relativeErrorEstimate == 0.0) a.factor->variances();
  Report r = a.factor->report();
  f.condition = r.conditionEstimate > 0.0 ? r.conditionEstimate : a.factor->estimateCondition();
  f.relativeError = r.relativeErrorEstimate;
  f.route = "Cholesky factor of JᵀWJ and its selected inverse";
  f.ordering = name(r.ordering);
}

}  // namespace

std::string shortText(double value) {
  if (std::isnan(value)) return "–";
  char text[32];
  std::snprintf(text, sizeof text, "%.4g", std::fabs(value));
  return (value < 0.0 ? "−" : "") + std::string(text);
}

std::string nameOf(const ReportContents& c, size_t observation) {
  if (c.observationName) return c.observationName(observation);
  std::string name = "observation " + std::to_string(observation);
  const size_t base = c.options.indexBase;
  if (base > 0) name += " (row " + std::to_string(observation + base) + " of the file)";
  return name;
}

ReportFigures figuresOf(const ReportContents& c) {
  const Adjustment& a = c.a;
  ReportFigures f;
  f.checked =
      static_cast<size_t>(std::count_if(a.normalizedResiduals.begin(), a.normalizedResiduals.end(),
                                        [](double w) { return !std::isnan(w); }));
  const auto freedom = static_cast<double>(a.degreesOfFreedom);
  const bool tested = c.options.sigmasGiven && a.degreesOfFreedom > 0;
  f.lowFactor = tested ? chiSquareQuantile(freedom, 0.5 * kError) / freedom : kNan;
  f.highFactor = tested ? chiSquareQuantile(freedom, 1.0 - 0.5 * kError) / freedom : kNan;
  f.critical = tested && f.checked > 0
                   ? normalQuantile(0.5 * kError / static_cast<double>(f.checked))
                   : kNan;
  if (a.suspect >= 0) {
    f.tied = std::fabs(a.normalizedResiduals[static_cast<size_t>(a.suspect)]) * (1.0 - kTie);
  }
  fillFactor(a, f);
  f.factorTest = factorVerdict(c, f);
  f.suspicion = suspicion(c, f);
  f.histogram = histogramOf(a, f.checked);
  f.observations = largest(a.normalizedResiduals, c.options.mostRows);
  f.unknowns = largest(a.sigma, c.options.mostRows);
  if (f.unknowns.size() == a.x.size()) std::iota(f.unknowns.begin(), f.unknowns.end(), 0);
  return f;
}

}  // namespace zeph
