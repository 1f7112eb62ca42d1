// Between the public matrices and those of the sparse library.
#ifndef ZEPH_GENERAL_PROTOSPARSE_H
#define ZEPH_GENERAL_PROTOSPARSE_H

#include <string>

#include "solver/assembly/protosparse.h"
#include "zeph/sparse_matrix.h"

namespace zeph {

/// Which part of a symmetric matrix a consumer reads.
enum class Triangles {
  Both,   ///< UMFPACK, products, anything that takes the matrix at its word
  Upper,  ///< CHOLMOD, which ignores what lies below the diagonal
  Lower   ///< the symbolic inverse set, which ignores what lies above
};

/// The library's assembly form of m, with one element a position. A symmetric m is completed to
/// both triangles or moved to the one asked for; a general m is taken as it is, and a
/// skew-symmetric one is always completed.
/// Throws Error(Unfit) beyond 2³¹-1 entries.
zeph_solver::ProtoSparse assemble(SparseMatrix m, Triangles triangles);

/// The way back: a general matrix with the entries of p, which are moved out of it. Of a
/// vector-shaped p those that are not zero.
SparseMatrix takeEntries(zeph_solver::ProtoSparse& p, const std::string& source);

}  // namespace zeph

#endif
