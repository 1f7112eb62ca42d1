// The matrix between the domains of a grid as a dense one by ScaLAPACK and as a sparse one by
// MUMPS, with as many domains as are asked for, whatever the number of processes:
//
//   mpirun -n 1 compare_interfaces [--across K] [--side S]
#include <mpi.h>
#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <numeric>
#include <vector>

#include "distributed/domains/block_matrix.h"
#include "distributed/mumps/instance.h"
#include "distributed/mumps/wanted_entries.h"

namespace {

using namespace zeph::distributed;

// K x K domains of S x S points with a line of points between neighbours.
struct Interface {
  std::uint32_t unknowns = 0;
  std::vector<std::vector<std::uint32_t>> boundaries;

  Interface(int across, int side) {
    const int length = across * (side + 1) - 1;
    std::vector<std::uint32_t> place(static_cast<std::size_t>(length) * length);
    const auto between = [&](int i) { return (i + 1) % (side + 1) == 0; };
    const auto at = [&](int i, int j) -> std::uint32_t& {
      return place[static_cast<std::size_t>(i) * length + j];
    };
    boundaries.resize(static_cast<std::size_t>(across) * across);
    for (int i = 0; i < length; ++i) {
      for (int j = 0; j < length; ++j) {
        if (between(i) || between(j)) at(i, j) = unknowns++;
      }
    }
    for (int i = 0; i < length; ++i) {
      for (int j = 0; j < length; ++j) {
        if (between(i) == between(j)) continue;
        // The domains on its two sides.
        for (const int step : {-1, 1}) {
          const int a = (i + (between(i) ? step : 0)) / (side + 1);
          const int b = (j + (between(j) ? step : 0)) / (side + 1);
          boundaries[static_cast<std::size_t>(a) * across + b].push_back(at(i, j));
        }
      }
    }
  }

  double share() const {
    double squares = 0.0;
    for (const auto& b : boundaries) squares += static_cast<double>(b.size() * b.size());
    return squares / unknowns / unknowns;
  }

  // Calls use(domain, row, column, value) for the lower triangles of the squares, diagonally
  // dominant, and last for the diagonal, which belongs to domain 0.
  template <class Use>
  void forEntries(const Use& use) const {
    for (std::size_t d = 0; d < boundaries.size(); ++d) {
      const auto& b = boundaries[d];
      for (std::size_t c = 0; c < b.size(); ++c) {
        for (std::size_t r = c + 1; r < b.size(); ++r) {
          use(d, b[r], b[c], -1.0 / static_cast<double>(b.size()));
        }
      }
    }
    for (std::uint32_t i = 0; i < unknowns; ++i) use(0, i, i, 4.0);
  }
};

struct Clock {
  explicit Clock(const Communicator& comm) : comm_(comm), wall_(now()), processor_(used()) {}
  double wall() const { return now() - wall_; }
  double processor() const { return used() - processor_; }

 private:
  double now() const { return comm_.largest(MPI_Wtime()); }
  double used() const {
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return comm_.sum(static_cast<double>(u.ru_utime.tv_sec + u.ru_stime.tv_sec) +
                     1e-6 * static_cast<double>(u.ru_utime.tv_usec + u.ru_stime.tv_usec));
  }
  const Communicator& comm_;
  double wall_, processor_;
};

void print(const Communicator& comm, const char* what, const Clock& clock, double operations) {
  const double wall = clock.wall(), processor = clock.processor();
  if (!comm.first()) return;
  std::printf("%-7s %9.2f %9.2f %9.2f\n", what, wall, processor, operations * 1e-9);
}

void sparse(const Communicator& comm, const Interface& S) {
  std::vector<MUMPS_INT> rows, cols;
  std::vector<double> values;
  std::vector<WantedPlace> places;
  S.forEntries([&](std::size_t domain, std::uint32_t row, std::uint32_t col, double value) {
    if (comm.first()) places.push_back({col, row});
    if (domain % static_cast<std::size_t>(comm.size()) != static_cast<std::size_t>(comm.rank())) {
      return;
    }
    rows.push_back(static_cast<MUMPS_INT>(row + 1));
    cols.push_back(static_cast<MUMPS_INT>(col + 1));
    values.push_back(value);
  });
  WantedEntries wanted(S.unknowns);
  wanted.set(places);
  const Clock clock(comm);
  Instance mumps(comm, Form::Definite, "the interface", {});
  mumps.control(18) = 3;
  mumps.control(27) = 64;
  mumps.control(28) = 1;
  mumps->n = static_cast<MUMPS_INT>(S.unknowns);
  mumps->nnz_loc = static_cast<MUMPS_INT8>(rows.size());
  mumps->irn_loc = rows.data();
  mumps->jcn_loc = cols.data();
  mumps->a_loc = values.data();
  mumps.run(Phase::Analyse);
  mumps.run(Phase::Factorise);
  mumps.invert(wanted);
  print(comm, "sparse", clock, mumps.realGlobal(3));
}

void dense(const Communicator& comm, const Interface& S) {
  BlockMatrix matrix(comm, S.unknowns);
  matrix.clear();
  S.forEntries([&](std::size_t, std::uint32_t row, std::uint32_t col, double value) {
    if (matrix.hasRow(row) && matrix.hasCol(col)) matrix.add(row, col, value);
  });
  const Clock clock(comm);
  matrix.factorise();
  matrix.invert();
  const double m = S.unknowns;
  print(comm, "dense", clock, m * m * m / 3.0);
}

}  // namespace

int main(int argc, char** argv) {
  int across = 8, side = 50;
  CLI::App app(
      "Factorises the matrix between K x K domains of S x S points each, and computes of its "
      "inverse what variances need: seconds, processor seconds of all processes, and 10^9 "
      "operations of the factorisation.");
  app.add_option("--across", across, "domains along each axis")->capture_default_str();
  app.add_option("--side", side, "points of a domain along each axis")->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  MPI_Init(nullptr, nullptr);
  {
    const Communicator comm(MPI_COMM_WORLD);
    const Interface S(across, side);
    if (comm.first()) {
      std::printf("%d domains, %u unknowns between them, squares %.3f of all; %d processes\n",
                  across * across, S.unknowns, S.share(), comm.size());
      std::printf("%-7s %9s %9s %9s\n", "", "wall", "processor", "Gop");
    }
    sparse(comm, S);
    dense(comm, S);
  }
  MPI_Finalize();
  return 0;
}
