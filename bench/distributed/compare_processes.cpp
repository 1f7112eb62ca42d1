// Factorisation and variances of a grid on one, two, four, … processes, side by side in one run:
//
//   mpirun -n 4 compare_processes [--side N] [--long L] [--dimensions 2|3] [--repeat R]
//   [--threads T] [--interfaces] [--mumps] [--refactorise]
#include <mpi.h>
#include <sys/resource.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "distributed/distributed_factor.h"

namespace {

struct Run {
  std::string name;
  int processes;
  zeph::DistributedOptions options;
};

struct Figures {
  double ordering = 0.0, factorising = 0.0, inverting = 0.0, cpu = 0.0;
  double made = 0.0, again = 0.0;  // the whole calls
  zeph::DistributedReport report;
  double work() const { return factorising + inverting; }
};

double cpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& t) {
    return static_cast<double>(t.tv_sec) + 1e-6 * static_cast<double>(t.tv_usec);
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// The rows of the Laplacian of a grid that are this process's, with 0.01 on the diagonal.
zeph::SparseMatrix shareOfGrid(MPI_Comm comm, std::uint32_t side, std::uint32_t length,
                               int dimensions) {
  int rank = 0, size = 1;
  MPI_Comm_rank(comm, &rank);
  MPI_Comm_size(comm, &size);
  zeph::SparseMatrix A;
  A.source = "the grid";
  A.symmetry = zeph::Symmetry::Symmetric;
  std::uint64_t n = length;
  for (int d = 1; d < dimensions; ++d) n *= side;
  A.rows = A.cols = n;
  const auto p = static_cast<std::uint64_t>(rank), all = static_cast<std::uint64_t>(size);
  for (std::uint64_t i = n * p / all; i < n * (p + 1) / all; ++i) {
    const auto row = static_cast<std::uint32_t>(i);
    A.entries.push_back({row, row, 2.0 * dimensions + 0.01});
    std::uint32_t step = 1;
    for (int d = 0; d < dimensions; ++d, step *= side) {
      if (d + 1 < dimensions ? row / step % side > 0 : row >= step)
        A.entries.push_back({row, row - step, -1.0});
    }
  }
  return A;
}

Figures measure(MPI_Comm comm, const zeph::SparseMatrix& share, zeph::DistributedOptions options,
                bool refactorise) {
  Figures f;
  double before = cpuSeconds();
  options.progress = [&](const char* stage, double) {
    if (std::string(stage) == "factorising") before = cpuSeconds();
    return true;
  };
  double start = MPI_Wtime();
  zeph::DistributedFactor factor(comm, share, options);
  f.made = MPI_Wtime() - start;
  if (!refactorise) factor.variances();
  f.cpu = cpuSeconds() - before;
  f.report = factor.report();
  f.ordering = f.report.secondsOrdering;
  f.factorising = f.report.secondsFactorisation;
  f.inverting = f.report.secondsInverse;
  if (!refactorise) return f;
  std::vector<double> values;
  for (const zeph::Entry& e : share.entries) values.push_back(1.5 * e.value);
  start = MPI_Wtime();
  factor.refactorise(values);
  f.again = MPI_Wtime() - start;
  return f;
}

// Those who have nothing to do sleep, so that they take no time from the others.
void waitForAll() {
  MPI_Request request = MPI_REQUEST_NULL;
  MPI_Ibarrier(MPI_COMM_WORLD, &request);
  for (int done = 0; done == 0;) {
    MPI_Test(&request, &done, MPI_STATUS_IGNORE);
    if (done == 0) usleep(2000);
  }
}

void print(const std::string& what, const Figures& f, const Figures& one) {
  std::printf("%-10s %9.2f %9.2f %9.2f %9.2f %7.2f %9.2f %7.2f %9lld %8.1f %9.1f %8.2f %8.2f\n",
              what.c_str(), f.ordering, f.factorising, f.inverting, f.work(), one.work() / f.work(),
              f.cpu, one.cpu / f.cpu, static_cast<long long>(f.report.interfaceUnknowns),
              f.report.messageBytes * 1e-6, f.report.bytes * 1e-6, f.report.balance,
              f.report.operations * 1e-9);
  std::fflush(stdout);
}

void printAgain(const std::vector<Run>& runs, const std::vector<Figures>& best) {
  std::printf("%-10s %9s %9s %9s %9s %9s\n", "processes", "ordering", "factor", "made", "again",
              "ratio");
  for (std::size_t k = 0; k < best.size(); ++k) {
    const Figures& f = best[k];
    std::printf("%-10s %9.2f %9.2f %9.2f %9.2f %9.3f\n", runs[k].name.c_str(), f.ordering,
                f.factorising, f.made, f.again, f.again / f.made);
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::uint32_t side = 300, length = 0;
  int dimensions = 2, repeat = 3;
  bool interfaces = false, mumps = false, refactorise = false;
  zeph::DistributedOptions options;
  options.engine = zeph::Engine::Domains;
  CLI::App app(
      "Factorises the Laplacian of a grid and asks for all variances, by one process, by two, by "
      "four, ... up to those that mpirun started, in turn and again and again; the least wall time "
      "of each stage counts. \"ratio\" is the time of one process over that of several, without "
      "ordering; \"cpu\" the processor time of rank 0 for both, waiting included, and \"of cpu\" "
      "its ratio, which other work on the machine disturbs less.");
  app.add_option("--side", side, "points along each axis of the grid")->capture_default_str();
  app.add_option("--long", length, "points along the last axis, where they are others");
  app.add_option("--dimensions", dimensions, "of the grid")->capture_default_str();
  app.add_option("--repeat", repeat, "rounds")->capture_default_str();
  app.add_option("--threads", options.threads, "of each process")->capture_default_str();
  app.add_flag("--interfaces", interfaces,
               "one process, and all of them with a dense and with a sparse interface");
  app.add_flag("--mumps", mumps, "MUMPS with all processes as well; slow");
  app.add_flag("--refactorise", refactorise,
               "no variances: the wall time of making the factor, of other values for it, and the "
               "ratio of the two");
  CLI11_PARSE(app, argc, argv);

  MPI_Init(nullptr, nullptr);
  int rank = 0, size = 1;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  MPI_Comm_size(MPI_COMM_WORLD, &size);
  if (length == 0) length = side;
  std::vector<Run> runs{{"1", 1, options}};
  const std::string all = std::to_string(size);
  if (interfaces) {
    for (const auto method : {zeph::InterfaceMethod::Dense, zeph::InterfaceMethod::Sparse}) {
      options.interface = method;
      runs.push_back({all + ", " + name(method), size, options});
    }
  } else {
    while (runs.back().processes < size) {
      const int next = std::min(size, 2 * runs.back().processes);
      runs.push_back({std::to_string(next), next, options});
    }
  }
  options.engine = zeph::Engine::Mumps;
  if (mumps) runs.push_back({all + ", mumps", size, options});
  std::vector<Figures> best(runs.size());
  try {
    for (int round = 0; round < repeat; ++round) {
      for (std::size_t k = 0; k < best.size(); ++k) {
        MPI_Comm comm = MPI_COMM_NULL;
        MPI_Comm_split(MPI_COMM_WORLD, rank < runs[k].processes ? 0 : MPI_UNDEFINED, rank, &comm);
        if (comm != MPI_COMM_NULL) {
          const Figures f = measure(comm, shareOfGrid(comm, side, length, dimensions),
                                    runs[k].options, refactorise);
          const auto least = [round](double& known, double now) {
            known = round == 0 ? now : std::min(known, now);
          };
          best[k].report = f.report;
          least(best[k].ordering, f.ordering);
          least(best[k].factorising, f.factorising);
          least(best[k].inverting, f.inverting);
          least(best[k].cpu, f.cpu);
          least(best[k].made, f.made);
          least(best[k].again, f.again);
          MPI_Comm_free(&comm);
        }
        waitForAll();
      }
    }
  } catch (const zeph::Error& e) {
    if (rank == 0) std::fprintf(stderr, "compare_processes: %s\n", e.what());
    MPI_Abort(MPI_COMM_WORLD, 1);
  }
  if (rank == 0) {
    std::printf(
        "a grid in %d dimensions, %u points along each axis, %u along the last; seconds and MB\n",
        dimensions, side, length);
    if (refactorise) {
      printAgain(runs, best);
    } else {
      std::printf("%-10s %9s %9s %9s %9s %7s %9s %7s %9s %8s %9s %8s %8s\n", "processes",
                  "ordering", "factor", "variances", "both", "ratio", "cpu", "of cpu", "interface",
                  "messages", "memory", "balance", "Gop");
      for (std::size_t k = 0; k < best.size(); ++k) print(runs[k].name, best[k], best[0]);
    }
  }
  MPI_Finalize();
  return 0;
}
