#ifndef ZEPH_ADJUSTMENT_REPORT_H
#define ZEPH_ADJUSTMENT_REPORT_H

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "zeph/adjust.h"
#include "zeph/api.h"

namespace zeph {

/// What a report says beside the adjustment itself. All texts may hold any characters.
struct AdjustmentReportOptions {
  std::string title = "Least-squares adjustment";  ///< heads the page

  /// What went in, role and name: {"design matrix", "J.mtx"}.
  std::vector<std::pair<std::string, std::string>> inputs;

  /// False where 1 was taken for all standard deviations. The variance factor then estimates their
  /// square instead of being tested, and no residual is called too large.
  bool sigmasGiven = true;

  /// Index of the first row in the file of the observations, for the sentence on the suspect.
  std::size_t indexBase = 0;

  /// Rows that a table shows at most: of longer ones the observations with the largest normalised
  /// residuals and the unknowns with the largest standard deviations.
  std::size_t mostRows = 500;
};

/// Writes an adjustment as one HTML page that needs nothing but a browser: figures, the test of the
/// variance factor, the suspected blunder, charts of the residuals, and tables that sort by a
/// click.
///
///     zeph::writeAdjustmentReport("report.html", zeph::adjust(J, y, sigmas));
///
/// The file appears whole or not at all. Throws Error(Output) where it cannot be written. What the
/// adjustment lacks without its factor (condition, error estimate, route) is left out.
/// Cost: a selected inverse for the error estimate, unless Factor::variances() was called before.
ZEPH_API void writeAdjustmentReport(const std::string& path, const Adjustment& a,
                                    const AdjustmentReportOptions& options = {});

}  // namespace zeph

#endif
