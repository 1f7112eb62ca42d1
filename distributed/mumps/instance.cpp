#include "distributed/mumps/instance.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "distributed/blas_threads.h"

namespace zeph::distributed {
namespace {

constexpr int kBegin = -1;
constexpr int kEnd = -2;
constexpr MUMPS_INT kMostRelaxation = 1600;  // per cent of workspace beyond the forecast

}  // namespace

Instance::Instance(const Communicator& comm, Form form, const std::string& source,
                   const DistributedOptions& options)
    : comm_(comm), source_(source), threads_(options.threads), memoryLimit_(options.memoryLimit) {
  id_.comm_fortran = static_cast<MUMPS_INT>(MPI_Comm_c2f(comm.raw()));
  id_.par = 1;
  id_.sym = static_cast<MUMPS_INT>(form);
  call(kBegin);
  if (global(1) < 0) comm_.fail(mumpsError(global(1), global(2), source_));
  for (const int output : {1, 2, 3, 4}) control(output) = 0;
}

Instance::~Instance() {
  int over = 0;
  MPI_Finalized(&over);
  if (over == 0) call(kEnd);
}

void Instance::call(int job) {
  const BlasThreads blas(threads_);
  id_.job = job;
  dmumps_c(&id_);
}

void Instance::run(Phase phase) {
  for (;;) {
    call(static_cast<int>(phase));
    if (global(1) >= 0) return;
    const MUMPS_INT status = global(1);
    if (!wantsMoreWorkspace(status) || phase == Phase::Solve || control(14) >= kMostRelaxation) {
      comm_.fail(mumpsError(status, global(2), source_));
    }
    // The whole of the limit becomes workspace: only where that of the forecast did not do.
    if (memoryLimit_ > 0.0) control(23) = static_cast<MUMPS_INT>(std::min(memoryLimit_ / 1e6, 2e9));
    control(14) = std::min(kMostRelaxation, 3 * std::max<MUMPS_INT>(control(14), 20));
  }
}

void Instance::useFiles(const std::string& folder) {
  comm_.together([&] {
    files_ = std::make_unique<ScratchFolder>(folder);
    if (files_->path().size() >= sizeof id_.ooc_tmpdir) {
      throw Error(ErrorKind::Output, "the name of the scratch folder " + folder + " is too long");
    }
    std::strcpy(id_.ooc_tmpdir, files_->path().c_str());
    std::strcpy(id_.ooc_prefix, "factor");
  });
  control(22) = 1;
}

void Instance::solve(double* x, bool transposed) {
  control(9) = transposed ? 0 : 1;
  id_.nrhs = 1;
  id_.lrhs = id_.n;
  if (comm_.first()) id_.rhs = x;  // elsewhere it must never have been set
  run(Phase::Solve);
  comm_.broadcast(0, x, static_cast<std::size_t>(id_.n));
}

void Instance::invert(WantedEntries& wanted) {
  control(30) = 1;
  id_.nrhs = id_.lrhs = id_.n;
  id_.nz_rhs = static_cast<MUMPS_INT>(wanted.rows.size());
  if (comm_.first()) {
    id_.irhs_ptr = wanted.starts.data();
    id_.irhs_sparse = wanted.rows.data();
    id_.rhs_sparse = wanted.values.data();
  }
  run(Phase::Solve);
  id_.irhs_ptr = id_.irhs_sparse = nullptr;
  id_.rhs_sparse = nullptr;
  control(30) = 0;
}

double Instance::logDeterminant() const {
  return std::log(std::abs(realGlobal(12))) + global(34) * std::log(2.0);
}

}  // namespace zeph::distributed
