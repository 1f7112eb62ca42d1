// The charts of an adjustment's report, as SVG elements whose colours are the page's classes.
#ifndef ZEPH_JOBS_REPORT_CHARTS_H
#define ZEPH_JOBS_REPORT_CHARTS_H

#include <string>

#include "zeph/jobs/report/figures.h"

namespace zeph {

/// Normalised residuals against redundancies, with the bounds of the test and the suspect. However
/// many observations there are, a few thousand dots at most: those that would cover each other are
/// one, darker the more they are.
std::string drawResiduals(const ReportContents& contents, const ReportFigures& figures);

/// How often normalised residuals have which size, and the standard normal curve.
std::string drawHistogram(const Histogram& histogram);

}  // namespace zeph

#endif
