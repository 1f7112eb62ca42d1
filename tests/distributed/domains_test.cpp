// The engine of domains against zeph::Factor on one process, for matrices of every shape.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "distributed/communication.h"
#include "distributed/distributed_factor.h"
#include "distributed/domains/interface.h"
#include "tests/distributed/other_values.h"
#include "tests/sparse/symbolic/symbolic_model.h"
#include "zeph/factor.h"
#include "zeph/plan/run_plan.h"

namespace zeph::distributed {
namespace {

using korin::sparse::Columns;
using korin::sparse::Index;
using korin::sparse::Offset;
using korin::sparse::testing::kShapes;
using korin::sparse::testing::makeLower;
using std::size_t;

constexpr InterfaceMethod kMethods[] = {InterfaceMethod::Dense, InterfaceMethod::Sparse};

DistributedOptions by(InterfaceMethod method) {
  DistributedOptions options;
  options.engine = Engine::Domains;
  options.interface = method;
  return options;
}
const DistributedOptions kDomains = by(InterfaceMethod::Automatic);

// Whole on the rank of the process `only`, by chance on any where that is -1.
SparseMatrix shareOf(const SparseMatrix& A, int only, unsigned seed) {
  const Communicator comm(MPI_COMM_WORLD);
  SparseMatrix share = A;
  share.entries.clear();
  std::mt19937 chance(seed);
  for (const Entry& e : A.entries) {
    const auto drawn = static_cast<int>(chance() % static_cast<unsigned>(comm.size()));
    if ((only < 0 ? drawn : only % comm.size()) == comm.rank()) share.entries.push_back(e);
  }
  return share;
}

SparseMatrix matrixOf(const Columns& lower) {
  SparseMatrix A;
  A.rows = A.cols = static_cast<size_t>(lower.cols);
  A.symmetry = Symmetry::Symmetric;
  A.source = "A";
  for (Index j = 0; j < lower.cols; ++j) {
    for (Offset p = lower.start[j]; p < lower.start[j + 1]; ++p) {
      A.entries.push_back({static_cast<std::uint32_t>(lower.row[p]), static_cast<std::uint32_t>(j),
                           lower.value[p]});
    }
  }
  return A;
}

// Five-point Laplacian of a square, made definite.
SparseMatrix grid(std::uint32_t side) {
  SparseMatrix A;
  A.rows = A.cols = size_t{side} * side;
  A.symmetry = Symmetry::Symmetric;
  A.source = "grid";
  for (std::uint32_t i = 0; i < A.rows; ++i) {
    A.entries.push_back({i, i, 4.01});
    if (i % side > 0) A.entries.push_back({i, i - 1, -1.0 + 1e-3 * (i % 5)});
    if (i >= side) A.entries.push_back({i, i - side, -1.0});
  }
  return A;
}

void expectLikeFactor(const SparseMatrix& A, const DistributedFactor& f,
                      InterfaceMethod method = InterfaceMethod::Dense) {
  const bool none = f.report().interfaceUnknowns == 0;
  EXPECT_EQ(f.report().interface, none ? InterfaceMethod::Automatic : method);
  const Factor known(A);
  const size_t n = A.rows;
  const std::vector<double> variances = f.variances(), expected = known.variances();
  ASSERT_EQ(variances.size(), n);
  for (size_t i = 0; i < n; ++i) ASSERT_NEAR(variances[i], expected[i], 1e-12 * expected[i]);
  EXPECT_LT(f.report().identityResidual, 1e-11);
  EXPECT_LT(f.report().relativeErrorEstimate, 1e-10);
  EXPECT_NEAR(f.logDeterminant(), known.logDeterminant(),
              1e-12 * (1.0 + std::abs(known.logDeterminant())));
  EXPECT_EQ(f.determinantSign(), 1);
  std::vector<std::int64_t> rows, cols;
  for (const Entry& e : A.entries) rows.push_back(e.row), cols.push_back(e.col);
  const std::vector<double> z = f.covariance(rows, cols), model = known.covariance(rows, cols);
  for (size_t k = 0; k < z.size(); ++k) {
    const double scale = std::sqrt(expected[static_cast<size_t>(rows[k])]) *
                         std::sqrt(expected[static_cast<size_t>(cols[k])]);
    ASSERT_NEAR(z[k], model[k], 1e-12 * scale) << rows[k] << ", " << cols[k];
  }
  std::vector<double> b(n);
  for (size_t i = 0; i < n; ++i) b[i] = static_cast<double>(i % 13) - 6.0;
  const std::vector<double> x = f.solve(b), y = known.solve(b);
  const double size = std::abs(*std::max_element(
      y.begin(), y.end(), [](double p, double q) { return std::abs(p) < std::abs(q); }));
  for (size_t i = 0; i < n; ++i) ASSERT_NEAR(x[i], y[i], 1e-11 * size);
}

void expectAsPlanned(const SparseMatrix& A, const DistributedReport& r) {
  if (r.processes == 1) return;
  const CostModel model = defaultCostModel(korin::kernels::ProcessorLevel::Baseline);
  const RunPlan plan = planRun(A, {}, model, r.processes);
  ASSERT_TRUE(plan.domains.has_value());
  EXPECT_EQ(plan.domains->interfaceUnknowns, r.interfaceUnknowns);
  EXPECT_NEAR(plan.domains->balance, r.balance, 1e-9);
  EXPECT_NEAR(plan.domains->factorBytes / r.bytes, 1.0, 0.1);
}

TEST(Domains, AgreeWithOneProcessOnEveryShape) {
  std::mt19937 random(11);
  for (int round = 0; round < 60; ++round) {
    const std::string shape = kShapes[1 + random() % (kShapes.size() - 2)];
    const SparseMatrix A =
        matrixOf(makeLower(shape, 1 + static_cast<Index>(random() % 90), random));
    SCOPED_TRACE(shape + " of order " + std::to_string(A.rows) + ", round " +
                 std::to_string(round));
    const int only = round % 3 - 1;
    for (const InterfaceMethod method : kMethods) {
      SCOPED_TRACE(name(method));
      const SparseMatrix share = shareOf(A, only, unsigned(round));
      DistributedFactor f(MPI_COMM_WORLD, share, by(method));
      const std::vector<double> b(A.rows, 1.0), x = f.solve(b);
      const double doubt = f.report().lastErrorEstimate;
      expectLikeFactor(A, f, method);
      // Other values, of ordinary or of extreme units, and then the first ones again.
      const std::vector<double> variances = f.variances();
      const int size = round % 2 == 0 ? 2 : 320;
      f.refactorise(valuesOf(scaled(share, size)));
      expectLikeFactor(scaled(A, size), f, method);
      f.refactorise(valuesOf(share));
      if (method == InterfaceMethod::Sparse) continue;
      EXPECT_EQ(f.solve(b), x);
      EXPECT_EQ(f.report().lastErrorEstimate, doubt);
      EXPECT_EQ(f.variances(), variances);
    }
  }
}

TEST(Domains, GiveTheSameBitsForEveryDivisionAndNumberOfThreads) {
  const Communicator comm(MPI_COMM_WORLD);
  const SparseMatrix A = grid(90);
  std::vector<double> variances, x;
  const std::vector<double> b(A.rows, 1.0);
  for (const int threads : {1, 3}) {
    DistributedOptions options = kDomains;
    options.threads = threads;
    const DistributedFactor f(MPI_COMM_WORLD, shareOf(A, threads - 2, 1), options);
    if (threads == 1) {
      expectLikeFactor(A, f);
      variances = f.variances();
      x = f.solve(b);
      const DistributedReport r = f.report();
      EXPECT_EQ(r.engine, Engine::Domains);
      EXPECT_EQ(r.interfaceUnknowns > 0, comm.size() > 1);
      EXPECT_LT(r.interfaceUnknowns, 90 * comm.size());
      EXPECT_GE(r.balance, 1.0);
      EXPECT_LT(r.balance, 1.5);
      expectAsPlanned(A, r);
    } else {
      EXPECT_EQ(variances, f.variances());
      EXPECT_EQ(x, f.solve(b));
    }
  }
}

TEST(Domains, AreCutAnewWhereUnknownsAreUnlikeWork) {
  // A cube of nodes with three unknowns each, and as long a path behind it.
  SparseMatrix A;
  const std::uint32_t side = 14, nodes = side * side * side;
  A.rows = A.cols = size_t{6} * nodes;
  A.symmetry = Symmetry::Symmetric;
  A.source = "cube and path";
  for (std::uint32_t i = 0; i < A.rows; ++i) {
    A.entries.push_back({i, i, 30.0});
    if (i >= 3 * nodes) {
      A.entries.push_back({i, i - 1, -1.0});
      continue;
    }
    std::vector<std::uint32_t> others{i / 3};
    for (std::uint32_t step = 1; step < nodes; step *= side) {
      if (i / 3 / step % side > 0) others.push_back(i / 3 - step);
    }
    for (const std::uint32_t other : others) {
      for (std::uint32_t k = 3 * other; k < std::min(i, 3 * other + 3); ++k) {
        A.entries.push_back({i, k, -1.0});
      }
    }
  }
  const DistributedFactor f(MPI_COMM_WORLD, shareOf(A, -1, 5), kDomains);
  expectLikeFactor(A, f);
  expectAsPlanned(A, f.report());
  expectLikeFactor(A, {MPI_COMM_WORLD, shareOf(A, -1, 5), by(InterfaceMethod::Sparse)},
                   InterfaceMethod::Sparse);
  // On two processes one had nearly all of the work at first.
  const Communicator comm(MPI_COMM_WORLD);
  EXPECT_LT(f.report().balance, comm.size() == 2 ? 1.3 : 2.0);
}

TEST(Domains, RefuseOnAllProcessesAlike) {
  const auto kindOf = [](const SparseMatrix& A, const DistributedOptions& options) {
    try {
      DistributedFactor(MPI_COMM_WORLD, shareOf(A, -1, 3), options).variances();
    } catch (const Error& e) {
      return std::string(e.what());
    }
    return std::string();
  };
  // Indefinite by one entry far from or in the interface, singular, too large.
  int inInterface = 0;
  for (std::uint32_t row = 0; row < 81; row += 2) {
    SparseMatrix A = grid(9);
    for (Entry& e : A.entries) {
      if (e.row == row && e.col == row) e.value = 1e-3;
    }
    for (const InterfaceMethod method : kMethods) {
      const std::string said = kindOf(A, by(method));
      EXPECT_NE(said.find("not positive definite"), std::string::npos) << row << " " << said;
      if (said.find("of its pivots") != std::string::npos) ++inInterface;
    }
  }
  EXPECT_EQ(inInterface > 0, Communicator(MPI_COMM_WORLD).size() > 1);
  SparseMatrix floating = grid(30);
  std::vector<double> sum(floating.rows, 0.0);
  for (const Entry& e : floating.entries) {
    if (e.row != e.col) sum[e.row] -= e.value, sum[e.col] -= e.value;
  }
  for (Entry& e : floating.entries) {
    if (e.row == e.col) e.value = sum[e.row];
  }
  // What nothing holds fixed, or next to nothing, and what holds well enough.
  for (const InterfaceMethod method : kMethods) {
    for (const double held : {0.0, 1e-14, 1e-3}) {
      SparseMatrix A = floating;
      A.entries.push_back({450, 450, held});
      const std::string said = kindOf(A, by(method));
      EXPECT_EQ(said.empty(), held > 1e-10) << said;
      EXPECT_TRUE(said.empty() || said.find("singular") != std::string::npos ||
                  (held == 0.0 && said.find("not positive definite") != std::string::npos))
          << said;
      if (held != 1e-14) continue;
      const auto factor = [&] {
        return DistributedFactor(MPI_COMM_WORLD, shareOf(A, -1, 3), by(method));
      };
      EXPECT_THROW(factor().solve(std::vector<double>(A.rows, 1.0)), Error);
      EXPECT_THROW(factor().covariance({0}, {0}), Error);
    }
  }
  DistributedOptions small = kDomains;
  small.memoryLimit = 1e7;  // room for a factor of some hundred kilobytes
  EXPECT_EQ(kindOf(grid(30), small), "");
  small.memoryLimit = 1e4;
  EXPECT_NE(kindOf(grid(30), small).find("more than the limit of"), std::string::npos);
}

TEST(Domains, TakeASparseInterfaceWhereItIsLargeAndEmptyOrNothingElseFits) {
  const Communicator comm(MPI_COMM_WORLD);
  const struct {
    std::int32_t unknowns, boundary;  // of the process with rank 0, the only one with a boundary
    double limit;
    InterfaceMethod method;
  } cases[] = {{20000, 90, 0.0, InterfaceMethod::Sparse}, {19999, 0, 0.0, InterfaceMethod::Dense},
               {8000, 90, 1e8, InterfaceMethod::Sparse},  {8000, 90, 2e9, InterfaceMethod::Dense},
               {200, 90, 1e4, InterfaceMethod::Dense},    {0, 0, 1e-3, InterfaceMethod::Dense}};
  EXPECT_TRUE(isLargeAndSparse(30000, 0.08 * 9e8));
  EXPECT_FALSE(isLargeAndSparse(30000, 0.09 * 9e8));
  EXPECT_FALSE(isLargeAndSparse(19999, 0.0));
  for (const auto& c : cases) {
    Partition partition;
    std::vector<std::int32_t> boundary;
    std::vector<InterfaceEntry> chain;
    for (std::int32_t i = 0; i < c.unknowns; ++i) {
      partition.interfaceUnknowns.push_back(i);
      if (comm.first()) chain.push_back({i, i, 3.0});
      if (comm.first() && i + 1 < c.unknowns) chain.push_back({i + 1, i, -1.0});
      if (comm.first() && i < c.boundary) boundary.push_back(i);
    }
    DistributedOptions options = kDomains;
    options.memoryLimit = c.limit;
    const Assembled A;
    const auto made = makeInterface({comm, A, partition, options}, boundary, chain, 0.0);
    EXPECT_EQ(made->method(), c.method) << c.unknowns << " " << c.boundary << " " << c.limit;
  }
}

TEST(Domains, ScaleExtremeUnitsAndRefuseEntriesOffThePattern) {
  SparseMatrix A = grid(20);
  for (Entry& e : A.entries) {
    e.value = std::ldexp(e.value, (e.row % 2 == 0 ? 300 : -310) + (e.col % 2 == 0 ? 300 : -310));
  }
  const Factor known(A);
  for (const InterfaceMethod method : kMethods) {
    const DistributedFactor f(MPI_COMM_WORLD, shareOf(A, -1, 3), by(method));
    const std::vector<double> variances = f.variances(), expected = known.variances();
    for (size_t i = 0; i < A.rows; ++i) EXPECT_NEAR(variances[i] / expected[i], 1.0, 1e-12);
    EXPECT_NEAR(f.logDeterminant() / known.logDeterminant(), 1.0, 1e-12);
    EXPECT_THROW(f.covariance({0}, {399}), Error);
  }
}

}  // namespace
}  // namespace zeph::distributed
