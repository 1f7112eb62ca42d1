#ifndef ZEPH_FACTOR_LU_BACKEND_H
#define ZEPH_FACTOR_LU_BACKEND_H

#include <memory>
#include <string>

#include "zeph/factor/backend.h"

namespace zeph {

/// The LU route: any non-singular matrix, by UMFPACK on one thread. Throws Error(Singular).
/// `options` must outlive it.
std::unique_ptr<Backend> makeLuBackend(const SparseMatrix& A, const std::string& reason,
                                       const Options& options, Watch& watch);

/// Whether this build has the LU route and what else stands on CHOLMOD and UMFPACK; without them
/// all of it throws Error(Unfit).
bool hasLuRoute();

}  // namespace zeph

#endif
