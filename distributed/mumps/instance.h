// The one place that talks to MUMPS: its instance, its phases, and what its statuses mean.
#ifndef ZEPH_DISTRIBUTED_MUMPS_INSTANCE_H
#define ZEPH_DISTRIBUTED_MUMPS_INSTANCE_H

#include <dmumps_c.h>

#include <memory>
#include <string>

#include "distributed/communication.h"
#include "distributed/distributed_factor.h"
#include "distributed/mumps/wanted_entries.h"
#include "distributed/scratch_folder.h"
#include "zeph/error.h"

namespace zeph::distributed {

/// What a matrix is taken for: MUMPS has a method for each.
enum class Form : int { Unsymmetric = 0, Definite = 1, Symmetric = 2 };

/// Phases of the work.
enum class Phase : int { Analyse = 1, Factorise = 2, Solve = 3 };

/// An instance of MUMPS over the processes of a communicator, silent. Phases are collective.
class Instance {
 public:
  /// `source` names the matrix in messages. Of the options, the threads are for the BLAS, while a
  /// phase runs, and the limit of memory is kept.
  Instance(const Communicator& comm, Form form, const std::string& source,
           const DistributedOptions& options);
  ~Instance();
  Instance(const Instance&) = delete;
  Instance& operator=(const Instance&) = delete;

  DMUMPS_STRUC_C* operator->() { return &id_; }
  /// The parameters as the manual of MUMPS counts them.
  MUMPS_INT& control(int number) { return id_.icntl[number - 1]; }
  MUMPS_INT global(int number) const { return id_.infog[number - 1]; }
  MUMPS_INT local(int number) const { return id_.info[number - 1]; }
  double realGlobal(int number) const { return id_.rinfog[number - 1]; }
  double realLocal(int number) const { return id_.rinfo[number - 1]; }
  /// A count that is negative where it is meant in millions.
  static double counted(MUMPS_INT number) { return number < 0 ? -1e6 * number : number; }

  /// Runs a phase; where MUMPS's forecast of its workspace was too small, again with a larger one.
  /// Throws mumpsError on all processes.
  void run(Phase phase);

  /// Keeps the factor in files below this folder. Collective, before the factorisation.
  void useFiles(const std::string& folder);

  /// x = A⁻¹ x, or with A transposed, for a whole vector that is the same on all processes.
  void solve(double* x, bool transposed = false);
  /// Fills in values on the first process, which alone has wanted entries.
  void invert(WantedEntries& wanted);
  /// log |det A|, where control(33) was set.
  double logDeterminant() const;

 private:
  void call(int job);

  const Communicator& comm_;
  std::string source_;
  int threads_;
  double memoryLimit_;
  std::unique_ptr<ScratchFolder> files_;
  DMUMPS_STRUC_C id_{};
};

/// What a status INFOG(1) below zero with its INFOG(2) says of the matrix `source`.
Error mumpsError(MUMPS_INT status, MUMPS_INT detail, const std::string& source);

/// What so many pivots say that are negative where none should be; 0 where they are not known.
Error negativePivots(const std::string& source, MUMPS_INT count);

/// Whether a status asks for more workspace than had been foreseen.
bool wantsMoreWorkspace(MUMPS_INT status);

}  // namespace zeph::distributed

#endif
