#include "examples/ceres_covariance/zeph_covariance.h"

#include <ceres/ceres.h>
#include <gtest/gtest.h>

#include <Eigen/Dense>
#include <cmath>
#include <set>

#include "examples/ceres_covariance/problems.h"

namespace {

using zeph_ceres::TestProblem;
using Matrix = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
using Pair = std::pair<const double*, const double*>;

Matrix blockOf(const auto& covariance, const ceres::Problem& problem, const Pair& pair,
               bool tangent) {
  const auto size = [&](const double* b) {
    return tangent ? problem.ParameterBlockTangentSize(b) : problem.ParameterBlockSize(b);
  };
  Matrix C = Matrix::Constant(size(pair.first), size(pair.second), NAN);
  const bool good =
      tangent ? covariance.GetCovarianceBlockInTangentSpace(pair.first, pair.second, C.data())
              : covariance.GetCovarianceBlock(pair.first, pair.second, C.data());
  EXPECT_TRUE(good);
  return C;
}

void expectClose(const Matrix& a, const Matrix& b) {
  ASSERT_EQ(a.size(), b.size());
  if (a.size() > 0) {
    EXPECT_LE((a - b).cwiseAbs().maxCoeff(), 1e-7 * b.cwiseAbs().maxCoeff());
  }
}

// Every block in both spaces and both orders, and as one matrix, with and without loss functions.
TEST(CeresCovariance, GivesTheBlocksOfCeres) {
  for (const bool graph : {true, false}) {
    const TestProblem t = graph ? zeph_ceres::poseGraph(60) : zeph_ceres::smallBundle(6, 25);
    SCOPED_TRACE(t.name);
    ceres::Problem& problem = *t.problem;
    const std::set<const double*> different = {t.wanted.back().first, t.wanted[5].first,
                                               t.wanted.back().second, t.wanted[2].first};
    const std::vector<const double*> some(different.begin(), different.end());
    for (const bool loss : {true, false}) {
      ceres::Covariance::Options theirOptions;
      theirOptions.apply_loss_function = loss;
      ceres::Covariance theirs(theirOptions);
      zeph_ceres::Covariance ours({1, loss});
      ASSERT_TRUE(theirs.Compute(t.wanted, &problem));
      ASSERT_TRUE(ours.Compute(t.wanted, &problem)) << ours.message();
      for (const auto& [a, b] : t.wanted) {
        for (const bool tangent : {true, false}) {
          expectClose(blockOf(ours, problem, {a, b}, tangent),
                      blockOf(theirs, problem, {a, b}, tangent));
          expectClose(blockOf(ours, problem, {b, a}, tangent),
                      blockOf(theirs, problem, {b, a}, tangent));
        }
      }
    }
    // All pairs of some blocks at once.
    ceres::Covariance theirs{ceres::Covariance::Options()};
    zeph_ceres::Covariance ours({0, true});
    ASSERT_TRUE(theirs.Compute(some, &problem));
    ASSERT_TRUE(ours.Compute(some, &problem)) << ours.message();
    Eigen::Index n = 0;
    for (const double* const b : some) n += problem.ParameterBlockTangentSize(b);
    Matrix together(n, n), expected(n, n);
    ASSERT_TRUE(ours.GetCovarianceMatrixInTangentSpace(some, together.data()));
    ASSERT_TRUE(theirs.GetCovarianceMatrixInTangentSpace(some, expected.data()));
    expectClose(together, expected);
  }
}

TEST(CeresCovariance, ConstantBlocksHaveNoneAndMisuseIsSaid) {
  TestProblem t = zeph_ceres::poseGraph(40);
  ceres::Problem& problem = *t.problem;
  zeph_ceres::Covariance ours({1, true});
  const Pair fixed = t.wanted[0], fixedTurn = t.wanted[1], next = t.wanted[4];
  Matrix C(4, 4);
  EXPECT_FALSE(ours.GetCovarianceBlock(next.first, next.first, C.data()));
  EXPECT_EQ(ours.message(), "Compute has to succeed before blocks can be fetched");
  const Pair mixed{next.first, fixedTurn.first};
  ASSERT_TRUE(ours.Compute({fixed, fixedTurn, next, next, mixed}, &problem)) << ours.message();
  EXPECT_EQ(blockOf(ours, problem, fixedTurn, false), Matrix::Zero(4, 4));
  EXPECT_EQ(blockOf(ours, problem, mixed, false), Matrix::Zero(4, 4));
  EXPECT_GT(blockOf(ours, problem, next, true)(0, 0), 0.0);
  EXPECT_FALSE(ours.GetCovarianceBlock(next.first, fixed.first, C.data()));
  EXPECT_EQ(ours.message(), "Compute was not asked for this pair of blocks");
  EXPECT_FALSE(ours.Compute(std::vector<Pair>{{next.first, C.data()}}, &problem));
  EXPECT_EQ(ours.message(), "a parameter block that was asked for is not in the problem");

  // Without the constant pose everything can move; and an unknown that nothing measures.
  problem.SetParameterBlockVariable(const_cast<double*>(fixed.first));
  problem.SetParameterBlockVariable(const_cast<double*>(fixedTurn.first));
  EXPECT_FALSE(ours.Compute(std::vector<Pair>{next}, &problem));
  EXPECT_EQ(ours.message().rfind("the Jacobian is rank deficient", 0), 0u) << ours.message();
  EXPECT_FALSE(ours.GetCovarianceBlock(next.first, next.first, C.data()));
  for (const double* const b : {fixed.first, fixedTurn.first}) {
    problem.SetParameterBlockConstant(b);
  }
  double lone = 1.0;
  problem.AddParameterBlock(&lone, 1);
  EXPECT_FALSE(ours.Compute(std::vector<Pair>{next}, &problem));
  EXPECT_EQ(ours.message().rfind("the Jacobian is rank deficient", 0), 0u) << ours.message();
}

}  // namespace
