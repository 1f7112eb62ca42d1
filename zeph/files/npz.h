#ifndef ZEPH_FILES_NPZ_H
#define ZEPH_FILES_NPZ_H

#include <string>
#include <vector>

#include "zeph/dense_matrix.h"
#include "zeph/matrix_file.h"

namespace zeph {

/// Reads what scipy.sparse.save_npz writes: csr, csc, coo, bsr and dia; real, integer or boolean
/// values, little-endian. `file` is the whole archive, `source` its name for messages. Every index
/// is checked; what is said to unfold to more memory than the options or the machine allow is
/// refused before it is unfolded.
/// Throws Error(Input), Error(Memory).
SparseMatrix readNpz(const std::vector<char>& file, const std::string& source,
                     const ReadOptions& options);

/// Reads what numpy.save writes, as a matrix: one- or two-dimensional arrays of the same values.
DenseMatrix readNpy(const std::vector<char>& file, const std::string& source,
                    const ReadOptions& options);

}  // namespace zeph

#endif
