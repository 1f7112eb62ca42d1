// An adjustment as tables for people and spreadsheets.
#ifndef ZEPH_JOBS_ADJUST_TABLES_H
#define ZEPH_JOBS_ADJUST_TABLES_H

#include <cstddef>
#include <string>
#include <vector>

#include "zeph/adjust.h"
#include "zeph/dense_matrix.h"

namespace zeph {

/// The values of a row or a column; throws Error(Unfit) for any other matrix.
std::vector<double> toVector(DenseMatrix m, const char* what);

/// Writes the unknowns, lines "index,value,standard_deviation" below a header, and where
/// residualsPath is not empty the observations in the same way: both files or neither. Indices are
/// zero-based; what an observation without redundancy has not is nan.
void writeAdjustment(const std::string& path, const std::string& residualsPath,
                     const Adjustment& a);

/// The figures of the whole, a sentence each; `indexBase` is that of the design matrix.
std::vector<std::string> summary(const Adjustment& a, std::size_t indexBase);

}  // namespace zeph

#endif
