#ifndef ZEPH_GENERAL_ROUTE_H
#define ZEPH_GENERAL_ROUTE_H

#include <cstddef>
#include <string>

#include "solver/solver.h"
#include "solver/suitesparse/factorisation_status.h"
#include "zeph/error.h"
#include "zeph/general/route_choice.h"
#include "zeph/general/scaling.h"
#include "zeph/sparse_matrix.h"

namespace zeph {

/// A matrix on its way into a factorisation.
struct PreparedMatrix {
  std::string source;
  std::size_t indexBase;       ///< as in SparseMatrix
  zeph_solver::ProtoSparse A;  ///< compressed and scaled; finite and square, not empty
  bool upperOnly;              ///< A stands for a symmetric matrix by its upper triangle
  RouteChoice choice;
  Scaling scaling;       ///< what A was scaled by; row = col on the Cholesky route
  bool mayUseLu = true;  ///< messages may send the user to LU

  std::size_t size() const { return A.rowCount; }

  /// Calls use(row, col, value) for every stored entry of the scaled matrix, of both triangles.
  template <class Use>
  void forEachEntry(const Use& use) const {
    if (A.isDense()) {
      use(std::size_t{0}, std::size_t{0}, A.denseBlock->data[0]);
      return;
    }
    for (const auto& e : A.elements) {
      use(std::size_t{e.row}, std::size_t{e.col}, e.value);
      if (upperOnly && e.row != e.col) use(std::size_t{e.col}, std::size_t{e.row}, e.value);
    }
  }
};

/// Checks m, chooses the route where it is left open, assembles the part of m that the route reads,
/// and scales it. Without mayUseLu no message advises the LU route.
/// Throws Error(Unfit) when m is not square, empty, not finite or given by one triangle without
/// saying so, or when Cholesky is forced on a matrix that is not symmetric; Error(Singular) for
/// what is singular by its form, and Error(NotPositiveDefinite) when Cholesky is forced on an
/// unusable diagonal.
PreparedMatrix prepare(SparseMatrix m, Route asked, bool mayUseLu = true);

/// Factorises m into f by its route.
/// Throws Error(NotPositiveDefinite), Error(Singular) for a zero pivot, with the row where it broke
/// down if that is known, or Error(Memory).
void factorise(const PreparedMatrix& m, zeph_solver::Solver& solver, zeph_solver::Factorisation& f);

/// The error that a failed factorisation of m deserves.
Error breakdown(const PreparedMatrix& m, const zeph_solver::FactorisationStatus& status);

}  // namespace zeph

#endif
