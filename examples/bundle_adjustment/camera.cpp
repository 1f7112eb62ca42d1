#include "camera.h"

#include <algorithm>
#include <cmath>

namespace bundle {
namespace {

Vector3 seenBy(const Camera& camera, const Vector3& point) {
  const Vector3& c = camera.centre;
  return product(camera.rotation, Vector3{point[0] - c[0], point[1] - c[1], point[2] - c[2]});
}

}  // namespace

Matrix3 product(const Matrix3& a, const Matrix3& b) {
  Matrix3 c{};
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      for (int k = 0; k < 3; ++k) c[3 * i + j] += a[3 * i + k] * b[3 * k + j];
    }
  }
  return c;
}

Vector3 product(const Matrix3& a, const Vector3& x) {
  Vector3 y{};
  for (int i = 0; i < 3; ++i) {
    for (int k = 0; k < 3; ++k) y[i] += a[3 * i + k] * x[k];
  }
  return y;
}

// Rodrigues: I + sin(t) [u] + (1 - cos(t)) [u]^2, with series where t is small.
Matrix3 rotationBy(const Vector3& v) {
  const double square = v[0] * v[0] + v[1] * v[1] + v[2] * v[2], t = std::sqrt(square);
  const bool small = t < 1e-6;
  const double s = small ? 1.0 - square / 6.0 : std::sin(t) / t;
  const double half = small ? 0.5 - square / 24.0 : (1.0 - std::cos(t)) / square;
  Matrix3 R;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) R[3 * i + j] = half * v[i] * v[j];
    R[3 * i + i] += 1.0 - half * square;
  }
  R[1] -= s * v[2], R[2] += s * v[1], R[5] -= s * v[0];
  R[3] += s * v[2], R[6] -= s * v[1], R[7] += s * v[0];
  return R;
}

// Through the quaternion, whose largest component is found without cancellation (Shepperd 1978).
Vector3 vectorOf(const Matrix3& R) {
  const double trace = R[0] + R[4] + R[8];
  const double squares[] = {1.0 + trace, 1.0 + 2.0 * R[0] - trace, 1.0 + 2.0 * R[4] - trace,
                            1.0 + 2.0 * R[8] - trace};
  const auto k = std::max_element(squares, squares + 4) - squares;
  const double largest = 0.5 * std::sqrt(squares[k]), rest = 0.25 / largest;
  double q[4] = {R[7] - R[5], R[2] - R[6], R[3] - R[1], 0.0};  // 4 w (x, y, z)
  if (k == 0) {
    q[3] = largest;
    for (int i = 0; i < 3; ++i) q[i] *= rest;
  } else {
    const auto i = k - 1, j = (i + 1) % 3, l = (i + 2) % 3;
    q[3] = rest * q[i];
    q[i] = largest;
    q[j] = rest * (R[3 * i + j] + R[3 * j + i]);
    q[l] = rest * (R[3 * i + l] + R[3 * l + i]);
  }
  const double sign = q[3] < 0.0 ? -1.0 : 1.0;
  const double sine = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2]);
  const double factor =
      sine < 1e-12 ? 2.0 * sign : 2.0 * sign * std::atan2(sine, std::fabs(q[3])) / sine;
  return {factor * q[0], factor * q[1], factor * q[2]};
}

Camera fromParameters(const std::array<double, kCameraUnknowns>& p) {
  Camera camera{rotationBy({p[0], p[1], p[2]}), {}, p[6], p[7], p[8]};
  for (int i = 0; i < 3; ++i) {
    for (int k = 0; k < 3; ++k) camera.centre[i] -= camera.rotation[3 * k + i] * p[3 + k];
  }
  return camera;
}

std::array<double, kCameraUnknowns> parametersOf(const Camera& c) {
  const Vector3 r = vectorOf(c.rotation), back = product(c.rotation, c.centre);
  return {r[0], r[1], r[2], -back[0], -back[1], -back[2], c.focal, c.k1, c.k2};
}

Camera moved(const Camera& c, const double* d) {
  return {product(rotationBy({d[0], d[1], d[2]}), c.rotation),
          {c.centre[0] + d[3], c.centre[1] + d[4], c.centre[2] + d[5]},
          c.focal + d[6],
          c.k1 + d[7],
          c.k2 + d[8]};
}

std::array<double, 2> project(const Camera& camera, const Vector3& point) {
  const Vector3 P = seenBy(camera, point);
  const double x = -P[0] / P[2], y = -P[1] / P[2], square = x * x + y * y;
  const double scale = camera.focal * (1.0 + square * (camera.k1 + square * camera.k2));
  return {scale * x, scale * y};
}

Image projectWithDerivatives(const Camera& camera, const Vector3& point) {
  const Vector3 P = seenBy(camera, point);
  const double p[2] = {-P[0] / P[2], -P[1] / P[2]};
  const double square = p[0] * p[0] + p[1] * p[1];
  const double distortion = 1.0 + square * (camera.k1 + square * camera.k2);
  const double slope = 2.0 * (camera.k1 + 2.0 * square * camera.k2);  // d distortion = slope pᵀ dp
  Image image;
  for (int i = 0; i < 2; ++i) {
    image.at[i] = camera.focal * distortion * p[i];
    double byP[3] = {0.0, 0.0, 0.0};  // by P, through dp = -(dP.xy + p dP.z) / P.z
    for (int j = 0; j < 2; ++j) {
      const double byp = camera.focal * ((i == j ? distortion : 0.0) + slope * p[i] * p[j]);
      byP[j] -= byp / P[2];
      byP[2] -= byp * p[j] / P[2];
    }
    // A turn d moves P by d x P; the point and the centre move it by R dX and -R dc.
    double* const c = image.byCamera[i];
    for (int k = 0; k < 3; ++k) {
      const int l = (k + 1) % 3, m = (k + 2) % 3;
      c[k] = byP[m] * P[l] - byP[l] * P[m];
      image.byPoint[i][k] = 0.0;
      for (int j = 0; j < 3; ++j) image.byPoint[i][k] += byP[j] * camera.rotation[3 * j + k];
      c[3 + k] = -image.byPoint[i][k];
    }
    c[6] = distortion * p[i];
    c[7] = camera.focal * square * p[i];
    c[8] = camera.focal * square * square * p[i];
  }
  return image;
}

}  // namespace bundle
