#ifndef ZEPH_SPARSE_MATRIX_H
#define ZEPH_SPARSE_MATRIX_H

#include <cstddef>
#include <string>
#include <vector>

#include "solver/assembly/protosparse.h"
#include "types/zttypes.h"

namespace zeph {

/// What the stored entries stand for: themselves, or one triangle of A = Aᵀ or A = -Aᵀ.
enum class Symmetry { General, Symmetric, SkewSymmetric };

/// Largest number of rows or columns: the solvers count in signed 32-bit integers.
inline constexpr std::size_t kLargestSize = 2147483647;

/// Sparse matrix as it stands in a file or comes from a host: triplets in any order, duplicates add
/// up, zeros are kept. The readers guarantee indices below rows and cols and, for the two symmetric
/// forms, a square matrix whose entries all lie in one triangle (whichever it is).
struct SparseMatrix {
  std::string source = "the matrix";  ///< file name, for messages
  std::size_t indexBase = 1;          ///< 1 or 0: how messages count rows and columns
  std::size_t rows = 0;
  std::size_t cols = 0;
  Symmetry symmetry = Symmetry::General;
  bool triangular = false;  ///< a general matrix with entries in one triangle is meant as it stands
  std::vector<zeph_solver::MatrixElement> entries;  ///< zero-based
};

/// Dense matrix with the name of the file that it came from, for messages.
struct DenseMatrix {
  std::string source = "the matrix";
  ZtMatrix values;
};

/// Which part of a symmetric matrix a consumer reads.
enum class Triangles {
  Both,   ///< UMFPACK, products, anything that takes the matrix at its word
  Upper,  ///< CHOLMOD, which ignores what lies below the diagonal
  Lower   ///< the symbolic inverse set, which ignores what lies above
};

/// Sorts the entries by column, then row, and adds up those at one position, whatever their size; a
/// sum of zero keeps its place. Returns how many entries went.
/// Throws Error(Unfit) beyond 2³¹-1 entries.
std::size_t mergeDuplicates(SparseMatrix& m);

/// The library's assembly form of m, with one element a position. A symmetric m is completed to
/// both triangles or moved to the one asked for; a general m is taken as it is, and a
/// skew-symmetric one is always completed. The entries of an m that is moved in are taken over
/// without a copy.
/// Throws Error(Unfit) beyond 2³¹-1 entries.
zeph_solver::ProtoSparse assemble(SparseMatrix m, Triangles triangles);

/// The way back: a general matrix with the entries of p, which are moved out of it. Of a
/// vector-shaped p those that are not zero.
SparseMatrix takeEntries(zeph_solver::ProtoSparse& p, const std::string& source);

/// All entries of m, symmetric forms completed, duplicates summed.
/// Throws Error(Memory) where rows x cols does not fit into memory.
DenseMatrix toDense(const SparseMatrix& m);

/// Throws Error(Memory) when count items of that size cannot fit into the machine. A size line in a
/// file costs nothing to write, and a system that lends memory freely kills the process only later.
void requireMemory(const std::string& source, std::size_t count, std::size_t bytesEach);

/// "(3, 4)" for a zero-based position, counted from indexBase.
std::string position(std::size_t indexBase, std::size_t row, std::size_t col);

/// Throws Error(Unfit) unless m is square with at least one row.
void requireSquare(const SparseMatrix& m);

/// Throws Error(Unfit) naming the first entry that is NaN or infinite.
void requireFinite(const SparseMatrix& m);

}  // namespace zeph

#endif
