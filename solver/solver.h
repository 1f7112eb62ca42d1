// Direct solution of A X = B: sparse Cholesky (CHOLMOD) for symmetric positive-definite matrices,
// sparse LU (UMFPACK) for general square ones, with factorisations that can be kept and reused.
#ifndef ZEPH_SOLVER_SOLVER_H
#define ZEPH_SOLVER_SOLVER_H

#include <memory>

#include "math/dense/korin_vector.h"
#include "solver/assembly/protosparse.h"
#include "solver/suitesparse/suitesparse_handles.h"
#include "solver/zeph_export.h"
#include "types/zttypes.h"

namespace zeph_solver {

class Solver;

/// One numeric factorisation, made by a Solver and reused for further right-hand sides.
///
/// Either the CHOLMOD objects are filled or the UMFPACK arrays and handle; `cholesky` tells which.
/// It must not outlive the Solver it is bound to, and the two are used from one thread at a time.
class ZEPH_EXPORT Factorisation {
 public:
  /// True: CHOLMOD route. Read by Solver::factorise; every factorisation records the route taken.
  bool cholesky = false;
  /// The Solver whose workspace the CHOLMOD objects belong to; not owned.
  Solver* solver;
  int rows = 0;  ///< of the factorised matrix
  int cols = 0;  ///< of the factorised matrix
  /// UMFPACK route: the matrix in compressed columns (duplicates summed, both triangles).
  OwnedArray<double> values;
  OwnedArray<int> rowIndices;   ///< of the same, zero-based, ascending in each column
  OwnedArray<int> colPointers;  ///< of the same, cols + 1 entries
  UmfpackNumeric numeric;       ///< its factors
  /// CHOLMOD route: the converted matrix, symmetric, upper triangle read.
  CholmodHandle<cholmod_sparse> cholmodMatrix;
  CholmodHandle<cholmod_factor> cholmodFactor;  ///< its factor

  /// Empty, for s to fill.
  explicit Factorisation(Solver* s);
  Factorisation(const Factorisation&) = delete;
  Factorisation& operator=(const Factorisation&) = delete;
  ~Factorisation();

  /// min(rows, cols).
  int size() const;
  /// Releases everything; rows, cols and cholesky stay.
  void clear();
  /// Clears, stores the size and allocates the compressed-column arrays, whose contents are not
  /// set. Throws std::bad_array_new_length for counts that cannot be allocated.
  void init(int rowCount, int colCount, int nnz);
  /// Sorts A's elements and fills the compressed-column arrays with the whole matrix.
  void init(const ProtoSparse& A);
  /// Always 0: fill-in is not counted.
  ZEPH_EXPORT int nnzL() const { return 0; }
  /// Always 0, as nnzL.
  ZEPH_EXPORT int nnzU() const { return 0; }
};

/// One solver workspace. Not to be used from two threads at once; separate Solvers are independent.
///
///     zeph_solver::Solver solver(zeph_solver::Solver::kNestedDissection);
///     zeph_solver::Factorisation kept(&solver);
///     solver.solveGeneric(A, x, b, /*useCholesky=*/true, &kept, /*refactorise=*/true);
///     solver.solveGeneric(A, y, c, true, &kept, false);
class ZEPH_EXPORT Solver {
 public:
  /// The `ordering` that every route of this library asks for.
  static constexpr int kNestedDissection = 3;

  /// Six stage times, all zero: no clock is read.
  std::unique_ptr<ZtVector> solveTimes;
  /// The CHOLMOD workspace, reached as common->get().
  std::unique_ptr<CholmodCommon> common;

  /// `ordering` 1 to 9 makes that entry of CHOLMOD's list of ordering methods the only one tried
  /// (kNestedDissection is one). Any other value leaves entry 0, which expects a permutation from
  /// the user: analysis then fails and the Cholesky route falls back to LU.
  explicit Solver(int ordering);
  Solver(const Solver&) = delete;
  Solver& operator=(const Solver&) = delete;
  ~Solver();

  /// Factorises A into *f by the route that f->cholesky asks for. Sorts A's elements. f must not be
  /// null. Failures are not reported.
  void factorise(const ProtoSparse& A, Factorisation* f);

  /// Solves A X = B.
  ///
  /// A is n x n, B n x k and X must already be n x k; it is not resized. Sorts A's elements when it
  /// factorises. With useCholesky only A's upper triangle is read.
  ///  - f null: A is factorised for this call only and `refactorise` is ignored.
  ///  - f given, refactorise: A is factorised into *f.
  ///  - f given, not refactorise: *f is reused, and useCholesky must name the route that made it.
  ///  - solve false: stop after factorising.
  ///
  /// A failed analysis falls back to LU for the call. A matrix that is not positive definite or
  /// singular is not reported; a solve by LU that cannot be carried out leaves NaN in X.
  /// Throws ZtException (256, "... Failed to do cholmod_solve, cmX = nullptr") when CHOLMOD gives
  /// no solution, for example because the reused factorisation was made by LU; X is unchanged then.
  /// Throws std::length_error for more than 2^31 - 1 elements.
  void solveGeneric(const ProtoSparse& A, ZtMatrix& X, const ZtMatrix& B, bool useCholesky,
                    Factorisation* f, bool refactorise, bool solve);
  /// The same for one right-hand side; x must already hold n entries.
  void solveGeneric(const ProtoSparse& A, ZtVector& x, const ZtVector& b, bool useCholesky,
                    Factorisation* f, bool refactorise);

  /// Copies the six stage times and their labels ("Total", "Convert", "Factorization", "B",
  /// "SolveX", "ExtractX"). The times are zero after every call.
  void lastSolveTimes(korin::Vector& times, ZtStringArray& labels) const;
};

/// Converts A to a newly allocated CHOLMOD matrix (symmetric, upper triangle read, sorted, packed).
/// Sorts A's elements. `out` is overwritten, not freed; it is null when CHOLMOD refuses the shape.
void protoSparseToCholmodSparse(const ProtoSparse& A, cholmod_sparse*& out, cholmod_common* common);

}  // namespace zeph_solver

#endif
