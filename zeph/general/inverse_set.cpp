#include "zeph/general/inverse_set.h"

#include <utility>

#include "solver/ldl_minimal_set.h"
#include "zeph/checks/guarded.h"
#include "zeph/checks/one_triangle.h"
#include "zeph/general/protosparse.h"
#include "zeph/matrix/requirements.h"

namespace zeph {

SparseMatrix inverseSet(SparseMatrix A, const Progress& progress) {
  const std::string source = A.source;
  return guarded(source, [&] {
    requireSquare(A);
    requireBothTriangles(A);
    requireMemory(source, A.rows, 2 * sizeof(Entry));
    progress.begin("closing the pattern");
    zeph_solver::ProtoSparse set;
    zeph_solver::partialInverseLDLMinimalSet(assemble(std::move(A), Triangles::Lower), set);
    return takeEntries(set, "the inverse set of " + source);
  });
}

}  // namespace zeph
