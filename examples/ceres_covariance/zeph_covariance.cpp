#include "zeph_covariance.h"

#include <ceres/crs_matrix.h>
#include <ceres/manifold.h>
#include <zeph/error.h>
#include <zeph/factor.h>

#include <cstdint>
#include <exception>
#include <limits>

namespace zeph_ceres {
namespace {

using std::size_t;

/// C = A B for A of rows x inner and B of inner x cols, row after row; B transposed where it says.
std::vector<double> product(const std::vector<double>& A, const std::vector<double>& B, size_t rows,
                            size_t inner, size_t cols, bool transposed) {
  std::vector<double> C(rows * cols, 0.0);
  for (size_t i = 0; i < rows; ++i) {
    for (size_t k = 0; k < inner; ++k) {
      for (size_t j = 0; j < cols; ++j) {
        C[i * cols + j] += A[i * inner + k] * (transposed ? B[j * inner + k] : B[k * cols + j]);
      }
    }
  }
  return C;
}

zeph::SparseMatrix compressedRows(const ceres::CRSMatrix& J) {
  zeph::SparseMatrix A;
  A.source = "the Jacobian";
  A.rows = static_cast<size_t>(J.num_rows);
  A.cols = static_cast<size_t>(J.num_cols);
  A.entries.reserve(J.values.size());
  for (int r = 0; r < J.num_rows; ++r) {
    for (auto k = static_cast<size_t>(J.rows[r]); k < static_cast<size_t>(J.rows[r + 1]); ++k) {
      A.entries.push_back(
          {static_cast<std::uint32_t>(r), static_cast<std::uint32_t>(J.cols[k]), J.values[k]});
    }
  }
  return A;
}

}  // namespace

bool Covariance::fail(const std::string& sentence) const {
  message_ = sentence;
  return false;
}

bool Covariance::Compute(const std::vector<Pair>& covariance_blocks, ceres::Problem* problem) {
  good_ = false;
  message_.clear();
  blocks_.clear();
  computed_.clear();
  if (problem == nullptr) return fail("there is no problem");
  try {
    good_ = compute(covariance_blocks, *problem);
  } catch (const zeph::Error& e) {
    const bool deficient =
        e.kind() == zeph::ErrorKind::Singular || e.kind() == zeph::ErrorKind::NotPositiveDefinite;
    return fail(deficient ? std::string("the Jacobian is rank deficient, or too nearly so for its "
                                        "normal matrix: ") +
                                e.what()
                          : e.what());
  } catch (const std::exception& e) {
    return fail(e.what());
  }
  return good_;
}

bool Covariance::Compute(const std::vector<const double*>& parameter_blocks,
                         ceres::Problem* problem) {
  std::vector<Pair> pairs;
  for (size_t i = 0; i < parameter_blocks.size(); ++i) {
    for (size_t j = i; j < parameter_blocks.size(); ++j) {
      pairs.emplace_back(parameter_blocks[i], parameter_blocks[j]);
    }
  }
  return Compute(pairs, problem);
}

bool Covariance::compute(const std::vector<Pair>& pairs, ceres::Problem& problem) {
  if (!addBlocks(pairs, problem)) return false;
  // All that is not constant: what else the residuals determine takes its part of the variances.
  std::vector<double*> all;
  problem.GetParameterBlocks(&all);
  ceres::Problem::EvaluateOptions evaluation;
  evaluation.apply_loss_function = options_.apply_loss_function;
  evaluation.num_threads = options_.num_threads > 0 ? options_.num_threads : 1;
  int columns = 0;
  for (double* const values : all) {
    if (problem.IsParameterBlockConstant(values)) continue;
    const auto found = blocks_.find(values);
    if (found != blocks_.end()) found->second.first = columns;
    columns += problem.ParameterBlockTangentSize(values);
    evaluation.parameter_blocks.push_back(values);
  }
  std::vector<std::int64_t> rows, cols;
  const auto forEachEntry = [&](const auto& visit) {
    for (auto& [pair, block] : computed_) {
      const Block& a = blocks_[pair.first];
      const Block& b = blocks_[pair.second];
      if (a.first < 0 || b.first < 0) continue;  // stays zero
      for (int i = 0; i < a.tangentSize; ++i) {
        for (int j = 0; j < b.tangentSize; ++j) {
          visit(a.first + i, b.first + j, block[static_cast<size_t>(i) * b.tangentSize + j]);
        }
      }
    }
  };
  forEachEntry([&](int row, int col, double) {
    rows.push_back(row);
    cols.push_back(col);
  });
  if (evaluation.parameter_blocks.empty()) return true;  // all is constant
  ceres::CRSMatrix J;
  if (!problem.Evaluate(evaluation, nullptr, nullptr, nullptr, &J)) {
    return fail("the problem cannot be evaluated where its parameter blocks stand");
  }
  if (J.num_cols != columns) return fail("the Jacobian does not have a column for every freedom");
  const zeph::SparseMatrix A = compressedRows(J);
  zeph::Options solver;
  solver.route = zeph::Route::Cholesky;
  solver.threads = options_.num_threads;
  const zeph::Factor factor(zeph::normalEquations(A, std::vector<double>(A.rows, 1.0)), solver);
  const std::vector<double> z = factor.covariance(rows, cols);
  auto next = z.begin();
  forEachEntry([&](int, int, double& value) { value = *next++; });
  return true;
}

bool Covariance::addBlocks(const std::vector<Pair>& pairs, const ceres::Problem& problem) {
  for (const Pair& pair : pairs) {
    for (const double* const values : {pair.first, pair.second}) {
      if (blocks_.count(values) > 0) continue;
      if (!problem.HasParameterBlock(values)) {
        return fail("a parameter block that was asked for is not in the problem");
      }
      Block block;
      block.size = problem.ParameterBlockSize(values);
      block.tangentSize = problem.ParameterBlockTangentSize(values);
      const ceres::Manifold* const manifold = problem.GetManifold(values);
      if (manifold != nullptr) {
        block.lifted.resize(static_cast<size_t>(block.size) * block.tangentSize);
        // What an empty vector points to may be null.
        double none = 0.0;
        double* const to = block.lifted.empty() ? &none : block.lifted.data();
        if (!manifold->PlusJacobian(values, to)) {
          return fail("the manifold of a parameter block has no derivative where it stands");
        }
      }
      blocks_.emplace(values, std::move(block));
    }
    if (computed_.count({pair.second, pair.first}) > 0) continue;
    const size_t entries = static_cast<size_t>(blocks_[pair.first].tangentSize) *
                           static_cast<size_t>(blocks_[pair.second].tangentSize);
    computed_.emplace(pair, std::vector<double>(entries, 0.0));
  }
  return true;
}

int Covariance::sizeOf(const double* block, bool lift) const {
  const auto found = blocks_.find(block);
  if (found == blocks_.end()) return 0;
  return lift ? found->second.size : found->second.tangentSize;
}

bool Covariance::get(const double* block1, const double* block2, bool lift, double* covariance,
                     size_t stride) const {
  if (!good_) return fail("Compute has to succeed before blocks can be fetched");
  auto found = computed_.find({block1, block2});
  const bool mirrored = found == computed_.end();
  if (mirrored) found = computed_.find({block2, block1});
  if (found == computed_.end()) return fail("Compute was not asked for this pair of blocks");
  const Block& a = blocks_.at(found->first.first);
  const Block& b = blocks_.at(found->first.second);
  auto rows = static_cast<size_t>(a.tangentSize), cols = static_cast<size_t>(b.tangentSize);
  std::vector<double> C = found->second;
  if (lift && !a.lifted.empty()) {
    C = product(a.lifted, C, static_cast<size_t>(a.size), rows, cols, false);
  }
  if (lift) rows = static_cast<size_t>(a.size);
  if (lift && !b.lifted.empty()) {
    C = product(C, b.lifted, rows, cols, static_cast<size_t>(b.size), true);
  }
  if (lift) cols = static_cast<size_t>(b.size);
  C.resize(rows * cols, 0.0);  // without a freedom nothing was multiplied
  for (size_t i = 0; i < rows; ++i) {
    for (size_t j = 0; j < cols; ++j) {
      covariance[mirrored ? j * stride + i : i * stride + j] = C[i * cols + j];
    }
  }
  return true;
}

bool Covariance::GetCovarianceBlock(const double* block1, const double* block2,
                                    double* covariance) const {
  return get(block1, block2, true, covariance, static_cast<size_t>(sizeOf(block2, true)));
}

bool Covariance::GetCovarianceBlockInTangentSpace(const double* block1, const double* block2,
                                                  double* covariance) const {
  return get(block1, block2, false, covariance, static_cast<size_t>(sizeOf(block2, false)));
}

bool Covariance::getMatrix(const std::vector<const double*>& blocks, bool lift,
                           double* covariance) const {
  std::vector<size_t> first{0};
  for (const double* const b : blocks) {
    first.push_back(first.back() + static_cast<size_t>(sizeOf(b, lift)));
  }
  for (size_t i = 0; i < blocks.size(); ++i) {
    for (size_t j = 0; j < blocks.size(); ++j) {
      double* const to = covariance + first[i] * first.back() + first[j];
      if (!get(blocks[i], blocks[j], lift, to, first.back())) return false;
    }
  }
  return true;
}

bool Covariance::GetCovarianceMatrix(const std::vector<const double*>& blocks,
                                     double* covariance) const {
  return getMatrix(blocks, true, covariance);
}

bool Covariance::GetCovarianceMatrixInTangentSpace(const std::vector<const double*>& blocks,
                                                   double* covariance) const {
  return getMatrix(blocks, false, covariance);
}

}  // namespace zeph_ceres
