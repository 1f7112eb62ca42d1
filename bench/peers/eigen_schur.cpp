#include "eigen_schur.h"

#include <Eigen/Cholesky>
#include <Eigen/LU>
#include <Eigen/Sparse>
#include <Eigen/SparseCholesky>
#include <algorithm>
#include <cstdint>

namespace compare {
namespace {

using std::size_t;
constexpr Eigen::Index kSize = bundle::kCameraUnknowns;
using CameraBlock = Eigen::Matrix<double, kSize, kSize, Eigen::RowMajor>;
using CrossBlock = Eigen::Matrix<double, bundle::kPointUnknowns, kSize, Eigen::RowMajor>;
using PointBlock = Eigen::Matrix<double, bundle::kPointUnknowns, bundle::kPointUnknowns>;

// Columns of L⁻¹ that are solved for at once.
constexpr Eigen::Index kPanel = 256;

/// The observations of each point, by ascending camera.
std::vector<std::vector<std::uint32_t>> byPoint(
    const bundle::NormalSystem& system, const std::vector<bundle::Observation>& observations) {
  std::vector<std::vector<std::uint32_t>> of(system.V().size());
  for (std::uint32_t o = 0; o < observations.size(); ++o) of[observations[o].point].push_back(o);
  for (auto& list : of) {
    std::sort(list.begin(), list.end(), [&](std::uint32_t a, std::uint32_t b) {
      return observations[a].camera < observations[b].camera;
    });
  }
  return of;
}

/// subtract(a, b, block) for every point and pair of cameras a >= b that see it.
template <class Subtract>
void eliminatePoints(const bundle::NormalSystem& system,
                     const std::vector<bundle::Observation>& observations,
                     const Subtract& subtract) {
  const auto of = byPoint(system, observations);
  for (size_t p = 0; p < of.size(); ++p) {
    const PointBlock inverse = Eigen::Map<const PointBlock>(system.V()[p].data()).inverse();
    for (size_t j = 0; j < of[p].size(); ++j) {
      const CrossBlock weighted =
          inverse * Eigen::Map<const CrossBlock>(system.Q()[of[p][j]].data());
      for (size_t i = j; i < of[p].size(); ++i) {
        const Eigen::Map<const CrossBlock> other(system.Q()[of[p][i]].data());
        subtract(observations[of[p][i]].camera, observations[of[p][j]].camera,
                 CameraBlock(other.transpose() * weighted));
      }
    }
  }
}

Eigen::SparseMatrix<double> sparseComplement(const bundle::NormalSystem& system,
                                             const std::vector<bundle::Observation>& observations) {
  const auto cameras = static_cast<Eigen::Index>(system.U().size());
  // Blocks of a camera's column, by row camera: found through a table of places.
  std::vector<std::vector<std::pair<std::uint32_t, CameraBlock>>> column(system.U().size());
  for (std::uint32_t c = 0; c < system.U().size(); ++c) {
    column[c].emplace_back(c, Eigen::Map<const CameraBlock>(system.U()[c].data()));
  }
  eliminatePoints(system, observations,
                  [&](std::uint32_t a, std::uint32_t b, const CameraBlock& block) {
                    for (auto& [row, sum] : column[b]) {
                      if (row != a) continue;
                      sum -= block;
                      return;
                    }
                    column[b].emplace_back(a, -block);
                  });
  Eigen::SparseMatrix<double> S(kSize * cameras, kSize * cameras);
  Eigen::VectorXi count(S.cols());
  for (Eigen::Index c = 0; c < S.cols(); ++c) {
    count[c] = static_cast<int>(kSize * static_cast<Eigen::Index>(column[c / kSize].size()));
  }
  S.reserve(count);
  for (size_t c = 0; c < column.size(); ++c) {
    std::sort(column[c].begin(), column[c].end(),
              [](const auto& x, const auto& y) { return x.first < y.first; });
    for (Eigen::Index j = 0; j < kSize; ++j) {
      for (const auto& [row, sum] : column[c]) {
        for (Eigen::Index i = 0; i < kSize; ++i) {
          S.insert(kSize * row + i, kSize * static_cast<Eigen::Index>(c) + j) = sum(i, j);
        }
      }
    }
  }
  S.makeCompressed();
  return S;
}

}  // namespace

SchurTimes eigenDenseSchur(const bundle::NormalSystem& system,
                           const std::vector<bundle::Observation>& observations, double* blocks) {
  const Eigen::Index n = kSize * static_cast<Eigen::Index>(system.U().size());
  SchurTimes times;
  Eigen::MatrixXd S;
  times.complement = processorSeconds([&] {
    S = Eigen::MatrixXd::Zero(n, n);
    for (Eigen::Index c = 0; c < n / kSize; ++c) {
      S.block<kSize, kSize>(kSize * c, kSize * c) =
          Eigen::Map<const CameraBlock>(system.U()[static_cast<size_t>(c)].data());
    }
    eliminatePoints(system, observations,
                    [&](std::uint32_t a, std::uint32_t b, const CameraBlock& block) {
                      S.block<kSize, kSize>(kSize * a, kSize * b) -= block;
                    });
  });
  times.factor = processorSeconds([&] {
    const Eigen::LLT<Eigen::Ref<Eigen::MatrixXd>> llt(S);
    times.completed = llt.info() == Eigen::Success;
  });
  times.inverse = processorSeconds([&] {
    // Columns first .. first + width of L⁻¹ begin at row `first`: the square root of what
    // solving for all rows would cost. Each camera's block sums over the rows from its own on.
    Eigen::MatrixXd X;
    for (Eigen::Index first = 0; first < n; first += kSize * (kPanel / kSize)) {
      const Eigen::Index width = std::min(kSize * (kPanel / kSize), n - first);
      X = Eigen::MatrixXd::Identity(n - first, width);
      S.bottomRightCorner(n - first, n - first).triangularView<Eigen::Lower>().solveInPlace(X);
      for (Eigen::Index c = 0; c < width; c += kSize) {
        const auto columns = X.middleCols<kSize>(c);
        Eigen::Map<CameraBlock>(blocks + (first + c) * kSize).noalias() =
            columns.transpose() * columns;
      }
    }
  });
  return times;
}

SchurTimes eigenSparseSchur(const bundle::NormalSystem& system,
                            const std::vector<bundle::Observation>& observations, double* blocks) {
  SchurTimes times;
  Eigen::SparseMatrix<double> S;
  times.complement = processorSeconds([&] { S = sparseComplement(system, observations); });
  Eigen::SimplicialLLT<Eigen::SparseMatrix<double>, Eigen::Lower, Eigen::AMDOrdering<int>> llt;
  times.factor = processorSeconds([&] {
    llt.compute(S);
    times.completed = llt.info() == Eigen::Success;
  });
  if (!times.completed) return times;
  times.inverse = processorSeconds([&] {
    const Eigen::Index n = S.rows();
    Eigen::MatrixXd X(n, kSize);
    for (Eigen::Index first = 0; first < n; first += kSize) {
      X.setZero();
      for (Eigen::Index k = 0; k < kSize; ++k) {
        X(llt.permutationP().indices()[first + k], k) = 1.0;
      }
      llt.matrixL().solveInPlace(X);
      Eigen::Map<CameraBlock>(blocks + first * kSize).noalias() = X.transpose() * X;
    }
  });
  return times;
}

}  // namespace compare
