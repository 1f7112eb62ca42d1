// An adjustment as tables for people and spreadsheets.
#ifndef ZEPH_JOBS_ADJUST_TABLES_H
#define ZEPH_JOBS_ADJUST_TABLES_H

#include <cstddef>
#include <string>
#include <vector>

#include "zeph/adjust.h"
#include "zeph/adjustment_report.h"
#include "zeph/dense_matrix.h"

namespace zeph {

/// The values of a row or a column; throws Error(Unfit) for any other matrix.
std::vector<double> toVector(DenseMatrix m, const char* what);

/// Where the results of an adjustment go; an empty name asks for nothing.
struct AdjustmentFiles {
  std::string unknowns, observations, report;
};

/// Writes the unknowns, lines "index,value,standard_deviation" below a header, the observations in
/// the same way, and the report: all of these files or none. Indices are zero-based; what an
/// observation without redundancy has not is nan.
void writeAdjustment(const AdjustmentFiles& files, const Adjustment& a,
                     const AdjustmentReportOptions& options);

/// The figures of the whole, a sentence each; `indexBase` is that of the design matrix.
std::vector<std::string> summary(const Adjustment& a, std::size_t indexBase);

}  // namespace zeph

#endif
