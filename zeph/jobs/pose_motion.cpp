#include "zeph/jobs/pose_motion.h"

#include <cmath>

namespace zeph {
namespace {

using std::size_t;
using Vector = std::array<double, 3>;
using Matrix = std::array<double, 9>;      // row after row
using Quaternion = std::array<double, 4>;  // x, y, z, w

constexpr double kPi = 3.14159265358979323846;
// Below this angle the series of the rotation formulas are exact to working precision.
constexpr double kSmallAngle = 1e-4;

double wrapped(double angle) {
  const double a = std::remainder(angle, 2.0 * kPi);
  return a <= -kPi ? kPi : a;
}

Quaternion quaternionOf(const Pose& p) {
  return {p[3], p[4], p[5], p[6]};
}
Vector positionOf(const Pose& p) {
  return {p[0], p[1], p[2]};
}
Quaternion conjugate(const Quaternion& q) {
  return {-q[0], -q[1], -q[2], q[3]};
}

Quaternion times(const Quaternion& a, const Quaternion& b) {
  return {a[3] * b[0] + a[0] * b[3] + a[1] * b[2] - a[2] * b[1],
          a[3] * b[1] - a[0] * b[2] + a[1] * b[3] + a[2] * b[0],
          a[3] * b[2] + a[0] * b[1] - a[1] * b[0] + a[2] * b[3],
          a[3] * b[3] - a[0] * b[0] - a[1] * b[1] - a[2] * b[2]};
}

Pose poseOf(const Vector& t, Quaternion q) {
  const double length = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
  for (double& c : q) c /= length;
  return {t[0], t[1], t[2], q[0], q[1], q[2], q[3]};
}

Quaternion exponential(const double* r) {
  const double angle = std::sqrt(r[0] * r[0] + r[1] * r[1] + r[2] * r[2]);
  const double s = angle < kSmallAngle ? 0.5 - angle * angle / 48.0 : std::sin(0.5 * angle) / angle;
  return {s * r[0], s * r[1], s * r[2], std::cos(0.5 * angle)};
}

Vector logarithm(Quaternion q) {
  if (q[3] < 0.0) q = {-q[0], -q[1], -q[2], -q[3]};  // the shorter way round
  const double sine = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2]);
  const double s = sine < kSmallAngle ? 2.0 / q[3] * (1.0 - sine * sine / (3.0 * q[3] * q[3]))
                                      : 2.0 * std::atan2(sine, q[3]) / sine;
  return {s * q[0], s * q[1], s * q[2]};
}

Matrix matrixOf(const Quaternion& q) {
  const auto [x, y, z, w] = q;
  return {1 - 2 * (y * y + z * z), 2 * (x * y - z * w),     2 * (x * z + y * w),
          2 * (x * y + z * w),     1 - 2 * (x * x + z * z), 2 * (y * z - x * w),
          2 * (x * z - y * w),     2 * (y * z + x * w),     1 - 2 * (x * x + y * y)};
}

Matrix transposed(const Matrix& a) {
  return {a[0], a[3], a[6], a[1], a[4], a[7], a[2], a[5], a[8]};
}

Matrix times(const Matrix& a, const Matrix& b) {
  Matrix c{};
  for (size_t i = 0; i < 3; ++i) {
    for (size_t j = 0; j < 3; ++j) {
      for (size_t k = 0; k < 3; ++k) c[3 * i + j] += a[3 * i + k] * b[3 * k + j];
    }
  }
  return c;
}

Vector turned(const Matrix& a, const Vector& v) {
  return {a[0] * v[0] + a[1] * v[1] + a[2] * v[2], a[3] * v[0] + a[4] * v[1] + a[5] * v[2],
          a[6] * v[0] + a[7] * v[1] + a[8] * v[2]};
}

/// [v]ₓ, so that [v]ₓ u = v x u.
Matrix cross(const Vector& v) {
  return {0.0, -v[2], v[1], v[2], 0.0, -v[0], -v[1], v[0], 0.0};
}

/// The inverse of the right Jacobian of SO(3): Log(Exp(r) Exp(δ)) = r + J⁻¹ δ + ...
Matrix inverseRightJacobian(const Vector& r) {
  const double square = r[0] * r[0] + r[1] * r[1] + r[2] * r[2], half = 0.5 * std::sqrt(square);
  const double s = 2.0 * half < kSmallAngle ? 1.0 / 12.0 + square / 720.0
                                            : (1.0 - half / std::tan(half)) / square;
  const Matrix k = cross(r), kk = times(k, k);
  Matrix j{1, 0, 0, 0, 1, 0, 0, 0, 1};
  for (size_t i = 0; i < 9; ++i) j[i] += 0.5 * k[i] + s * kk[i];
  return j;
}

