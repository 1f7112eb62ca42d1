#ifndef ZEPH_FACTOR_PLAN_STRUCTURE_H
#define ZEPH_FACTOR_PLAN_STRUCTURE_H

#include <memory>

#include "zeph/factor/cholesky_backend.h"

namespace zeph {

/// A ordered and analysed as Factor would, without numbers, and the report of that; null where LU
/// would be taken, of which nothing more is known until it is done. `options` must outlive it.
std::unique_ptr<CholeskyBackend> plannedStructure(const SparseMatrix& A, const Options& options,
                                                  Report& report);

}  // namespace zeph

#endif
