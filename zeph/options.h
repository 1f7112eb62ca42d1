#ifndef ZEPH_OPTIONS_H
#define ZEPH_OPTIONS_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace zeph {

/// How a square system is factorised.
enum class Route {
  Automatic,  ///< Cholesky when A is symmetric with a usable diagonal, LU otherwise
  Cholesky,   ///< for symmetric positive definite A
  Lu,         ///< for any non-singular A
  LuSolves    ///< LU with one solve for every variance; slow, for comparison
};

/// The order in which the Cholesky route eliminates the unknowns. It decides fill and cost, not the
/// results.
enum class Ordering {
  Automatic,         ///< minimum degree, and nested dissection where that promises to pay
  MinimumDegree,     ///< approximate minimum degree
  NestedDissection,  ///< graph partitioning; dearer, better for grids in three dimensions
  Natural,           ///< as the rows stand
  Given              ///< Options::permutation
};

/// Called on the caller's thread now and then with the stage and the share of it that is done, 0
/// to 1; returns false to stop, upon which the call throws Error(Cancelled). What it throws comes
/// through.
using ProgressCall = std::function<bool(const char* stage, double share)>;

/// How a matrix is factorised, and with how much of the machine. The defaults suit nearly everyone.
struct Options {
  Route route = Route::Automatic;           ///< Cholesky, LU, or what fits the matrix
  Ordering ordering = Ordering::Automatic;  ///< of elimination, on the Cholesky route

  /// For Ordering::Given: permutation[k] is the row of A that is eliminated as the k-th,
  /// zero-based.
  std::vector<std::int64_t> permutation;

  /// Threads that work on one call; 0 for all processors, 1 to stay on the caller's thread. The
  /// bits of the results do not depend on it.
  int threads = 0;

  /// Outside the ordering libraries it is called at least ten times a second.
  ProgressCall progress;

  /// Bytes that the factor may take together with what any call takes beside it; 0 for what the
  /// machine has. A result of many columns or entries that a call returns is held against it by
  /// itself. A need above it is predicted and refused with Error(Memory) before the memory is
  /// taken. Where several threads on parts of the factor of their own, or columns of a result, are
  /// what is too much, the threads help one, and fewer columns are worked on at once: that takes
  /// time and changes no bit. By LU, whose fill depends on the pivots, what UMFPACK has taken is
  /// known when its factors are there; what follows is predicted again.
  double memoryLimit = 0.0;

  /// A folder on a disk, for a Cholesky factor that does not fit into memory: where it, together
  /// with what factorising or inverting takes beside it, is predicted to exceed the limit above or
  /// what the machine or a control group has, its panels go into a file there. The file has no
  /// name and is gone with the factor or the process, however that ends; its room is reserved
  /// before the work, or refused with Error(Output). Results keep their bits; the time depends on
  /// the disk. Empty: never. Not for LU.
  std::string scratchFolder;
};

}  // namespace zeph

#endif
