#include "zeph/sparse_matrix.h"

#include "zeph/checks/guarded.h"
#include "zeph/error.h"
#include "zeph/matrix/requirements.h"

namespace zeph {
namespace {

// Largest number of entries: their places are counted in signed 64-bit integers elsewhere, and this
// is far beyond any memory.
constexpr std::size_t kMostEntries = std::size_t{1} << 56;

void requirePointer(const void* pointer, const char* name) {
  if (pointer == nullptr) {
    throw Error(ErrorKind::Usage, std::string("the array of ") + name + " is null");
  }
}

SparseMatrix emptyMatrix(std::size_t rows, std::size_t cols, Symmetry symmetry) {
  SparseMatrix m;
  m.rows = rows;
  m.cols = cols;
  m.symmetry = symmetry;
  requireForm(m);
  return m;
}

// The index of entry k, below size.
template <class I>
std::uint32_t checkedIndex(I index, std::size_t size, const char* what, std::size_t k) {
  if (index >= 0 && static_cast<std::size_t>(index) < size)
    return static_cast<std::uint32_t>(index);
  throw Error(ErrorKind::Unfit, std::string("the ") + what + " index of entry " +
                                    std::to_string(k) + " is " + std::to_string(index) +
                                    "; it must be from 0 to " +
                                    std::to_string(static_cast<long long>(size) - 1));
}

template <class I>
SparseMatrix triplets(std::size_t rows, std::size_t cols, const I* rowIndices, const I* colIndices,
                      const double* values, std::size_t count, Symmetry symmetry) {
  SparseMatrix m = emptyMatrix(rows, cols, symmetry);
  if (count > 0) {
    requirePointer(rowIndices, "row indices");
    requirePointer(colIndices, "column indices");
    requirePointer(values, "values");
  }
  return guarded(m.source, [&] {
    m.entries.reserve(count);
    for (std::size_t k = 0; k < count; ++k) {
      m.entries.push_back({checkedIndex(rowIndices[k], rows, "row", k),
                           checkedIndex(colIndices[k], cols, "column", k), values[k]});
    }
    requireForm(m);
    return std::move(m);
  });
}

template <class I>
SparseMatrix compressedColumns(std::size_t rows, std::size_t cols, const I* colStarts,
                               const I* rowIndices, const double* values, Symmetry symmetry) {
  SparseMatrix m = emptyMatrix(rows, cols, symmetry);
  requirePointer(colStarts, "column starts");
  for (std::size_t c = 0; c <= cols; ++c) {
    const bool holds = c == 0 ? colStarts[0] == 0 : colStarts[c] >= colStarts[c - 1];
    if (holds && static_cast<std::uint64_t>(colStarts[c]) < kMostEntries) continue;
    throw Error(ErrorKind::Unfit, "column start " + std::to_string(c) + " is " +
                                      std::to_string(colStarts[c]) +
                                      "; the starts must begin with 0 and not descend");
  }
  const auto count = static_cast<std::size_t>(colStarts[cols]);
  if (count > 0) {
    requirePointer(rowIndices, "row indices");
    requirePointer(values, "values");
  }
  return guarded(m.source, [&] {
    m.entries.reserve(count);
    for (std::size_t c = 0; c < cols; ++c) {
      for (auto p = static_cast<std::size_t>(colStarts[c]);
           p < static_cast<std::size_t>(colStarts[c + 1]); ++p) {
        m.entries.push_back({checkedIndex(rowIndices[p], rows, "row", p),
                             static_cast<std::uint32_t>(c), values[p]});
      }
    }
    requireForm(m);
    return std::move(m);
  });
}

}  // namespace

SparseMatrix SparseMatrix::fromTriplets(std::size_t rows, std::size_t cols,
                                        const std::int32_t* rowIndices,
                                        const std::int32_t* colIndices, const double* values,
                                        std::size_t count, Symmetry symmetry) {
  return triplets(rows, cols, rowIndices, colIndices, values, count, symmetry);
}

SparseMatrix SparseMatrix::fromTriplets(std::size_t rows, std::size_t cols,
                                        const std::int64_t* rowIndices,
                                        const std::int64_t* colIndices, const double* values,
                                        std::size_t count, Symmetry symmetry) {
  return triplets(rows, cols, rowIndices, colIndices, values, count, symmetry);
}

SparseMatrix SparseMatrix::fromCompressedColumns(std::size_t rows, std::size_t cols,
                                                 const std::int32_t* colStarts,
                                                 const std::int32_t* rowIndices,
                                                 const double* values, Symmetry symmetry) {
  return compressedColumns(rows, cols, colStarts, rowIndices, values, symmetry);
}

SparseMatrix SparseMatrix::fromCompressedColumns(std::size_t rows, std::size_t cols,
                                                 const std::int64_t* colStarts,
                                                 const std::int64_t* rowIndices,
                                                 const double* values, Symmetry symmetry) {
  return compressedColumns(rows, cols, colStarts, rowIndices, values, symmetry);
}

}  // namespace zeph
