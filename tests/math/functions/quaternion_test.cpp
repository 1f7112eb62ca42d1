#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <tuple>

#include "math/functions/korin_quaternion.h"

namespace {

using korin::Quaternion;

void expectNear(const ZtQuaternion& q, const ZtQuaternion& expected, double tolerance = 1e-15) {
  EXPECT_TRUE(korin::Vector(q).isEqual(korin::Vector(expected), tolerance));
}

Quaternion scaled(const Quaternion& q, double s) {
  return Quaternion(s * q.w, s * q.x, s * q.y, s * q.z);
}

class RandomQuaternions : public ::testing::Test {
 protected:
  Quaternion draw() {
    return Quaternion(uniform(random), uniform(random), uniform(random), uniform(random));
  }
  std::mt19937 random{7};
  std::uniform_real_distribution<double> uniform{-1.0, 1.0};
};

TEST_F(RandomQuaternions, ProductsFollowHamiltonAndConjugateByName) {
  using Product = void (Quaternion::*)(const ZtQuaternion&, const ZtQuaternion&);
  for (int i = 0; i < 50; ++i) {
    const Quaternion a = draw(), b = draw();
    Quaternion p, conjA, conjB = b;
    conjA.setInverseOf(a);
    conjB.setInverseSelf();
    expectNear(conjB, Quaternion(b.w, -b.x, -b.y, -b.z), 0);
    p.setQuatMulQuat(a, b);
    expectNear(p, Quaternion(a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z,
                             a.x * b.w + a.w * b.x - a.z * b.y + a.y * b.z,
                             a.y * b.w + a.z * b.x + a.w * b.y - a.x * b.z,
                             a.z * b.w - a.y * b.x + a.x * b.y + a.w * b.z));
    const std::tuple<Product, Quaternion, Quaternion> variants[] = {
        {&Quaternion::setQuatMulQuat, a, b},
        {&Quaternion::setQuatMulInvQuat, a, conjB},
        {&Quaternion::setInvQuatMulQuat, conjA, b},
        {&Quaternion::setInvQuatMulInvQuat, conjA, conjB}};
    for (const auto& [operation, left, right] : variants) {
      p.setQuatMulQuat(left, right);
      Quaternion onA = a, onB = b;
      (onA.*operation)(onA, b);
      (onB.*operation)(a, onB);
      expectNear(onA, p, 0);
      expectNear(onB, p, 0);
    }
  }
}

TEST_F(RandomQuaternions, SignsAndLength) {
  for (int i = 0; i < 50; ++i) {
    const Quaternion q = draw(), other = draw();
    const ZtReal dot = q.w * other.w + q.x * other.x + q.y * other.y + q.z * other.z;
    Quaternion unit = q, nearest = q, positive = q;
    EXPECT_EQ(unit.setNormalizeSelf(), q.cartesianLength());
    expectNear(scaled(unit, q.cartesianLength()), q);
    EXPECT_NEAR(unit.w * unit.w + unit.x * unit.x + unit.y * unit.y + unit.z * unit.z, 1, 1e-15);
    nearest.setNegSelfNearest(other);
    expectNear(nearest, scaled(q, dot < 0 ? -1 : 1), 0);
    positive.setPositiveDefinite();
    expectNear(positive, scaled(q, q.w < 0 ? -1 : 1), 0);
  }
  Quaternion zero(0, 0, 0, 0);
  EXPECT_EQ(zero.setNormalizeSelf(), 0.0);
  EXPECT_TRUE(std::isnan(zero.w));
}

// Roll, then pitch, then yaw about the fixed axes come back as the Euler angles.
TEST_F(RandomQuaternions, EulerAnglesOfComposedRotations) {
  constexpr double kDegree = 57.29577951308232;
  for (int i = 0; i < 50; ++i) {
    const ZtReal roll = 3.1 * uniform(random), pitch = 1.5 * uniform(random);
    const ZtReal yaw = 3.1 * uniform(random);
    Quaternion x, y, z, q;
    x.setRotateX(roll);
    y.setRotateY(pitch);
    z.setRotateZ(yaw);
    q.setQuatMulQuat(z, y);
    q.setQuatMulQuat(q, x);
    const ZtReal degrees[] = {roll * kDegree, pitch * kDegree, yaw * kDegree};
    EXPECT_TRUE(q.toEuler().isEqual(korin::Vector(3, degrees), 1e-11));
  }
  // Pitch at and, by rounding, past the pole stays finite.
  korin::Vector angles(3);
  Quaternion(std::sqrt(0.5) * (1 + 1e-15), 0, std::sqrt(0.5), 0).toEuler(angles);
  EXPECT_NEAR(angles[1], 90.0, 1e-5);
}

TEST(Quaternion, Validity) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  const std::tuple<Quaternion, double, bool> cases[] = {
      {{0, 0, 0, 0}, 0, false},       {{1e-15, 0, 0, 0}, 0, true},
      {{0, 0, 0, -1e-15}, -1, true},  {{0, 2.220446049250313e-16, 0, 0}, 0, false},
      {{1, 0, 0, 0.01}, 1e-6, false}, {{1, 0, 0, 0.001}, 1e-6, true},
      {{0.5, 0, 0, 0}, 0.75, true},   {{1, nan, 0, 0}, 0, false},
      {{1, 0, nan, 0}, 10, false},    {{inf, 0, 0, -inf}, inf, false}};
  for (const auto& [q, tolerance, valid] : cases) EXPECT_EQ(q.isValid(tolerance), valid) << q.w;
}

}  // namespace
