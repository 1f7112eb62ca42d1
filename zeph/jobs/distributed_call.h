// What a program and the distributed component say to each other when the program loads it at run
// time: plain values and functions, so that neither needs the other to be built, and no exception
// passes between them.
#ifndef ZEPH_JOBS_DISTRIBUTED_CALL_H
#define ZEPH_JOBS_DISTRIBUTED_CALL_H

#include <cstdint>

#include "zeph/sparse_matrix.h"

extern "C" {

/// What a process has read. What it points to stays until zeph_distributed_call::release.
struct zeph_distributed_share {
  int whole;  ///< on rank 0: all of the matrix, which the others wait for
  std::uint64_t rows, cols;
  int symmetry, triangular;  ///< as in zeph::SparseMatrix
  const char* source;
  std::uint64_t index_base;
  const zeph::Entry* entries;
  std::uint64_t count;
  const double* right;  ///< on rank 0: `columns` right-hand sides
  std::uint64_t columns;
};

/// Figures of zeph::DistributedReport, and what a command tells beside its result.
struct zeph_distributed_answer {
  const double* values;  ///< the variances, or the solutions column after column
  std::uint64_t count;
  double log_determinant;
  int sign;
  double relative_residual;
  const char* const* warnings;  ///< sentences, as of zeph::DistributedFactor::warnings()
  std::uint64_t warning_count;

  const char *engine, *interface, *reason;
  int route, processes, threads;  ///< route as in zeph::Route
  std::int64_t unknowns, entries_of_a, entries_of_l, interface_unknowns;
  double operations, bytes, message_bytes, balance;
  double seconds_ordering, seconds_factorisation, seconds_inverse;
  double condition_estimate, relative_error_estimate, backward_error;
  double last_error_estimate;
  std::int64_t uncertain_variances, worst_unknown;
};

/// A question to all processes. Each of them asks the same; the functions are called on it.
struct zeph_distributed_call {
  int version;    ///< zeph::kDistributedCallVersion
  int task;       ///< zeph::DistributedTask
  int engine;     ///< 0 automatic, 1 domains, 2 MUMPS
  int interface;  ///< between domains: 0 automatic, 1 dense, 2 sparse
  int route;  ///< 0 automatic, where a matrix that should be definite has to be; 1 Cholesky, 2 LU
  int threads;
  double memory;        ///< bytes, 0 for no limit
  const char* scratch;  ///< folder, empty for none
  void* context;        ///< handed to the functions

  /// Fills in the share of process `rank`. Returns 0, or an exit status and the sentence.
  int (*read)(void* context, int rank, int processes, zeph_distributed_share* share,
              const char** sentence);
  void (*release)(void* context);
  /// On rank 0; returns 0 to stop.
  int (*progress)(void* context, const char* stage, double share);
  /// On rank 0, once.
  void (*take)(void* context, const zeph_distributed_answer* answer);
  /// On every process where there is no answer.
  void (*fail)(void* context, const char* sentence, std::int64_t row);
};

/// The one function that is looked for in the component: starts MPI, asks, ends MPI. Returns the
/// exit status. Once in the life of a process.
using zeph_distributed_run_function = int (*)(const zeph_distributed_call*);

}  // extern "C"

namespace zeph {

inline constexpr int kDistributedCallVersion = 3;
inline constexpr char kDistributedRun[] = "zeph_distributed_run";

enum class DistributedTask : int { Variances, Solve, LogDeterminant };

}  // namespace zeph

#endif
