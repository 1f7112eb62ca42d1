// Covariances of cameras the usual way: points eliminated by hand, the cameras' Schur complement
// factorised, its triangle inverted.
#ifndef ZEPH_BENCH_PEERS_EIGEN_SCHUR_H
#define ZEPH_BENCH_PEERS_EIGEN_SCHUR_H

#include <cstddef>
#include <ctime>
#include <vector>

#include "examples/bundle_adjustment/normal_system.h"

namespace compare {

/// Seconds of processor time that `work` takes: all contestants stay on one thread, and the largest
/// bundles take too long to wait for a quiet machine.
template <class Work>
double processorSeconds(Work&& work) {
  const std::clock_t start = std::clock();
  work();
  return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

struct SchurTimes {
  bool completed = false;
  double complement = 0.0;  ///< U - Qᵀ V⁻¹ Q, points of each camera pair summed
  double factor = 0.0;      ///< with the order of elimination where it is sparse
  double inverse = 0.0;     ///< L⁻¹, and from it the cameras' blocks
  double total() const { return complement + factor + inverse; }
};

/// The 9 x 9 blocks of all cameras, one after the other. For systems whose datum fixes no unknown.
///
/// Dense: the complement as a full matrix, Eigen::LLT in place, L⁻¹ by blocks of columns of which
/// only what lies below the diagonal is solved for. Sparse: Eigen::SimplicialLLT in AMD's order,
/// columns of L⁻¹ nine at a time.
SchurTimes eigenDenseSchur(const bundle::NormalSystem& system,
                           const std::vector<bundle::Observation>& observations, double* blocks);
SchurTimes eigenSparseSchur(const bundle::NormalSystem& system,
                            const std::vector<bundle::Observation>& observations, double* blocks);

}  // namespace compare

#endif
