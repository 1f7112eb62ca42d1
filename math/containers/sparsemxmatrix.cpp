#include "math/containers/sparsemxmatrix.h"

#include <vector>

#include "sparse/inverse/inverse_subset.h"

namespace korin {

template <>
void SparseMxMatrix<unsigned int, double>::partialInverseCholesky(SparseMxMatrix& result,
                                                                  const unsigned int* perm) const {
  const std::vector<sparse::Offset> starts(colStarts, colStarts + cols + std::size_t{1});
  const auto n = static_cast<sparse::Index>(cols);
  const auto* indices = reinterpret_cast<const sparse::Index*>(rowIndices);  // none is negative
  const sparse::InverseSubset subset({n, n, starts.data(), indices, values});
  subset.mapTo(perm, result.colStarts, result.rowIndices, result.values);
}

}  // namespace korin
