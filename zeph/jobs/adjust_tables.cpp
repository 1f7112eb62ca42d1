#include "zeph/jobs/adjust_tables.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <initializer_list>
#include <optional>
#include <utility>

#include "zeph/error.h"
#include "zeph/files/atomic_file.h"
#include "zeph/files/number_text.h"
#include "zeph/jobs/report/page.h"

namespace zeph {
namespace {

void writeLine(AtomicFile& out, std::size_t index, std::initializer_list<double> values) {
  std::string line;
  appendIndex(line, index);
  for (const double value : values) {
    line += ',';
    line += std::isnan(value) ? "nan" : toText(value);
  }
  out.write(line + '\n');
}

void writeObservations(AtomicFile& out, const Adjustment& a) {
  out.write("observation,residual,standard_deviation,redundancy,leverage,normalized_residual\n");
  for (std::size_t i = 0; i < a.residuals.size(); ++i) {
    writeLine(out, i,
              {a.residuals[i], a.residualSigma[i], a.redundancy[i], a.leverage[i],
               a.normalizedResiduals[i]});
  }
}

}  // namespace

std::vector<double> toVector(DenseMatrix m, const char* what) {
  if (m.rows == 1 || m.cols == 1) return std::move(m.values);
  throw Error(ErrorKind::Unfit, m.source + " is " + std::to_string(m.rows) + " x " +
                                    std::to_string(m.cols) + "; " + what + " are one column");
}

void writeAdjustment(const AdjustmentFiles& files, const Adjustment& a,
                     const AdjustmentReportOptions& options) {
  AtomicFile unknowns(files.unknowns);
  std::optional<AtomicFile> observations, report;
  if (!files.observations.empty()) observations.emplace(files.observations);
  if (!files.report.empty()) report.emplace(files.report);
  unknowns.write("unknown,value,standard_deviation\n");
  for (std::size_t j = 0; j < a.x.size(); ++j) writeLine(unknowns, j, {a.x[j], a.sigma[j]});
  if (observations) writeObservations(*observations, a);
  if (report) report->write(adjustmentPage({a, options, {}, {}, {}}));
  AtomicFile::commitAll(
      {&unknowns, observations ? &*observations : nullptr, report ? &*report : nullptr});
}

std::vector<std::string> summary(const Adjustment& a, std::size_t indexBase) {
  char text[256];
  std::vector<std::string> lines;
  std::snprintf(text, sizeof text,
                "%zu observations of %zu unknowns, %lld degrees of freedom; %td not checked by "
                "others",
                a.residuals.size(), a.x.size(), static_cast<long long>(a.degreesOfFreedom),
                std::count(a.redundancy.begin(), a.redundancy.end(), 0.0));
  lines.push_back(text);
  if (a.suspect < 0) return lines;
  std::snprintf(text, sizeof text,
                "variance factor %.4g (about 1 where the standard deviations are right)",
                a.varianceFactor);
  lines.push_back(text);
  const auto s = static_cast<std::size_t>(a.suspect);
  std::snprintf(text, sizeof text,
                "largest normalised residual %.4g: row %zu of the observations (index %zu), "
                "residual %.4g",
                a.normalizedResiduals[s], s + indexBase, s, a.residuals[s]);
  lines.push_back(text);
  return lines;
}

}  // namespace zeph
