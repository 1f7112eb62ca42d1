// Matrices like those that users bring, made for measuring: what they cost is that of their kind.
#ifndef ZEPH_PLAN_GENERATED_PROBLEM_H
#define ZEPH_PLAN_GENERATED_PROBLEM_H

#include <cstddef>
#include <string>

#include "zeph/sparse_matrix.h"

namespace zeph {

enum class Shape {
  Plane,    ///< five-point grid, one unknown a node
  Space,    ///< seven-point grid
  Network,  ///< levelling network in the plane
  Drive,    ///< 2-D pose graph: a walk through a town, three unknowns a pose
  Sphere,   ///< 3-D pose graph: rings of poses, six unknowns a pose
  Bundle,   ///< points of three unknowns, each seen by five of the cameras of six
  Band,     ///< a chain of blocks of 24 unknowns, each coupled with the next eight
};

/// A symmetric positive definite matrix, by its lower triangle, of about `size` unknowns; the same
/// for the same arguments on every machine but for the last bits of its values. O(entries).
SparseMatrix generatedProblem(Shape shape, std::size_t size);

/// "2-D grid", ...
const char* name(Shape shape);

}  // namespace zeph

#endif
