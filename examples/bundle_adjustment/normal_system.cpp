#include "normal_system.h"

#include <zeph/error.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace bundle {
namespace {

using std::size_t;

constexpr std::uint32_t kLeastPoints = 5;   // for the nine parameters of a camera
constexpr std::uint32_t kLeastCameras = 2;  // for a point

zeph::Error unfit(const Problem& p, const std::string& sentence) {
  return {zeph::ErrorKind::Unfit, p.source + ": " + sentence};
}

void requireEnough(const Problem& p) {
  std::vector<std::uint32_t> ofCamera(p.cameras.size(), 0), ofPoint(p.points.size(), 0);
  for (const Observation& o : p.observations) ++ofCamera[o.camera], ++ofPoint[o.point];
  const auto require = [&](const std::vector<std::uint32_t>& counts, std::uint32_t least,
                           const std::string& what) {
    for (size_t i = 0; i < counts.size(); ++i) {
      if (counts[i] >= least) continue;
      std::string sentence = what + " " + std::to_string(i) + " has ";
      sentence += std::to_string(counts[i]) + " observations and needs ";
      throw unfit(p, sentence + std::to_string(least) + "; add some or leave it out");
    }
  };
  require(ofCamera, kLeastPoints, "camera");
  require(ofPoint, kLeastCameras, "point");
}

}  // namespace

Datum chooseDatum(const Problem& p, std::vector<Control> control) {
  Datum datum{std::move(control), 0, 0, 0};
  if (!datum.control.empty()) return datum;
  double farthest = 0.0;
  for (size_t c = 1; c < p.cameras.size(); ++c) {
    for (int k = 0; k < 3; ++k) {
      const double apart = std::fabs(p.cameras[c].centre[k] - p.cameras[0].centre[k]);
      if (apart <= farthest) continue;
      farthest = apart;
      datum.scaling = static_cast<std::uint32_t>(c);
      datum.coordinate = k;
    }
  }
  if (farthest == 0.0)
    throw unfit(p, "all cameras stand at one place, which leaves the scale open");
  return datum;
}

NormalSystem::NormalSystem(const Problem& p, const Datum& datum, double pixelSigma)
    : observations_(p.observations), datum_(datum), weight_(1.0 / (pixelSigma * pixelSigma)) {
  requireEnough(p);
  const auto isFixed = [&](size_t c, int k) {
    if (!datum_.control.empty()) return false;
    return (c == datum_.held && k < 6) || (c == datum_.scaling && k == 3 + datum_.coordinate);
  };
  for (size_t c = 0; c < p.cameras.size(); ++c) {
    for (int k = 0; k < kCameraUnknowns; ++k) {
      cameraUnknown_.push_back(isFixed(c, k) ? -1 : firstPointUnknown_++);
    }
  }
  unknowns_ = ofPoint(p.points.size(), 0);
  linearise(p);
}

double NormalSystem::cost(const Problem& p) const {
  double sum = 0.0;
  for (const Observation& o : observations_) {
    const auto at = project(p.cameras[o.camera], p.points[o.point]);
    sum += weight_ * ((at[0] - o.x) * (at[0] - o.x) + (at[1] - o.y) * (at[1] - o.y));
  }
  for (const Control& c : datum_.control) {
    for (size_t k = 0; k < 3; ++k) {
      const double e = (p.points[c.point][k] - c.at[k]) / c.sigma;
      sum += e * e;
    }
  }
  return sum;
}

void NormalSystem::linearise(const Problem& p) {
  U_.assign(p.cameras.size(), {});
  V_.assign(p.points.size(), {});
  Q_.assign(observations_.size(), {});
  cameraRight_.assign(kCameraUnknowns * p.cameras.size(), 0.0);
  pointRight_.assign(kPointUnknowns * p.points.size(), 0.0);
  for (size_t o = 0; o < observations_.size(); ++o) {
    const Observation& seen = observations_[o];
    const Image image = projectWithDerivatives(p.cameras[seen.camera], p.points[seen.point]);
    const double e[2] = {image.at[0] - seen.x, image.at[1] - seen.y};
    if (!std::isfinite(e[0] + e[1])) {
      throw unfit(p, "observation " + std::to_string(o) + ": camera " +
                         std::to_string(seen.camera) + " has no image of point " +
                         std::to_string(seen.point) + ", which lies beside it");
    }
    CameraBlock& U = U_[seen.camera];
    PointBlock& V = V_[seen.point];
    for (int r = 0; r < 2; ++r) {
      const double* const a = image.byCamera[r];
      const double* const b = image.byPoint[r];
      for (int i = 0; i < kCameraUnknowns; ++i) {
        for (int j = 0; j < kCameraUnknowns; ++j) {
          U[kCameraUnknowns * i + j] += weight_ * a[i] * a[j];
        }
        cameraRight_[kCameraUnknowns * seen.camera + i] -= weight_ * a[i] * e[r];
      }
      for (int i = 0; i < kPointUnknowns; ++i) {
        for (int j = 0; j < kPointUnknowns; ++j) {
          V[kPointUnknowns * i + j] += weight_ * b[i] * b[j];
        }
        for (int j = 0; j < kCameraUnknowns; ++j) {
          Q_[o][kCameraUnknowns * i + j] += weight_ * b[i] * a[j];
        }
        pointRight_[kPointUnknowns * seen.point + i] -= weight_ * b[i] * e[r];
      }
    }
  }
  for (const Control& c : datum_.control) {
    const double weight = 1.0 / (c.sigma * c.sigma);
    for (int k = 0; k < 3; ++k) {
      V_[c.point][kPointUnknowns * k + k] += weight;
      pointRight_[kPointUnknowns * c.point + k] -= weight * (p.points[c.point][k] - c.at[k]);
    }
  }
}

