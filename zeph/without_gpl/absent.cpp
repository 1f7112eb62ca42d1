// Stands in for zeph/general/ in builds without the parts of SuiteSparse that are under the GPL.
#include <string>

#include "zeph/error.h"
#include "zeph/factor/lu_backend.h"
#include "zeph/general/cholmod_factor.h"
#include "zeph/general/inverse_set.h"
#include "zeph/general/solve.h"
#include "zeph/general/variances.h"

namespace zeph {
namespace {

Error absent(const std::string& what) {
  return Error(
      ErrorKind::Unfit,
      "this build has no " + what + ": it was made without the parts of SuiteSparse under the GPL");
}

}  // namespace

bool hasLuRoute() {
  return false;
}

std::optional<LuPlan> planLu(const SparseMatrix&) {
  return {};
}

std::unique_ptr<Backend> makeLuBackend(const SparseMatrix&, const std::string& reason,
                                       const Options&, Watch&) {
  throw absent(reason == "as asked" ? "LU route" : "LU route, and " + reason);
}

// Signatures are those of the functions stood in for.
// NOLINTBEGIN(performance-unnecessary-value-param)
Variances variances(SparseMatrix, Route, const Progress&) {
  throw absent("engine cholmod");
}

Solution solve(SparseMatrix, const DenseMatrix&, Route, const Progress&) {
  throw absent("engine cholmod");
}

CholeskyFactor cholmodFactor(SparseMatrix, bool, const Progress&) {
  throw absent("engine cholmod");
}

SparseMatrix inverseSet(SparseMatrix, const Progress&) {
  throw absent("symbolic inverse set");
}

// NOLINTEND(performance-unnecessary-value-param)

}  // namespace zeph
