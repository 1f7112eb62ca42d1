// A camera with its own focal length and radial distortion, and where it sees a point.
#ifndef ZEPH_EXAMPLES_BUNDLE_ADJUSTMENT_CAMERA_H
#define ZEPH_EXAMPLES_BUNDLE_ADJUSTMENT_CAMERA_H

#include <array>

namespace bundle {

using Vector3 = std::array<double, 3>;
using Matrix3 = std::array<double, 9>;  ///< row after row

constexpr int kCameraUnknowns = 9;
constexpr int kPointUnknowns = 3;

/// Sees X at P = R (X - centre), looking along -z; its image is focal (1 + k1 r² + k2 r⁴) p with
/// p = -(P.x, P.y) / P.z and r² = pᵀ p.
struct Camera {
  Matrix3 rotation;
  Vector3 centre;
  double focal, k1, k2;
};

/// From and to the nine numbers of the text form: rotation vector, translation -R centre, focal,
/// k1, k2.
Camera fromParameters(const std::array<double, kCameraUnknowns>& p);
std::array<double, kCameraUnknowns> parametersOf(const Camera& camera);

/// The rotation by |v| around v, and v of such a rotation (|v| at most pi).
Matrix3 rotationBy(const Vector3& v);
Vector3 vectorOf(const Matrix3& rotation);

Matrix3 product(const Matrix3& a, const Matrix3& b);
Vector3 product(const Matrix3& a, const Vector3& x);

/// The camera after a small movement d: R <- Exp(d[0..2]) R, so that turns are about the camera's
/// own axes, centre += d[3..5], focal, k1, k2 += d[6..8].
Camera moved(const Camera& camera, const double* d);

/// Where a camera sees a point, with the derivatives by the camera's movement and by the point.
struct Image {
  std::array<double, 2> at;
  double byCamera[2][kCameraUnknowns];
  double byPoint[2][kPointUnknowns];
};

/// Not finite where the point lies beside the camera.
std::array<double, 2> project(const Camera& camera, const Vector3& point);
Image projectWithDerivatives(const Camera& camera, const Vector3& point);

}  // namespace bundle

#endif
