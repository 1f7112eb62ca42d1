#ifndef ZEPH_CLI_PLAN_COMMANDS_H
#define ZEPH_CLI_PLAN_COMMANDS_H

#include <string>

#include "cli/console.h"
#include "zeph/options.h"
#include "zeph/sparse_matrix.h"

namespace zeph {

/// What a plan is asked for beside the matrix.
struct PlanWishes {
  int processes = 1;
  double memory = 0.0;  ///< bytes of a process; 0 for what this machine has
  std::string calibration;
};

/// Prints what factorising and inverting A would take.
int printPlan(const SparseMatrix& A, const Options& options, const PlanWishes& wishes,
              Console& console);

}  // namespace zeph

#endif
