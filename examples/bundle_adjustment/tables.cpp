#include "tables.h"

#include <cmath>
#include <initializer_list>

namespace bundle {
namespace {

using std::size_t;

void appendCells(std::string& text, std::initializer_list<double> values) {
  for (const double v : values) {
    text += ',';
    append(text, v);
  }
}

double sigma(const zeph::DenseMatrix& covariance, size_t k) {
  return std::sqrt(covariance(k, k));
}

}  // namespace

std::string cameraTable(const Adjustment& a, const std::vector<zeph::DenseMatrix>& covariances) {
  std::string text =
      "camera,x,y,z,focal,k1,k2,sigma_turn_x,sigma_turn_y,sigma_turn_z,sigma_x,sigma_y,sigma_z,"
      "sigma_focal,sigma_k1,sigma_k2\n";
  for (size_t c = 0; c < covariances.size(); ++c) {
    const Camera& camera = a.problem.cameras[c];
    text += std::to_string(c);
    appendCells(text, {camera.centre[0], camera.centre[1], camera.centre[2], camera.focal,
                       camera.k1, camera.k2});
    for (size_t k = 0; k < kCameraUnknowns; ++k) appendCells(text, {sigma(covariances[c], k)});
    text += '\n';
  }
  return text;
}

std::string blockTable(const std::vector<zeph::DenseMatrix>& covariances) {
  const char* const names[] = {"turn_x", "turn_y", "turn_z", "x", "y", "z", "focal", "k1", "k2"};
  std::string text = "camera";
  for (size_t i = 0; i < kCameraUnknowns; ++i) {
    for (size_t j = 0; j <= i; ++j) text += std::string(",") + names[i] + ' ' + names[j];
  }
  text += '\n';
  for (size_t c = 0; c < covariances.size(); ++c) {
    text += std::to_string(c);
    for (size_t i = 0; i < kCameraUnknowns; ++i) {
      for (size_t j = 0; j <= i; ++j) appendCells(text, {covariances[c](i, j)});
    }
    text += '\n';
  }
  return text;
}

std::string pointTable(const Adjustment& a, const std::vector<size_t>& points,
                       const std::vector<zeph::DenseMatrix>& covariances) {
  std::string text = "point,x,y,z,sigma_x,sigma_y,sigma_z,xy,xz,yz\n";
  for (size_t k = 0; k < points.size(); ++k) {
    const Vector3& at = a.problem.points[points[k]];
    const zeph::DenseMatrix& C = covariances[k];
    text += std::to_string(points[k]);
    appendCells(text, {at[0], at[1], at[2], sigma(C, 0), sigma(C, 1), sigma(C, 2), C(0, 1), C(0, 2),
                       C(1, 2)});
    text += '\n';
  }
  return text;
}

}  // namespace bundle
