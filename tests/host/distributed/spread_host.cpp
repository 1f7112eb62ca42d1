// Uses the distributed component beside the public library, on all processes. The errors of both
// are of one type.
#include <cmath>
#include <cstdio>

#include "distributed/distributed_factor.h"
#include "zeph/zeph.h"

template <class Work>
bool refused(const Work& work) {
  try {
    work();
  } catch (const zeph::Error& e) {
    return e.kind() == zeph::ErrorKind::NotPositiveDefinite;
  } catch (...) {
  }
  return false;
}

int main(int argc, char** argv) {
  MPI_Init(&argc, &argv);
  int rank = 0, processes = 0;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  MPI_Comm_size(MPI_COMM_WORLD, &processes);
  const double p = processes;
  zeph::SparseMatrix A;
  A.rows = A.cols = 2;
  A.symmetry = zeph::Symmetry::Symmetric;
  A.entries = {{0, 0, 4.0 / p}, {1, 0, 2.0 / p}, {1, 1, 5.0 / p}};
  bool fine = p > 1;
  for (const auto engine : {zeph::Engine::Domains, zeph::Engine::Mumps}) {
    zeph::DistributedOptions options;
    options.engine = engine;
    zeph::DistributedFactor f(MPI_COMM_WORLD, A, options);
    fine = fine && std::fabs(f.variances()[1] - 0.25) < 1e-15 && f.report().processes == p;
    f.refactorise({8.0 / p, 4.0 / p, 10.0 / p});
    fine = fine && std::fabs(f.variances()[1] - 0.125) < 1e-15;
  }
  A.entries[2].value = -1.0;
  zeph::DistributedOptions cholesky;
  zeph::Options alone;
  alone.route = cholesky.route = zeph::Route::Cholesky;
  fine = refused([&] { zeph::DistributedFactor(MPI_COMM_WORLD, A, cholesky); }) && fine;
  fine = refused([&] { zeph::Factor(A, alone); }) && fine;
  if (!fine || rank == 0) std::printf("rank %d: %s\n", rank, fine ? "all fine" : "FAILED");
  MPI_Finalize();
  return fine ? 0 : 1;
}
