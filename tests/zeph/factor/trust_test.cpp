#include "tests/zeph/factor/dense_truth.h"
#include "tests/zeph/front_test.h"
#include "tests/zeph/matrices.h"
#include "zeph/factor.h"
#include "zeph/factor/lu_backend.h"
#include "zeph/matrix/multiply.h"
#include "zeph/matrix_file.h"

namespace zeph {
namespace {

constexpr double kEps = std::numeric_limits<double>::epsilon();

// Rounding errors of a variance may cancel by chance. What they do to a matrix shows in several
// orders of elimination: the largest error of all of them, and each with its residual and estimate.
struct Measured {
  double largest = 0.0;
  std::vector<double> error, residual, estimate;
};

Measured measure(const SparseMatrix& A, std::mt19937& random) {
  const DenseTruth truth(A);
  Measured m;
  Options o;
  for (int round = 0; round < 6; ++round) {
    const Factor f(A, o);
    const std::vector<double> d = f.variances();
    double worst = 0.0;
    for (std::size_t i = 0; i < d.size(); ++i) {
      worst = std::max(worst, static_cast<double>(std::fabs(d[i] / truth(i, i) - 1.0L)));
    }
    m.largest = std::max(m.largest, worst);
    m.error.push_back(worst);
    m.residual.push_back(f.report().identityResidual);
    m.estimate.push_back(f.report().relativeErrorEstimate);
    EXPECT_EQ(f.selectedInverse().rows, A.rows);  // refused where variances are
    o.ordering = Ordering::Given;
    o.permutation.resize(A.rows);
    std::iota(o.permutation.begin(), o.permutation.end(), 0);
    std::shuffle(o.permutation.begin(), o.permutation.end(), random);
  }
  return m;
}

class TrustTest : public FrontTest {
 protected:
  double power(double decades) { return std::pow(10.0, decades * uniform(-0.5, 0.5)); }

  // Differences along edges with weights over so many decades, one point held by `held`.
  SparseMatrix network(unsigned n, unsigned shape, double decades, double held) {
    SparseMatrix A = squareMatrix(n, Symmetry::Symmetric);
    const auto side = static_cast<unsigned>(std::sqrt(n));
    const auto join = [&](unsigned i, unsigned j) {
      const double w = power(decades);
      A.entries.insert(A.entries.end(), {{i, i, w}, {j, j, w}, {i, j, -w}});
    };
    for (unsigned i = 1; i < n; ++i) {
      switch (shape) {
        case 0:  // a path
          join(i, i - 1);
          break;
        case 1:  // a grid
          if (i % side != 0) join(i, i - 1);
          if (i >= side) join(i, i - side);
          break;
        case 2:  // a tree with a few loops
          join(i, below(i));
          if (below(4) == 0) join(i, below(i));
          break;
        default:  // dense blocks in a row
          for (unsigned j = i / 12 * 12; j < i; ++j) join(i, j);
          if (i % 12 == 0) join(i, i - 1);
      }
    }
    const unsigned point = below(n);
    A.entries.push_back({point, point, held});
    return A;
  }

