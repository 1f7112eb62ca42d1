#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "math/korin_quaternion.h"

namespace {

using korin::Quaternion;

void expectNear(const ZtQuaternion& q, ZtReal w, ZtReal x, ZtReal y, ZtReal z,
                double tolerance = 1e-15) {
  EXPECT_NEAR(q.w, w, tolerance);
  EXPECT_NEAR(q.x, x, tolerance);
  EXPECT_NEAR(q.y, y, tolerance);
  EXPECT_NEAR(q.z, z, tolerance);
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
  Quaternion k;
  k.setQuatMulQuat(Quaternion(0, 1, 0, 0), Quaternion(0, 0, 1, 0));
  expectNear(k, 0, 0, 0, 1, 0);

  for (int i = 0; i < 50; ++i) {
    const Quaternion a = draw();
    const Quaternion b = draw();
    Quaternion p, conjA, conjB;
    conjA.setInverseOf(a);
    conjB = b;
    conjB.setInverseSelf();
    expectNear(conjB, b.w, -b.x, -b.y, -b.z, 0);
    p.setQuatMulQuat(a, b);
    expectNear(p, a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z,
               a.x * b.w + a.w * b.x - a.z * b.y + a.y * b.z,
               a.y * b.w + a.z * b.x + a.w * b.y - a.x * b.z,
               a.z * b.w - a.y * b.x + a.x * b.y + a.w * b.z);
    EXPECT_NEAR(p.cartesianLength(), a.cartesianLength() * b.cartesianLength(), 1e-15);

    struct {
      void (Quaternion::*operation)(const ZtQuaternion&, const ZtQuaternion&);
      const Quaternion &left, &right;
    } const variants[] = {{&Quaternion::setQuatMulInvQuat, a, conjB},
                          {&Quaternion::setInvQuatMulQuat, conjA, b},
                          {&Quaternion::setInvQuatMulInvQuat, conjA, conjB}};
    for (const auto& v : variants) {
      p.setQuatMulQuat(v.left, v.right);
      Quaternion result, onA = a, onB = b;
      (result.*v.operation)(a, b);
      (onA.*v.operation)(onA, b);
      (onB.*v.operation)(a, onB);
      for (const Quaternion& q : {result, onA, onB}) expectNear(q, p.w, p.x, p.y, p.z, 0);
    }
  }
}

TEST_F(RandomQuaternions, SignsAndLength) {
  for (int i = 0; i < 50; ++i) {
    const Quaternion q = draw();
    const Quaternion other = draw();
    Quaternion n = q;
    const ZtReal length = n.setNormalizeSelf();
    EXPECT_EQ(length, q.cartesianLength());
    expectNear(n, q.w / length, q.x / length, q.y / length, q.z / length);
    const ZtReal dot = q.w * other.w + q.x * other.x + q.y * other.y + q.z * other.z;
    const ZtReal near = dot < 0 ? -1 : 1;
    n = q;
    n.setNegSelfNearest(other);
    expectNear(n, near * q.w, near * q.x, near * q.y, near * q.z, 0);
    const ZtReal positive = q.w < 0 ? -1 : 1;
    n = q;
    n.setPositiveDefinite();
    expectNear(n, positive * q.w, positive * q.x, positive * q.y, positive * q.z, 0);
  }
  Quaternion pure(0, -1, 0, 0);
  pure.setPositiveDefinite();
  EXPECT_EQ(pure.x, -1);
  Quaternion zero(0, 0, 0, 0);
  EXPECT_EQ(zero.setNormalizeSelf(), 0.0);
  EXPECT_TRUE(std::isnan(zero.w));
}

// Roll, then pitch, then yaw about the fixed axes come back as the Euler angles.
TEST_F(RandomQuaternions, EulerAnglesOfComposedRotations) {
  constexpr double kDegree = 57.29577951308232;
  for (int i = 0; i < 50; ++i) {
    const ZtReal roll = 3.1 * uniform(random);
    const ZtReal pitch = 1.5 * uniform(random);
    const ZtReal yaw = 3.1 * uniform(random);
    Quaternion x, y, z, q;
    x.setRotateX(roll);
    y.setRotateY(pitch);
    z.setRotateZ(yaw);
    q.setQuatMulQuat(z, y);
    q.setQuatMulQuat(q, x);
    const korin::Vector angles = q.toEuler();
    ASSERT_EQ(angles.size, 3u);
    EXPECT_NEAR(angles[0], roll * kDegree, 1e-11);
    EXPECT_NEAR(angles[1], pitch * kDegree, 1e-11);
    EXPECT_NEAR(angles[2], yaw * kDegree, 1e-11);
  }
  // Pitch at and, by rounding, past the pole stays finite.
  korin::Vector angles(3);
  Quaternion(std::sqrt(0.5) * (1 + 1e-15), 0, std::sqrt(0.5), 0).toEuler(angles);
  EXPECT_NEAR(angles[1], 90.0, 1e-5);
}

TEST(Quaternion, Validity) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  struct {
    Quaternion q;
    double tolerance;
    bool valid;
  } const cases[] = {
      {{0, 0, 0, 0}, 0, false},
      {{1e-15, 0, 0, 0}, 0, true},
      {{0, 0, 0, -1e-15}, -1, true},
      {{0, 2.220446049250313e-16, 0, 0}, 0, false},
      {{1, 0, 0, 0.01}, 1e-6, false},
      {{1, 0, 0, 0.001}, 1e-6, true},
      {{0.5, 0, 0, 0}, 0.75, true},
      {{0.5, 0, 0, 0}, 0.74, false},
      {{1, nan, 0, 0}, 0, false},
      {{1, 0, nan, 0}, 10, false},
      {{1, 0, 0, -inf}, 0, false},
      {{inf, 0, 0, 0}, inf, false},
      {{1.7976931348623157e308, 0, 0, 0}, 0, true},
  };
  for (const auto& c : cases) EXPECT_EQ(c.q.isValid(c.tolerance), c.valid) << &c - cases;
  EXPECT_TRUE(Quaternion().isValid(1e-300));
}

}  // namespace
