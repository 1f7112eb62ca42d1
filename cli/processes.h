// The command under mpirun: which process this is, and questions that all of them work on.
#ifndef ZEPH_CLI_PROCESSES_H
#define ZEPH_CLI_PROCESSES_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "cli/command_parts.h"
#include "zeph/dense_matrix.h"
#include "zeph/jobs/distributed_call.h"

namespace zeph {

/// What mpirun, srun and their kin tell a process of itself; one alone without them.
struct Processes {
  int rank = 0;
  int count = 1;

  bool first() const { return rank == 0; }
};
Processes processes();

/// Engines of the distributed component, for --engine.
bool isDistributedEngine(const std::string& engine);

/// A question to all processes.
struct DistributedQuestion {
  DistributedTask task = DistributedTask::Variances;
  std::string engine;     ///< as --engine has it
  std::string interface;  ///< as --interface has it
  int route = 0;          ///< as in zeph_distributed_call
  int threads = 0;
  double memory = 0.0;
  std::string scratch;
  /// All of A, on rank 0; or of a matrix in parts those of a process.
  std::function<SparseMatrix(int rank, int processes, bool& whole)> read;
  std::function<DenseMatrix(const SparseMatrix& A)> readRight;  ///< on rank 0
};

/// What all processes have found together; it owns what the figures point to.
struct DistributedAnswer {
  zeph_distributed_answer figures{};
  std::vector<double> values;
  std::vector<std::string> warnings;
  std::string engine, interface, reason, source;
  std::size_t indexBase = 0;
};

/// Loads the distributed component, which asks all processes. The answer stands on rank 0; nothing
/// on the others. Throws on rank 0 where there is none, and returns nothing on the others.
std::optional<DistributedAnswer> askProcesses(const DistributedQuestion& question,
                                              Console& console);

/// The report among the figures, and told where --verbose asks for it.
void tellReport(const DistributedAnswer& answer, Console& console);

}  // namespace zeph

#endif
