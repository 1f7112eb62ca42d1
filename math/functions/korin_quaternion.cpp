#include "math/functions/korin_quaternion.h"

#include <cmath>
#include <limits>

#include "math/functions/korin_math_base.h"

namespace korin {

namespace {

constexpr ZtReal kDegreesPerRadian = 57.29577951308232;
constexpr ZtReal kLargestFinite = std::numeric_limits<ZtReal>::max();
constexpr ZtReal kZeroBound = std::numeric_limits<ZtReal>::epsilon();

ZtQuaternion conjugate(const ZtQuaternion& q) {
  return {q.w, -q.x, -q.y, -q.z};
}

ZtReal squaredLength(const ZtQuaternion& q) {
  return q.w * q.w + q.x * q.x + q.y * q.y + q.z * q.z;
}

}  // namespace

Quaternion::Quaternion(ZtReal w, ZtReal x, ZtReal y, ZtReal z) : ZtQuaternion{w, x, y, z} {}

void Quaternion::setIdentity() {
  *this = Quaternion(1.0, 0.0, 0.0, 0.0);
}

void Quaternion::setInverseSelf() {
  setInverseOf(*this);
}

void Quaternion::setInverseOf(const ZtQuaternion& q) {
  *this = conjugate(q);
}

void Quaternion::setQuatMulQuat(const ZtQuaternion& a, const ZtQuaternion& b) {
  *this = Quaternion(
      a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z, a.w * b.x + a.x * b.w + a.y * b.z - a.z * b.y,
      a.w * b.y - a.x * b.z + a.y * b.w + a.z * b.x, a.w * b.z + a.x * b.y - a.y * b.x + a.z * b.w);
}

void Quaternion::setQuatMulInvQuat(const ZtQuaternion& a, const ZtQuaternion& b) {
  setQuatMulQuat(a, conjugate(b));
}

void Quaternion::setInvQuatMulQuat(const ZtQuaternion& a, const ZtQuaternion& b) {
  setQuatMulQuat(conjugate(a), b);
}

void Quaternion::setInvQuatMulInvQuat(const ZtQuaternion& a, const ZtQuaternion& b) {
  setQuatMulQuat(conjugate(a), conjugate(b));
}

void Quaternion::setRotateX(ZtReal angle) {
  *this = Quaternion(std::cos(angle / 2.0), std::sin(angle / 2.0), 0.0, 0.0);
}

void Quaternion::setRotateY(ZtReal angle) {
  *this = Quaternion(std::cos(angle / 2.0), 0.0, std::sin(angle / 2.0), 0.0);
}

void Quaternion::setRotateZ(ZtReal angle) {
  *this = Quaternion(std::cos(angle / 2.0), 0.0, 0.0, std::sin(angle / 2.0));
}

ZtReal Quaternion::cartesianLength() const {
  return std::sqrt(squaredLength(*this));
}

ZtReal Quaternion::setNormalizeSelf() {
  const ZtReal length = cartesianLength();
  const ZtReal factor = 1.0 / length;
  *this = Quaternion(w * factor, x * factor, y * factor, z * factor);
  return length;
}

void Quaternion::setPositiveDefinite() {
  if (w < 0.0) negate();
}

void Quaternion::setNegSelfNearest(const ZtQuaternion& q) {
  const ZtReal dot = q.w * w + q.x * x + q.y * y + q.z * z;
  if (dot < 0.0) negate();
}

bool Quaternion::isValid(ZtReal tolerance) const {
  const ZtReal components[] = {w, x, y, z};
  bool nonZero = false;
  for (const ZtReal component : components) {
    const ZtReal magnitude = std::fabs(component);
    if (!(magnitude <= kLargestFinite)) return false;
    nonZero = nonZero || magnitude > kZeroBound;
  }
  if (tolerance > 0.0) return std::fabs(squaredLength(*this) - 1.0) <= tolerance;
  return nonZero;
}

void Quaternion::toEuler(ZtVector& angles) const {
  const ZtReal roll = std::atan2(2.0 * (y * z + w * x), 2.0 * (z * z + w * w) - 1.0);
  const ZtReal pitch = -asinClamped(2.0 * (x * z - w * y));
  const ZtReal yaw = std::atan2(2.0 * (x * y + w * z), 2.0 * (x * x + w * w) - 1.0);
  angles.data[0] = roll * kDegreesPerRadian;
  angles.data[1] = pitch * kDegreesPerRadian;
  angles.data[2] = yaw * kDegreesPerRadian;
}

korin::Vector Quaternion::toEuler() const {
  korin::Vector angles(3);
  toEuler(angles);
  return angles;
}

void Quaternion::negate() {
  *this = Quaternion(-w, -x, -y, -z);
}

}  // namespace korin