/// Puts sign · a into the rows from `row` and columns from `col` of a 6 x 6 matrix.
void place(std::array<double, 36>& target, size_t row, size_t col, const Matrix& a, double sign) {
  for (size_t i = 0; i < 3; ++i) {
    for (size_t j = 0; j < 3; ++j) target[row + i + 6 * (col + j)] = sign * a[3 * i + j];
  }
}

EdgeTerms spatialTerms(const Pose& from, const Pose& to, const Pose& z) {
  const Quaternion qFrom = quaternionOf(from), qTo = quaternionOf(to), qz = quaternionOf(z);
  const Matrix Rz = transposed(matrixOf(qz)), Ri = transposed(matrixOf(qFrom));
  const Vector p = turned(Ri, {to[0] - from[0], to[1] - from[1], to[2] - from[2]});
  const Vector t = turned(Rz, {p[0] - z[0], p[1] - z[1], p[2] - z[2]});
  const Vector r = logarithm(times(conjugate(qz), times(conjugate(qFrom), qTo)));
  const Matrix between = times(Ri, matrixOf(qTo)), J = inverseRightJacobian(r);
  EdgeTerms e;
  e.residual = {t[0], t[1], t[2], r[0], r[1], r[2]};
  place(e.from, 0, 0, Rz, -1.0);
  place(e.from, 0, 3, times(Rz, cross(p)), 1.0);
  place(e.from, 3, 3, times(J, transposed(between)), -1.0);
  place(e.to, 0, 0, times(Rz, between), 1.0);
  place(e.to, 3, 3, J, 1.0);
  return e;
}

EdgeTerms planarTerms(const Pose& from, const Pose& to, const Pose& z) {
  const double c = std::cos(from[2]), s = std::sin(from[2]), cz = std::cos(z[2]),
               sz = std::sin(z[2]);
  const double dx = to[0] - from[0], dy = to[1] - from[1];
  const double px = c * dx + s * dy, py = c * dy - s * dx;  // to, seen from `from`
  const auto turnX = [&](double x, double y) { return cz * x + sz * y; };
  const auto turnY = [&](double x, double y) { return cz * y - sz * x; };
  EdgeTerms e;
  e.residual = {turnX(px - z[0], py - z[1]), turnY(px - z[0], py - z[1]),
                wrapped(to[2] - from[2] - z[2])};
  e.to = {turnX(c, -s), turnY(c, -s), 0.0, turnX(s, c), turnY(s, c), 0.0, 0.0, 0.0, 1.0};
  for (size_t i = 0; i < 6; ++i) e.from[i] = -e.to[i];
  e.from[6] = turnX(py, -px);
  e.from[7] = turnY(py, -px);
  e.from[8] = -1.0;
  return e;
}

}  // namespace

Pose identityPose(size_t freedom) {
  Pose pose{};
  if (freedom == 6) pose[6] = 1.0;
  return pose;
}

Pose composed(size_t freedom, const Pose& a, const Pose& b) {
  if (freedom == 3) {
    const double c = std::cos(a[2]), s = std::sin(a[2]);
    return {a[0] + c * b[0] - s * b[1], a[1] + s * b[0] + c * b[1], wrapped(a[2] + b[2])};
  }
  const Vector t = turned(matrixOf(quaternionOf(a)), positionOf(b));
  return poseOf({a[0] + t[0], a[1] + t[1], a[2] + t[2]}, times(quaternionOf(a), quaternionOf(b)));
}

Pose inverted(size_t freedom, const Pose& a) {
  if (freedom == 3) {
    const double c = std::cos(a[2]), s = std::sin(a[2]);
    return {-c * a[0] - s * a[1], s * a[0] - c * a[1], -a[2]};
  }
  const Quaternion q = conjugate(quaternionOf(a));
  return poseOf(turned(matrixOf(q), {-a[0], -a[1], -a[2]}), q);
}

Pose moved(size_t freedom, const Pose& pose, const double* step) {
  if (freedom == 3) return {pose[0] + step[0], pose[1] + step[1], wrapped(pose[2] + step[2])};
  const Quaternion q = quaternionOf(pose);
  const Vector t = turned(matrixOf(q), {step[0], step[1], step[2]});
  return poseOf({pose[0] + t[0], pose[1] + t[1], pose[2] + t[2]}, times(q, exponential(step + 3)));
}

EdgeTerms edgeTerms(size_t freedom, const Pose& from, const Pose& to, const Pose& measurement) {
  return freedom == 3 ? planarTerms(from, to, measurement) : spatialTerms(from, to, measurement);
}

std::array<double, 9> rotation(const Pose& pose) {
  return matrixOf(quaternionOf(pose));
}

}  // namespace zeph
