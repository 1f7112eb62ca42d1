#ifndef ZEPH_FACTOR_LU_BACKEND_H
#define ZEPH_FACTOR_LU_BACKEND_H

#include <memory>
#include <optional>
#include <string>

#include "zeph/factor/backend.h"

namespace zeph {

/// The LU route: any non-singular matrix, by UMFPACK on one thread. Throws Error(Singular).
/// `options` must outlive it.
std::unique_ptr<Backend> makeLuBackend(const SparseMatrix& A, const std::string& reason,
                                       const Options& options, Watch& watch);

/// What is known of an LU factorisation before it is made. Which rows the pivots are in, and with
/// them the fill, depends on the values.
struct LuPlan {
  double entriesOfA = 0.0;         ///< duplicates merged, both triangles
  double entriesOnDiagonal = 0.0;  ///< of L and U with all pivots on the diagonal; 0 where unknown
  double mostEntries = 0.0;        ///< of L and U
  double leastBytes = 0.0;         ///< of the factorisation, beside A as the caller has it
  double bytesOnDiagonal = 0.0;    ///< about, where entriesOnDiagonal is known
  double mostBytes = 0.0;
};

/// Orders and analyses A as the LU route would; nothing in a build without it. Throws
/// Error(Singular) for what is singular by its form, Error(Unfit) for sums that overflow.
std::optional<LuPlan> planLu(const SparseMatrix& A);

/// Whether this build has the LU route and what else stands on CHOLMOD and UMFPACK; without them
/// all of it throws Error(Unfit).
bool hasLuRoute();

}  // namespace zeph

#endif
