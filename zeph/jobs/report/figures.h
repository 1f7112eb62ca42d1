// What the report of an adjustment says: numbers, sentences and choices, without their appearance.
#ifndef ZEPH_JOBS_REPORT_FIGURES_H
#define ZEPH_JOBS_REPORT_FIGURES_H

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "zeph/adjustment_report.h"

namespace zeph {

/// An adjustment with all that its report is to say of it.
struct ReportContents {
  const Adjustment& a;
  AdjustmentReportOptions options;
  std::string picture;         ///< an SVG element shown first; trusted
  std::string pictureCaption;  ///< plain text

  /// What people call an observation; its number where empty.
  std::function<std::string(std::size_t)> observationName;
};

/// A sentence, and whether it is good news.
struct Verdict {
  enum class Mood { Good, Bad, Plain } mood = Mood::Plain;
  std::string headline, sentence;
};

/// Normalised residuals in bins of equal width from -limit to limit; the outer ones hold all that
/// lies beyond, too.
struct Histogram {
  double limit = 0.0, width = 0.0;
  std::vector<std::size_t> counts;
  std::size_t checked = 0;           ///< in all bins
  std::size_t below = 0, above = 0;  ///< beyond the limits
};

struct ReportFigures {
  std::size_t checked = 0;  ///< observations that others check

  /// Where the variance factor falls with a probability of 95 % if all is right; NaN where it is
  /// not tested.
  double lowFactor, highFactor;

  /// The largest of `checked` right normalised residuals stays below with a probability of at least
  /// 95 % (Bonferroni's bound); NaN where none is tested.
  double critical;

  /// Normalised residuals from this size on are as large as that of the suspect but for rounding.
  double tied = 0.0;

  double condition = 0.0, relativeError = 0.0;  ///< 0 where the factor is missing
  std::string route, ordering;

  Verdict factorTest, suspicion;
  Histogram histogram;

  /// Rows of the tables in their order.
  std::vector<std::size_t> unknowns, observations;
};

ReportFigures figuresOf(const ReportContents& contents);

/// "observation 3 (row 4 of the file)", or its name.
std::string nameOf(const ReportContents& contents, std::size_t observation);

/// Four significant digits, a real minus sign; "–" for NaN.
std::string shortText(double value);

}  // namespace zeph

#endif