// visit(row, col, value) for the lower triangle.
template <class Visit>
void NormalSystem::forEachEntry(const Visit& visit) const {
  for (size_t c = 0; c < U_.size(); ++c) {
    for (int j = 0; j < kCameraUnknowns; ++j) {
      if (ofCamera(c, j) < 0) continue;
      for (int i = j; i < kCameraUnknowns; ++i) {
        if (ofCamera(c, i) >= 0) {
          visit(ofCamera(c, i), ofCamera(c, j), U_[c][kCameraUnknowns * i + j]);
        }
      }
    }
  }
  for (size_t o = 0; o < Q_.size(); ++o) {
    for (int j = 0; j < kCameraUnknowns; ++j) {
      const std::int64_t col = ofCamera(observations_[o].camera, j);
      for (int i = 0; col >= 0 && i < kPointUnknowns; ++i) {
        visit(ofPoint(observations_[o].point, i), col, Q_[o][kCameraUnknowns * i + j]);
      }
    }
  }
  for (size_t p = 0; p < V_.size(); ++p) {
    for (int j = 0; j < kPointUnknowns; ++j) {
      for (int i = j; i < kPointUnknowns; ++i) {
        visit(ofPoint(p, i), ofPoint(p, j), V_[p][kPointUnknowns * i + j]);
      }
    }
  }
}

zeph::SparseMatrix NormalSystem::matrix() const {
  zeph::SparseMatrix A;
  A.source = "the normal matrix";
  A.symmetry = zeph::Symmetry::Symmetric;
  A.rows = A.cols = static_cast<size_t>(unknowns_);
  A.entries.reserve(45 * U_.size() + 27 * Q_.size() + 6 * V_.size());
  forEachEntry([&](std::int64_t row, std::int64_t col, double value) {
    A.entries.push_back({static_cast<std::uint32_t>(row), static_cast<std::uint32_t>(col), value});
  });
  return A;
}

const std::vector<double>& NormalSystem::values(double damping) {
  values_.clear();
  forEachEntry([&](std::int64_t row, std::int64_t col, double value) {
    values_.push_back(row == col ? value + damping * value : value);
  });
  return values_;
}

std::vector<double> NormalSystem::right() const {
  std::vector<double> b(static_cast<size_t>(unknowns_));
  for (size_t k = 0; k < cameraRight_.size(); ++k) {
    if (cameraUnknown_[k] >= 0) b[static_cast<size_t>(cameraUnknown_[k])] = cameraRight_[k];
  }
  std::copy(pointRight_.begin(), pointRight_.end(), b.begin() + firstPointUnknown_);
  return b;
}

Problem NormalSystem::moved(Problem p, const std::vector<double>& step) const {
  for (size_t c = 0; c < p.cameras.size(); ++c) {
    double d[kCameraUnknowns];
    for (int k = 0; k < kCameraUnknowns; ++k) {
      d[k] = ofCamera(c, k) < 0 ? 0.0 : step[static_cast<size_t>(ofCamera(c, k))];
    }
    p.cameras[c] = bundle::moved(p.cameras[c], d);
  }
  for (size_t i = 0; i < p.points.size(); ++i) {
    for (int k = 0; k < 3; ++k) p.points[i][k] += step[static_cast<size_t>(ofPoint(i, k))];
  }
  return p;
}

std::int64_t NormalSystem::measurements() const {
  return static_cast<std::int64_t>(2 * observations_.size() + 3 * datum_.control.size());
}

std::string NormalSystem::nameOf(std::int64_t unknown) const {
  if (unknown >= firstPointUnknown_) {
    return "point " + std::to_string((unknown - firstPointUnknown_) / kPointUnknowns);
  }
  const auto at = std::find(cameraUnknown_.begin(), cameraUnknown_.end(), unknown);
  return "camera " + std::to_string((at - cameraUnknown_.begin()) / kCameraUnknowns);
}

}  // namespace bundle
