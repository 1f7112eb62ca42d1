#ifndef ZEPH_GENERAL_CHOLMOD_FACTOR_H
#define ZEPH_GENERAL_CHOLMOD_FACTOR_H

#include "zeph/checks/progress.h"
#include "zeph/factor/lower_factor.h"

namespace zeph {

/// lowerFactor() by CHOLMOD, for comparison: in its own order with reorder, in A's without. Throws
/// alike.
CholeskyFactor cholmodFactor(SparseMatrix A, bool reorder, const Progress& progress = Progress());

}  // namespace zeph

#endif