  // Hilbert matrices of that order, chained by weak entries.
  static SparseMatrix hilbert(unsigned order, unsigned blocks) {
    return symmetricMatrix(order * blocks, [order](unsigned i, unsigned j) {
      if (i / order == j / order) return 1.0 / (i % order + j % order + 1);
      return i == j + 1 ? 1e-14 : 0.0;
    });
  }
};

TEST_F(TrustTest, estimateIsNeverBelowTheErrorNorHundredTimesAbove) {
  double least = HUGE_VAL, most = 0.0, lowest = HUGE_VAL, highest = 0.0;
  int hard = 0;
  const auto look = [&](const SparseMatrix& A, const std::string& what) {
    Measured m;
    try {
      m = measure(A, random_);
    } catch (const Error& e) {
      EXPECT_TRUE(e.kind() == ErrorKind::Singular || !hasLuRoute()) << what << ": " << e.what();
      EXPECT_THROW(Factor(A).selectedInverse(), Error) << what;
      return;
    }
    for (std::size_t k = 0; k < m.error.size(); ++k) {
      EXPECT_GE(m.estimate[k], m.error[k]) << what;
      EXPECT_LE(m.estimate[k], (m.largest > 1e-14 ? 100.0 : 300.0) * std::max(m.largest, kEps))
          << what;
      if (m.error[k] < 1e-14) continue;
      ++hard;
      least = std::min(least, m.residual[k] / m.error[k]);
      most = std::max(most, m.residual[k] / m.largest);
      lowest = std::min(lowest, m.error[k]);
      highest = std::max(highest, m.error[k]);
    }
  };
  for (unsigned round = 0; round < 300; ++round) {
    const unsigned n = 2 + below(round % 40 == 0 ? 500 : 120);
    const double decades = round % 5 * 2.0, held = power(2.0 * (round % 8) + 1.0);
    look(network(n, round % 4, decades, held), "network " + std::to_string(round));
  }
  for (unsigned order = 2; order < 14; ++order) {
    for (unsigned blocks : {1u, 2u, 7u, 20u})
      look(hilbert(order, blocks), "Hilbert " + std::to_string(order));
  }
  std::printf(
      "%d factors of hard matrices, errors %.1e to %.1e: residual / error from %.2g to %.2g\n",
      hard, lowest, highest, least, most);
  EXPECT_GT(hard, 100);
  EXPECT_GT(highest, 1e-6);
}

// Right sides of each block are improved where the factor alone leaves a large backward error.
TEST_F(TrustTest, solutionsAreRefined) {
  for (unsigned round = 0; round < 60; ++round) {
    const unsigned n = 30 + below(200), count = 1 + below(3);
    const SparseMatrix A = network(n, round % 4, 4.0, power(4.0));
    const Factor f(A);
    auto B = DenseMatrix::zeros(n, count);
    for (double& b : B.values) b = power(8.0) * (below(2) ? 1.0 : -1.0);
    if (round % 8 < 4) B = multiply(A, B);  // solutions of many sizes are the harder ones
    f.solve(B);
    EXPECT_LE(f.report().backwardError, 8.0 * kEps) << round;
  }
}

// Unknowns 0 to 3 are held well, those from 4 on are tied to each other and held by next to
// nothing.
TEST_F(TrustTest, everyResultIsWarnedOfWithAnUnknownThatIsHeldWeakly) {
  SparseMatrix A = symmetricMatrix(8, [](unsigned i, unsigned j) {
    if (i != j) return i == j + 1 && i != 4 ? -1.0 : 0.0;
    return i < 4 ? 3.0 : i == 4 ? 1.0 + 1e-10 : i < 7 ? 2.0 : 1.0;
  });
  A.source = "A.mtx";
  A.indexBase = 1;
  for (const Route route : {Route::Cholesky, Route::Lu}) {
    if (route == Route::Lu && !hasLuRoute()) continue;
    Options o;
    o.route = route;
    Factor f(A, o);
    EXPECT_EQ(f.warnings().size(), 0U);
    const auto expectWarning = [&](const std::string& what, std::int64_t least = 4) {
      const Report r = f.report();
      EXPECT_GT(r.lastErrorEstimate, kDoubtfulError) << what;
      EXPECT_LT(r.lastErrorEstimate, 1e-2) << what;
      EXPECT_GE(r.worstUnknown, least) << what;
      ASSERT_EQ(f.warnings().size(), 1U) << what;
      const std::string unknown = "unknown " + std::to_string(r.worstUnknown + 1) + " of A.mtx";
      for (const std::string& word : {"relative error of " + what, unknown}) {
        EXPECT_NE(f.warnings()[0].find(word), std::string::npos) << f.warnings()[0];
      }
    };
    // The estimates of a factor before its variances, and after them.
    for (int round = 0; round < 2; ++round) {
      f.solve(std::vector<double>(8, 1.0));
      expectWarning("the solution");
      f.variances({1, 6, 2});
      expectWarning("the entries of the inverse", 6);
      f.covarianceBlock({0, 5, 1});
      expectWarning("the block of the inverse", 5);
      f.logDeterminant();
      expectWarning("the determinant");
      f.traceOfInverseTimes(A);
      expectWarning("the trace");
      if (route == Route::Cholesky) {
        f.sample(1, 1);
        expectWarning("the samples");
        f.selectedInverse();
        expectWarning("the selected inverse");
      }
      f.variances();
      expectWarning("the variances");
    }
    std::vector<double> held;
    for (const Entry& e : A.entries) held.push_back(e.row == e.col ? e.value + 1.0 : e.value);
    f.refactorise(held);
    EXPECT_EQ(f.report().worstUnknown, -1);
    f.solve(std::vector<double>(8, 1.0));
    f.traceOfInverseTimes(A);
    f.logDeterminant();
    EXPECT_EQ(f.warnings().size(), 0U);
  }
}

}  // namespace
}  // namespace zeph
