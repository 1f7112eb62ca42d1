// Covariances of a ceres::Problem, computed by zeph::Factor.
#ifndef ZEPH_EXAMPLES_CERES_COVARIANCE_ZEPH_COVARIANCE_H
#define ZEPH_EXAMPLES_CERES_COVARIANCE_ZEPH_COVARIANCE_H

#include <ceres/problem.h>

#include <cstddef>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace zeph_ceres {

/// Takes the place of ceres::Covariance:
///
///     zeph_ceres::Covariance covariance(zeph_ceres::Covariance::Options{});
///     if (!covariance.Compute(blocks, &problem)) std::cerr << covariance.message();
///     covariance.GetCovarianceBlock(x, y, xy);      // row-major, as there
///
/// Jacobian, loss functions, manifolds and constant blocks are those of the problem; blocks of the
/// whole inverse (Jᵀ J)⁻¹ at the problem's present values, which the parameter blocks have to keep
/// until the blocks are fetched. Constant parameter blocks have covariance zero. Unlike there, no
/// null space is passed over: a rank-deficient Jacobian makes Compute return false. The normal
/// matrix squares the condition: a Jacobian of condition beyond about 1e7 is refused as deficient,
/// where sparse QR may still give digits. Misuse is false with a message, never an abort.
class Covariance {
 public:
  struct Options {
    int num_threads = 1;  ///< 0: all processors
    bool apply_loss_function = true;
  };

  explicit Covariance(const Options& options) : options_(options) {}

  /// Pairs of parameter blocks, in either order; or all pairs of some blocks. False with a message
  /// where a block is not in the problem, the problem cannot be evaluated, or the Jacobian is
  /// rank deficient; then no block can be fetched.
  bool Compute(const std::vector<std::pair<const double*, const double*>>& covariance_blocks,
               ceres::Problem* problem);
  bool Compute(const std::vector<const double*>& parameter_blocks, ceres::Problem* problem);

  /// The block of a pair that Compute was asked for, in either order: rows of the first parameter
  /// block, columns of the second, row after row; of the size of the blocks themselves, or of their
  /// tangent spaces. False where there is none.
  bool GetCovarianceBlock(const double* block1, const double* block2, double* covariance) const;
  bool GetCovarianceBlockInTangentSpace(const double* block1, const double* block2,
                                        double* covariance) const;

  /// All blocks of some parameter blocks as one matrix, row after row.
  bool GetCovarianceMatrix(const std::vector<const double*>& blocks, double* covariance) const;
  bool GetCovarianceMatrixInTangentSpace(const std::vector<const double*>& blocks,
                                         double* covariance) const;

  /// Why the last call returned false.
  const std::string& message() const { return message_; }

 private:
  /// A parameter block of the problem.
  struct Block {
    int size = 0;
    int tangentSize = 0;
    int first = -1;              ///< its first column in the Jacobian; -1 where it is constant
    std::vector<double> lifted;  ///< size x tangentSize, row after row; empty without a manifold
  };
  using Pair = std::pair<const double*, const double*>;

  bool compute(const std::vector<Pair>& pairs, ceres::Problem& problem);
  bool addBlocks(const std::vector<Pair>& pairs, const ceres::Problem& problem);
  bool get(const double* block1, const double* block2, bool lift, double* covariance,
           std::size_t stride) const;
  bool getMatrix(const std::vector<const double*>& blocks, bool lift, double* covariance) const;
  int sizeOf(const double* block, bool lift) const;
  bool fail(const std::string& sentence) const;

  Options options_;
  std::map<const double*, Block> blocks_;
  std::map<Pair, std::vector<double>> computed_;  ///< in tangent space, row after row
  bool good_ = false;
  mutable std::string message_;
};

}  // namespace zeph_ceres

#endif
