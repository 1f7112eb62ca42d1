// CHOLMOD's supernodal factor as the panels that the inverse recurrence works on.
#ifndef ZEPH_SOLVER_SUITESPARSE_CHOLMOD_PANELS_H
#define ZEPH_SOLVER_SUITESPARSE_CHOLMOD_PANELS_H

#include <cstddef>
#include <vector>

#include "solver/suitesparse/suitesparse_handles.h"
#include "sparse/inverse/supernodal_inverse.h"

namespace zeph_solver {

/// A view of a supernodal L L^T factor; writing its values writes the factor's.
class CholmodPanels {
 public:
  /// `factor` must be supernodal and numeric, and outlive the view.
  explicit CholmodPanels(const cholmod_factor& factor);
  CholmodPanels(const CholmodPanels&) = delete;
  CholmodPanels& operator=(const CholmodPanels&) = delete;

  const korin::sparse::SupernodalFactor& panels() const { return panels_; }
  /// permutation()[k] is the row of the matrix that became row k of the factor.
  const unsigned int* permutation() const { return permutation_; }

 private:
  std::vector<std::size_t> starts_;
  korin::sparse::SupernodalFactor panels_;
  const unsigned int* permutation_;
};

}  // namespace zeph_solver

#endif
