#include "distributed/mumps/instance.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstring>

namespace zeph::distributed {
namespace {

constexpr int kBegin = -1;
constexpr int kEnd = -2;
constexpr MUMPS_INT kMostRelaxation = 1600;  // per cent of workspace beyond the forecast

// MUMPS multiplies by the BLAS, of which OpenBLAS alone has threads of its own. While one of these
// lives, it has as many as were asked for.
class BlasThreads {
 public:
  explicit BlasThreads(int threads) : set_(find<Set>("openblas_set_num_threads")) {
    const Get get = find<Get>("openblas_get_num_threads");
    if (set_ == nullptr || get == nullptr) return;
    before_ = get();
    set_(threads);
  }
  ~BlasThreads() {
    if (before_ > 0) set_(before_);
  }
  BlasThreads(const BlasThreads&) = delete;
  BlasThreads& operator=(const BlasThreads&) = delete;

 private:
  using Set = void (*)(int);
  using Get = int (*)();
  template <class Function>
  static Function find(const char* name) {
    return reinterpret_cast<Function>(::dlsym(RTLD_DEFAULT, name));
  }

  Set set_;
  int before_ = 0;
};

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

}  // namespace zeph::distributed
