// What established solvers take to order and factorise a symmetric positive definite matrix.
#ifndef ZEPH_BENCH_PEERS_FACTOR_PEERS_H
#define ZEPH_BENCH_PEERS_FACTOR_PEERS_H

#include "sparse/pattern/columns.h"

namespace compare {

/// Seconds of the two steps; `completed` is false where the peer failed or is not installed.
struct FactorTimes {
  bool completed = false;
  double order = 0.0;
  double factor = 0.0;
  double both() const { return order + factor; }
};

/// The lower triangle: rows ascending in every column, without duplicates. Each function first
/// brings it into the peer's own form, which is not timed, and then orders (with the symbolic
/// factorisation) and factorises anew.
using Lower = korin::sparse::ColumnsView;

FactorTimes cholmodMinimumDegree(const Lower& lower);
/// METIS through CHOLMOD.
FactorTimes cholmodNestedDissection(const Lower& lower);
/// Operations of CHOLMOD's factorisation with minimum degree; 0 where it failed.
double minimumDegreeOperations(const Lower& lower);

/// The sequential MUMPS with minimum degree.
FactorTimes mumpsMinimumDegree(const Lower& lower);

/// Eigen's SimplicialLDLT with minimum degree, for the widest instructions of this machine.
FactorTimes eigenMinimumDegree(int n, const int* start, const int* row, const double* value);

}  // namespace compare

#endif
