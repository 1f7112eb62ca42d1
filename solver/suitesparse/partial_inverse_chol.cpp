#include "solver/partial_inverse_chol.h"

#include <cholmod.h>

#include <algorithm>
#include <cstddef>
#include <vector>

#include "math/dense/zt_error.h"
#include "solver/assembly/protosparse.h"
#include "solver/solver.h"
#include "solver/suitesparse/cholmod_panels.h"
#include "sparse/inverse/inverse_subset.h"
#include "sparse/inverse/supernodal_inverse.h"

namespace zeph_solver {

namespace {

constexpr const char* kNoFactor = "Failed to do cholmod_solve, cmX = nullptr";

enum class KeepSupernodes : int { No = 0, Yes = 1 };

/// Asks for a packed L L^T factor, not L D L^T.
void setFactorForm(cholmod_common* common, KeepSupernodes keep) {
  common->final_asis = 0;
  common->final_super = static_cast<int>(keep);
  common->final_ll = 1;
  common->final_pack = 1;
  common->final_monotonic = 1;
}

bool hasNumericFactor(const Factorisation& f) {
  return f.cholmodFactor != nullptr && f.cholmodFactor->xtype == CHOLMOD_REAL;
}

/// The factor as a sparse matrix, or null. The factor keeps its permutation but loses its numbers.
CholmodHandle<cholmod_sparse> toSparse(Factorisation& f) {
  cholmod_common* common = f.solver->common->get();
  if (!hasNumericFactor(f)) return {};
  return {cholmod_factor_to_sparse(f.cholmodFactor, common), common};
}

/// Inverts in place, on the panels that CHOLMOD left.
void invertSupernodal(const cholmod_factor& L, double* diagonal) {
  const CholmodPanels view(L);
  korin::sparse::supernodalInverse(view.panels());
  korin::sparse::panelDiagonal(view.panels(), view.permutation(), diagonal);
}

/// `complete`: the factorisation went through to the last column.
void invertSimplicial(const cholmod_sparse& L, bool complete, const void* perm, double* diagonal) {
  const auto* p = static_cast<const int*>(L.p);
  const auto n = static_cast<korin::sparse::Index>(L.ncol);
  const std::vector<korin::sparse::Offset> starts(p, p + n + 1);
  const korin::sparse::InverseSubset subset(
      {n, n, starts.data(), static_cast<const int*>(L.i), static_cast<const double*>(L.x)},
      complete ? korin::sparse::FactorPattern::Elimination : korin::sparse::FactorPattern::Any);
  subset.diagonal(static_cast<const unsigned int*>(perm), diagonal);
}

}  // namespace

void choleskyFactor(const ProtoSparse& A, ProtoSparse& L, unsigned int* perm) {
  Solver solver(Solver::kNestedDissection);
  cholmod_common* common = solver.common->get();
  setFactorForm(common, KeepSupernodes::No);
  if (perm == nullptr) {
    common->nmethods = 1;
    common->method[0].ordering = CHOLMOD_NATURAL;
    common->postorder = 0;
  }
  Factorisation factorisation(&solver);
  factorisation.cholesky = true;
  solver.factorise(A, &factorisation);
  const CholmodHandle<cholmod_sparse> factor = toSparse(factorisation);
  if (factor == nullptr) korin::throwError(__PRETTY_FUNCTION__, kNoFactor);

  L.setSize(factor->nrow, factor->ncol);
  L.elements.reserve(factor->nzmax);
  const auto* starts = static_cast<const int*>(factor->p);
  const auto* rows = static_cast<const int*>(factor->i);
  const auto* values = static_cast<const double*>(factor->x);
  for (int j = 0; j < static_cast<int>(factor->ncol); ++j) {
    for (int p = starts[j]; p < starts[j + 1]; ++p) {
      L.addElement(static_cast<std::size_t>(rows[p]), static_cast<std::size_t>(j), values[p]);
    }
  }
  L.sortElements();
  if (perm != nullptr) {
    std::copy_n(static_cast<const int*>(factorisation.cholmodFactor->Perm), A.rowCount, perm);
  }
}

void partialInverseChol(const ProtoSparse& A, ZtVector& diagonal) {
  Solver solver(Solver::kNestedDissection);
  // A supernodal factor stays one: its panels are what the inversion works on.
  setFactorForm(solver.common->get(), KeepSupernodes::Yes);
  Factorisation factorisation(&solver);
  factorisation.cholesky = true;
  solver.factorise(A, &factorisation);
  if (hasNumericFactor(factorisation) && factorisation.cholmodFactor->is_super) {
    return invertSupernodal(*factorisation.cholmodFactor.get(), diagonal.data);
  }
  const bool complete = hasNumericFactor(factorisation) &&
                        factorisation.cholmodFactor->minor == factorisation.cholmodFactor->n;
  const CholmodHandle<cholmod_sparse> factor = toSparse(factorisation);
  if (factor == nullptr) korin::throwError(__PRETTY_FUNCTION__, kNoFactor);
  invertSimplicial(*factor.get(), complete, factorisation.cholmodFactor->Perm, diagonal.data);
}

}  // namespace zeph_solver
