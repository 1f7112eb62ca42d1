#ifndef ZEPH_BENCH_PEERS_MUMPS_PEER_H
#define ZEPH_BENCH_PEERS_MUMPS_PEER_H

#include "solver/assembly/protosparse.h"

namespace compare {

/// Seconds of the three steps; `completed` is false when one failed.
struct MumpsTimes {
  bool completed = false;
  double analysis = 0.0;
  double factorisation = 0.0;
  double inverse = 0.0;
};

bool haveMumps();

/// Diagonal of A^-1 by MUMPS' computation of inverse entries (ICNTL(30)), sequential version.
/// order: a pivot order to use, order[k] = k-th row to eliminate, or null for its own choice.
MumpsTimes mumpsInverseDiagonal(const zeph_solver::ProtoSparse& A, bool symmetric, const int* order,
                                double* diagonal);

}  // namespace compare

#endif
