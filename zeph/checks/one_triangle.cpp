#include "zeph/checks/one_triangle.h"

#include <optional>

#include "zeph/error.h"
#include "zeph/matrix/requirements.h"

namespace zeph {
namespace {

struct Found {
  std::optional<Entry> lower, upper;  // the first of each triangle
  std::size_t count = 0;
};

Found findTriangles(const SparseMatrix& m) {
  Found found;
  for (const auto& e : m.entries) {
    if (e.row == e.col || e.value == 0.0) continue;
    std::optional<Entry>& first = e.row > e.col ? found.lower : found.upper;
    if (!first) first = e;
    ++found.count;
  }
  return found;
}

}  // namespace

std::string oneTriangleOnly(const SparseMatrix& m) {
  if (m.symmetry != Symmetry::General || m.triangular || m.rows != m.cols) return {};
  const Found found = findTriangles(m);
  if (found.lower.has_value() == found.upper.has_value()) return {};
  return oneTriangleSentence(m, found.lower ? *found.lower : *found.upper, found.count);
}

std::string oneTriangleSentence(const SparseMatrix& m, const Entry& e, std::size_t count) {
  const char* triangle = e.row > e.col ? "lower" : "upper";
  const std::string counted =
      count == 1 ? "the only entry beside the diagonal of "
                 : "all " + std::to_string(count) + " entries beside the diagonal of ";
  return counted + m.source + (count == 1 ? " lies" : " lie") + " in the " + triangle +
         " triangle, as " + position(m.indexBase, e.row, e.col) +
         " does, but nothing says that it is symmetric; give --symmetric if one triangle stands "
         "for both, or --general if the other one is zero";
}

void requireBothTriangles(const SparseMatrix& m) {
  const std::string seen = oneTriangleOnly(m);
  if (!seen.empty()) throw Error(ErrorKind::Unfit, seen);
}

void declareSymmetric(SparseMatrix& m) {
  if (m.symmetry == Symmetry::Symmetric) return;
  requireSquare(m);
  if (m.symmetry == Symmetry::SkewSymmetric) {
    throw Error(ErrorKind::Unfit,
                m.source + " says that it is skew-symmetric; leave --symmetric out");
  }
  const Found found = findTriangles(m);
  if (found.lower && found.upper) {
    throw Error(ErrorKind::Unfit, m.source + " has entries in both triangles, as " +
                                      position(m.indexBase, found.lower->row, found.lower->col) +
                                      " and " +
                                      position(m.indexBase, found.upper->row, found.upper->col) +
                                      "; --symmetric is for matrices stored by one, leave it out");
  }
  m.symmetry = Symmetry::Symmetric;
}

}  // namespace zeph
