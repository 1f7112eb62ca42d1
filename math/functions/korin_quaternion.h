#ifndef ZEPH_MATH_FUNCTIONS_KORIN_QUATERNION_H
#define ZEPH_MATH_FUNCTIONS_KORIN_QUATERNION_H

#include "math/dense/korin_vector.h"
#include "types/zttypes.h"

namespace korin {

/// Rotation quaternion w + xi + yj + zk, scalar part first, with Hamilton products: a ZtQuaternion
/// record with operations, and no fields of its own.
///
/// "Inverse" means the conjugate throughout: nothing divides by the squared length, so the
/// operations take unit quaternions for granted. Angles are in radians, Euler angles in degrees.
/// All inputs of an operation are read before anything is written: this may be an operand. Nothing
/// throws.
///
///   korin::Quaternion heading, body;
///   heading.setRotateZ(0.5);
///   body.setQuatMulInvQuat(heading, body);   // heading * conj(body)
class Quaternion : public ZtQuaternion {
 public:
  /// The identity, (1, 0, 0, 0).
  Quaternion() { setIdentity(); }
  Quaternion(ZtReal w, ZtReal x, ZtReal y, ZtReal z);
  Quaternion(const ZtQuaternion& q) : ZtQuaternion(q) {}

  void setIdentity();
  /// this = conj(this), conj(q).
  void setInverseSelf();
  void setInverseOf(const ZtQuaternion& q);

  /// this = a * b, with conjugates where the name says Inv.
  void setQuatMulQuat(const ZtQuaternion& a, const ZtQuaternion& b);
  void setQuatMulInvQuat(const ZtQuaternion& a, const ZtQuaternion& b);
  void setInvQuatMulQuat(const ZtQuaternion& a, const ZtQuaternion& b);
  void setInvQuatMulInvQuat(const ZtQuaternion& a, const ZtQuaternion& b);

  /// Rotation about one axis: (cos(angle / 2), sin(angle / 2) on the axis).
  void setRotateX(ZtReal angle);
  void setRotateY(ZtReal angle);
  void setRotateZ(ZtReal angle);

  /// Euclidean norm of the four components; no guard against overflow of the squares.
  ZtReal cartesianLength() const;
  /// Scales to unit length and returns the length before. Not guarded: a zero quaternion becomes
  /// NaN.
  ZtReal setNormalizeSelf();
  /// Negates all components if w < 0; the rotation stays the same.
  void setPositiveDefinite();
  /// Negates all components if the dot product with q is negative, so that successive quaternions
  /// stay on one hemisphere.
  void setNegSelfNearest(const ZtQuaternion& q);

  /// True if all components are finite and, for tolerance > 0, |length^2 - 1| <= tolerance;
  /// otherwise if one component exceeds 2^-52 in magnitude.
  bool isValid(ZtReal tolerance) const;

  /// Roll about x, pitch about y, yaw about z in degrees, into elements 0 to 2 of angles (not
  /// resized) or a new vector. The pitch stays finite when rounding pushes its sine past 1.
  void toEuler(ZtVector& angles) const;
  korin::Vector toEuler() const;

 private:
  void negate();
};

}  // namespace korin

#endif
