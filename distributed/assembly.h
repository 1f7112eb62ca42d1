// The matrix that the shares of all processes add up to, cut into ranges of columns.
#ifndef ZEPH_DISTRIBUTED_ASSEMBLY_H
#define ZEPH_DISTRIBUTED_ASSEMBLY_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "distributed/communication.h"
#include "sparse/pattern/slots.h"
#include "zeph/sparse_matrix.h"

namespace zeph::distributed {

/// Where the entries of the shares went: new values take the same way, without indices. A place and
/// its mirror image are a pair; pairs are counted in the order of Assembled::entries.
struct Destinations {
  Symmetry symmetry = Symmetry::General;  ///< of the shares
  korin::sparse::Slots owner;             ///< of each entry of this process's share: a process
  /// Of each entry that comes to this process: its pair; mirrored, the place above the diagonal.
  korin::sparse::Slots pair;
  std::vector<std::size_t> coming;  ///< how many of them, from each process
  std::size_t pairs = 0;            ///< that this process has
};

/// A as it lies after assembly: every entry once. Process p holds the columns firstColumn[p] to
/// firstColumn[p+1] - 1 of the lower triangle, and of a matrix that is not symmetric the same rows
/// of the upper one too. All but `entries` and `destinations` is the same on all processes.
struct Assembled {
  std::string source;         ///< for messages, as that of SparseMatrix
  std::size_t indexBase = 0;  ///< for messages
  std::size_t n = 0;
  std::string against;  ///< why A is not symmetric; empty when it is, and `entries` is a triangle
  std::int64_t unusableDiagonal = -1;     ///< first row whose diagonal entry is not positive, or -1
  std::int64_t positions = 0;             ///< of the whole matrix, both triangles
  std::vector<std::int64_t> firstColumn;  ///< one more than processes
  /// Of this process: ascending by the smaller index, then the larger one, the lower one first.
  std::vector<Entry> entries;
  Destinations destinations;

  bool symmetric() const { return against.empty(); }
};

/// Checks the shares as zeph::Factor checks a matrix, sends every entry to the process that owns
/// its place, and adds up what meets there, in the order of the processes. Each process gets about
/// as many entries. Memory: twice the share and twice what is owned; of that stay, beside the
/// entries, 2 to 8 bytes for each entry given. Throws the same Error on all.
Assembled assemble(const Communicator& comm, const SparseMatrix& share);

/// Throws the same Error on all where a process has not as many values as its share has entries.
void requireValues(const Communicator& comm, const double* values, std::size_t count,
                   const Assembled& A);

/// New values for the same shares, those of this process in the order of its entries: all of A
/// that depends on values but `against`. Returns why an A that was symmetric is not any more; empty
/// where it is, and for all others. Throws the same Error on all, after which A's values are of no
/// use.
std::string assembleAgain(const Communicator& comm, const double* values, Assembled& A);

/// out = b - A x and size = |A| |x| + |b| for whole vectors, on every process.
void residual(const Communicator& comm, const Assembled& A, const double* x, const double* b,
              double* out, double* size);

}  // namespace zeph::distributed

#endif
