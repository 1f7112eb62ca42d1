#include "matrices.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <random>
#include <utility>

#include "zeph/demo/levelling_network.h"
#include "zeph/general/protosparse.h"
#include "zeph/matrix_file.h"

namespace compare {
namespace {

using zeph_solver::MatrixElement;
using zeph_solver::ProtoSparse;

ProtoSparse grid(std::size_t side, int dimensions) {
  std::size_t n = 1;
  for (int d = 0; d < dimensions; ++d) n *= side;
  ProtoSparse A(n, n);
  for (std::size_t i = 0; i < n; ++i) {
    A.addElement(i, i, 2.0 * dimensions);
    std::size_t step = 1;
    for (int d = 0; d < dimensions; ++d, step *= side) {
      if (i / step % side + 1 == side) continue;
      A.addElement(i, i + step, -1.0);
      A.addElement(i + step, i, -1.0);
    }
  }
  return A;
}

ProtoSparse flow(std::size_t side) {
  const std::size_t n = side * side;
  ProtoSparse A(n, n);
  for (std::size_t i = 0; i < n; ++i) {
    A.addElement(i, i, 4.01);
    if (i % side > 0) A.addElement(i, i - 1, -1.3);
    if (i % side + 1 < side) A.addElement(i, i + 1, -0.7);
    if (i >= side) A.addElement(i, i - side, -1.4);
    if (i + side < n) A.addElement(i, i + side, -0.6);
  }
  return A;
}

ProtoSparse randomGeneral(std::size_t n) {
  std::mt19937 random(1);
  std::uniform_real_distribution<> uniform(-1.0, 1.0);
  ProtoSparse A(n, n);
  for (std::size_t i = 0; i < n; ++i) {
    A.addElement(i, i, 4.0);
    for (int k = 0; k < 2; ++k) A.addElement(i, random() % n, uniform(random));
  }
  return A;
}

/// Normal matrix of a bundle adjustment: points of three unknowns, each seen by five of the cameras
/// of six unknowns that stand next to one another. Random Jacobians, and a weak prior for the
/// datum.
ProtoSparse bundle(std::size_t points, std::size_t cameras) {
  constexpr std::size_t kSeen = 5, kNear = 12, kPoint = 3, kCamera = 6, kBoth = kPoint + kCamera;
  std::mt19937 random(1);
  std::normal_distribution<> normal;
  const std::size_t n = kPoint * points + kCamera * cameras;
  ProtoSparse A(n, n);
  std::vector<double> cameraBlocks(kCamera * kCamera * cameras, 0.0);
  for (std::size_t p = 0; p < points; ++p) {
    double pointBlock[kPoint * kPoint] = {};
    const std::size_t first = random() % (cameras - kNear);
    std::size_t camera = first;
    for (std::size_t seen = 0; seen < kSeen; ++seen) {
      camera += seen == 0 ? 0 : 1 + random() % 2;
      double j[2][kBoth];
      for (auto& row : j) {
        for (double& value : row) value = normal(random);
      }
      for (std::size_t r = 0; r < kBoth; ++r) {
        for (std::size_t c = 0; c < kBoth; ++c) {
          const double value = j[0][r] * j[0][c] + j[1][r] * j[1][c];
          if (r < kPoint && c < kPoint) {
            pointBlock[kPoint * r + c] += value;
          } else if (r >= kPoint && c >= kPoint) {
            cameraBlocks[kCamera * (kCamera * camera + r - kPoint) + c - kPoint] += value;
          } else {
            const auto index = [&](std::size_t i) {
              return i < kPoint ? kPoint * p + i : kPoint * points + kCamera * camera + i - kPoint;
            };
            A.addElement(index(r), index(c), value);
          }
        }
      }
    }
    for (std::size_t i = 0; i < kPoint * kPoint; ++i) {
      A.addElement(kPoint * p + i / kPoint, kPoint * p + i % kPoint,
                   pointBlock[i] + (i % (kPoint + 1) == 0 ? 1e-3 : 0.0));
    }
  }
  for (std::size_t i = 0; i < cameraBlocks.size(); ++i) {
    const std::size_t camera = i / (kCamera * kCamera), within = i % (kCamera * kCamera);
    A.addElement(kPoint * points + kCamera * camera + within / kCamera,
                 kPoint * points + kCamera * camera + within % kCamera,
                 cameraBlocks[i] + (within % (kCamera + 1) == 0 ? 1e-3 : 0.0));
  }
  return A;
}

bool isSymmetric(const ProtoSparse& A) {
  ProtoSparse sorted(A);
  sorted.compress();
  ProtoSparse transposed(sorted);
  transposed.transposeSelf();
  transposed.compress();
  return std::equal(sorted.elements.begin(), sorted.elements.end(), transposed.elements.begin(),
                    transposed.elements.end(), [](const MatrixElement& a, const MatrixElement& b) {
                      return a.row == b.row && a.col == b.col && a.value == b.value;
                    });
}

TestMatrix fromFile(const std::string& path) {
  const std::string file = path.substr(path.find_last_of('/') + 1);
  TestMatrix m{file.substr(0, file.rfind('.')),
               zeph::assemble(zeph::readSparse(path), zeph::Triangles::Both), false};
  m.symmetric = isSymmetric(m.A);
  return m;
}

}  // namespace

TestMatrix makeMatrix(const std::string& text) {
  const std::size_t colon = text.find(':');
  const std::string kind = text.substr(0, colon);
  const std::string size = colon == std::string::npos ? "" : text.substr(colon + 1);
  const std::size_t count = std::strtoul(size.c_str(), nullptr, 10);
  if (kind == "grid2d") return {"2-D grid " + size + "²", grid(count, 2), true};
  if (kind == "grid3d") return {"3-D grid " + size + "³", grid(count, 3), true};
  if (kind == "flow") return {"convection-diffusion " + size + "²", flow(count), false};
  if (kind == "random") return {"random, " + size + " rows", randomGeneral(count), false};
  if (kind == "bundle") {
    return {"bundle, " + size + " points", bundle(count, std::max<std::size_t>(20, count / 250)),
            true};
  }
  if (kind == "network") {
    return {"levelling network, " + size + " points",
            zeph::assemble(zeph::levellingNormalMatrix(zeph::makeLevellingNetwork(count, 1)),
                           zeph::Triangles::Both),
            true};
  }
  return fromFile(text);
}

double allowedDifference(const ProtoSparse& A, const double* variances) {
  ZtVector own;
  A.getDiagonal(own);
  double condition = 0.0;
  for (std::size_t i = 0; i < A.rowCount; ++i) condition += own.data[i] * variances[i];
  return std::max(1e-10, 4.0 * std::numeric_limits<double>::epsilon() * condition);
}

}  // namespace compare
