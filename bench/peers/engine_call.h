// Our engine from unsorted triplets to all variances, stage by stage.
#ifndef ZEPH_BENCH_PEERS_ENGINE_CALL_H
#define ZEPH_BENCH_PEERS_ENGINE_CALL_H

#include <vector>

#include "kernels/panel_storage.h"
#include "solver/assembly/protosparse.h"
#include "sparse/symbolic/placement.h"
#include "sparse/symbolic/symbolic.h"

namespace compare {

/// A symmetric matrix, both triangles, in the order in which it was assembled.
struct Triplets {
  korin::sparse::Index n = 0;
  std::vector<korin::sparse::Index> row, col;
  std::vector<double> value;
};

Triplets tripletsOf(const zeph_solver::ProtoSparse& A);

/// Seconds of the stages, and of the call that they make.
struct Stages {
  double assembly, analysis, placement, factor, inverse, total;
};

/// What a call leaves for later ones.
struct Engine {
  korin::sparse::Symbolic symbolic;
  korin::sparse::PlacedEntries entries;
  korin::sparse::Slots slots;
  korin::kernels::PanelStorage panels;
  double residual = 0.0;
};

/// Assembles, analyses, places, factorises and computes all variances. With `processorTime` the
/// seconds are those of the process on all processors instead of the clock's. Throws
/// std::domain_error if the matrix is not positive definite.
Stages callEngine(const Triplets& t, int threads, Engine& engine, double* variances,
                  bool processorTime = false);

/// Seconds from new values on the same pattern to all variances.
double refactorise(const Triplets& t, int threads, Engine& engine, double* variances);

/// Floating-point operations of our fused kernel a second: products of a size that caches hold.
double kernelRate();

}  // namespace compare

#endif
