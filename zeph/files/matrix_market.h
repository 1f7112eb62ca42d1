#ifndef ZEPH_FILES_MATRIX_MARKET_H
#define ZEPH_FILES_MATRIX_MARKET_H

#include <string>

#include "zeph/files/atomic_file.h"
#include "zeph/files/line_reader.h"
#include "zeph/matrix_file.h"

namespace zeph {

/// Reads a Matrix Market file: coordinate or array; real or integer; general, symmetric or
/// skew-symmetric. The header's case, comment lines, blank lines, CRLF line ends, a plus sign in
/// front of a number and a missing last line end do not matter. Values are rounded to the nearest
/// double. An array gives its entries that are not zero; a symmetric coordinate file may store
/// either triangle.
///
/// Pattern, complex and Hermitian files are refused, as is everything malformed, with the line
/// number in Error(Input). Memory: 16 bytes an entry; the file passes through a small buffer, so
/// pipes can be read too.
SparseMatrix readMatrixMarket(LineReader& in, const ReadOptions& options = {});
SparseMatrix readMatrixMarket(const std::string& path, const ReadOptions& options = {});

/// The same files as a dense matrix: symmetric ones completed, duplicates of a coordinate file
/// summed. Throws Error(Memory) where rows x cols does not fit into memory.
DenseMatrix readMatrixMarketDense(LineReader& in, const ReadOptions& options = {});
DenseMatrix readMatrixMarketDense(const std::string& path, const ReadOptions& options = {});

/// Reads the file in the form that it has: an array into dense, coordinates into sparse; the other
/// one is left alone. True for an array.
bool readMatrixMarketAsStored(LineReader& in, SparseMatrix& sparse, DenseMatrix& dense,
                              const ReadOptions& options = {});

/// Writes a coordinate real file with the matrix's own symmetry, entries in their order, symmetric
/// ones in the lower triangle. Values are the shortest text that reads back to the same bits.
void writeMatrixMarket(AtomicFile& out, const SparseMatrix& m);

/// Writes an array real general file (column by column) in the same number format.
void writeMatrixMarket(AtomicFile& out, const DenseMatrix& m);

}  // namespace zeph

#endif
