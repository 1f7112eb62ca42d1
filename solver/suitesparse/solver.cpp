#include "solver/solver.h"

#include <cholmod.h>
#include <umfpack.h>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <utility>
#include <vector>

#include "math/dense/korin_matrix.h"
#include "math/dense/korin_vector.h"
#include "math/dense/zt_error.h"
#include "solver/assembly/compressed_columns.h"
#include "solver/assembly/element_count.h"
#include "solver/assembly/matrix_views.h"
#include "solver/assembly/protosparse.h"

namespace zeph_solver {

namespace {

constexpr int kStageCount = 6;
constexpr int kFirstChoosableOrdering = 1;
constexpr int kLastChoosableOrdering = 9;

// Inline, and asked for as symbols too.
[[gnu::used]] int (Factorisation::*const kInlineCounts[])() const = {&Factorisation::nnzL,
                                                                     &Factorisation::nnzU};

void fillNaN(ZtMatrix& m) {
  for (ZtSize r = 0; r < m.rows; ++r) {
    std::fill_n(m.data + r * m.stride, m.cols, std::numeric_limits<double>::quiet_NaN());
  }
}

/// Analyses and factorises on the CHOLMOD route; false when the analysis yields no factor.
bool factoriseCholesky(const ProtoSparse& A, Factorisation& f, cholmod_common* common) {
  f.cholesky = true;
  f.init(static_cast<int>(A.rowCount), static_cast<int>(A.colCount),
         static_cast<int>(requireCountable(A.nz())));
  cholmod_sparse* converted = nullptr;
  protoSparseToCholmodSparse(A, converted, common);
  // Freed with the workspace of the Solver that f is bound to: this one may be gone by then.
  cholmod_common* owner = f.solver != nullptr ? f.solver->common->get() : common;
  f.cholmodMatrix.reset(converted, owner);
  f.cholmodFactor.reset(cholmod_analyze(f.cholmodMatrix, common), owner);
  if (f.cholmodFactor == nullptr) return false;
  cholmod_factorize(f.cholmodMatrix, f.cholmodFactor, common);
  return true;
}

void factoriseLU(const ProtoSparse& A, Factorisation& f) {
  f.cholesky = false;
  f.init(A);
  void* symbolic = nullptr;
  void* numeric = nullptr;
  umfpack_di_symbolic(f.rows, f.cols, f.colPointers, f.rowIndices, f.values, &symbolic, nullptr,
                      nullptr);
  umfpack_di_numeric(f.colPointers, f.rowIndices, f.values, symbolic, &numeric, nullptr, nullptr);
  umfpack_di_free_symbolic(&symbolic);
  f.numeric.reset(numeric);
}

/// B as a column-major CHOLMOD matrix.
CholmodHandle<cholmod_dense> toCholmodDense(const ZtMatrix& B, cholmod_common* common) {
  CholmodHandle<cholmod_dense> dense(
      cholmod_allocate_dense(B.rows, B.cols, B.rows, CHOLMOD_REAL, common), common);
  if (dense != nullptr) {
    korin::Matrix columns(B.cols, B.rows, B.rows, static_cast<ZtReal*>(dense->x), kZtView);
    columns.setTransposeOf(B);
  }
  return dense;
}

/// False when CHOLMOD gives no solution; X is untouched then.
bool solveCholesky(ZtMatrix& X, const ZtMatrix& B, const Factorisation& f, cholmod_common* common) {
  CholmodHandle<cholmod_dense> right = toCholmodDense(B, common);
  CholmodHandle<cholmod_dense> solution(cholmod_solve(CHOLMOD_A, f.cholmodFactor, right, common),
                                        common);
  right.reset();
  if (solution == nullptr) return false;
  if (X.rows * X.cols > solution->nrow * solution->ncol) {
    fillNaN(X);  // X is larger than the solution: nothing sensible to deliver
    return true;
  }
  const korin::Matrix columns(X.cols, X.rows, X.rows, static_cast<ZtReal*>(solution->x), kZtView);
  korin::Matrix target(X.rows, X.cols, X.stride, X.data, kZtView);
  target.setTransposeOf(columns);
  return true;
}

/// One UMFPACK solve a right-hand side, on workspace that is obtained once.
void solveLU(ZtMatrix& X, const ZtMatrix& B, const Factorisation& f) {
  const ZtSize n = static_cast<ZtSize>(f.cols);
  // Of a right-hand side that is longer than A the first n entries count.
  if (f.numeric == nullptr || B.rows < static_cast<ZtSize>(f.rows) || X.rows != n) {
    fillNaN(X);
    return;
  }
  // A few columns at a time, unless X is written where B is still to be read.
  constexpr ZtSize kColumns = 16;
  const ZtSize most = sharesMemory(X, B) ? X.cols : std::min(kColumns, X.cols);
  korin::Matrix rightRows(most, B.rows), solutionRows(most, n);
  // What the solves need with iterative refinement, which is on by default.
  std::vector<int> indexWork(n);
  std::vector<double> realWork(5 * n);
  for (ZtSize first = 0; first < X.cols; first += most) {
    const ZtSize count = std::min(most, X.cols - first);
    const ZtSize solves = first < B.cols ? std::min(count, B.cols - first) : 0;
    fillNaN(solutionRows);
    if (solves > 0) {
      const korin::Matrix right(B.rows, solves, B.stride, B.data + first, kZtView);
      korin::Matrix(solves, B.rows, rightRows, 0, 0).setTransposeOf(right);
    }
    for (ZtSize k = 0; k < solves; ++k) {
      umfpack_di_wsolve(UMFPACK_A, f.colPointers, f.rowIndices, f.values, &solutionRows(k, 0),
                        &rightRows(k, 0), f.numeric, nullptr, nullptr, indexWork.data(),
                        realWork.data());
    }
    korin::Matrix target(n, count, X, 0, first);
    target.setTransposeOf(korin::Matrix(count, n, solutionRows, 0, 0));
  }
}

ZtStringArray makeSolveLabels() {
  ZtStringArray labels;
  for (const char* label : {"Total", "Convert", "Factorization", "B", "SolveX", "ExtractX"}) {
    labels.append(label);
  }
  return labels;
}

}  // namespace

void protoSparseToCholmodSparse(const ProtoSparse& A, cholmod_sparse*& out,
                                cholmod_common* common) {
  // Counted before sorting; duplicates may leave part of the room unused.
  const std::size_t room = requireCountable(A.nz());
  constexpr int kSorted = 1;
  constexpr int kPacked = 1;
  constexpr int kUpperTriangle = 1;
  out = cholmod_allocate_sparse(static_cast<int>(A.rowCount), static_cast<int>(A.colCount), room,
                                kSorted, kPacked, kUpperTriangle, CHOLMOD_REAL, common);
  A.sortElements();
  if (out == nullptr) return;
  fillCompressedColumns(A, static_cast<int*>(out->p), static_cast<int*>(out->i),
                        static_cast<double*>(out->x));
}

Factorisation::Factorisation(Solver* s) : solver(s) {}

Factorisation::~Factorisation() {
  try {
    clear();
  } catch (...) {
  }
}

int Factorisation::size() const {
  return cols < rows ? cols : rows;
}

void Factorisation::clear() {
  values.reset();
  rowIndices.reset();
  colPointers.reset();
  numeric.reset();
  cholmodFactor.reset();
  cholmodMatrix.reset();
}

void Factorisation::init(int rowCount, int colCount, int nnz) {
  clear();
  rows = rowCount;
  cols = colCount;
  values.allocate(nnz);
  rowIndices.allocate(nnz);
  colPointers.allocate(static_cast<std::ptrdiff_t>(colCount) + 1);
}

void Factorisation::init(const ProtoSparse& A) {
  A.sortElements();
  init(static_cast<int>(A.rowCount), static_cast<int>(A.colCount),
       static_cast<int>(requireCountable(A.nz())));
  std::fill_n(colPointers.get(), cols + 1, 0);
  fillCompressedColumns(A, colPointers.get(), rowIndices.get(), values.get());
}

Solver::Solver(int ordering) : common(std::make_unique<CholmodCommon>()) {
  cholmod_common* c = common->get();
  c->nmethods = 1;
  if (ordering >= kFirstChoosableOrdering && ordering <= kLastChoosableOrdering) {
    std::swap(c->method[0], c->method[ordering]);
  }
  solveTimes = std::make_unique<ZtVector>(static_cast<ZtSize>(kStageCount));
  ZtVector_setZero(solveTimes.get());
}

Solver::~Solver() = default;

void Solver::factorise(const ProtoSparse& A, Factorisation* f) {
  ZtMatrix noSolution;
  const ZtMatrix noRightSide;
  solveGeneric(A, noSolution, noRightSide, f->cholesky, f, true, false);
}

void Solver::solveGeneric(const ProtoSparse& A, ZtMatrix& X, const ZtMatrix& B, bool useCholesky,
                          Factorisation* f, bool refactorise, bool solve) {
  Factorisation temporary(this);
  Factorisation& used = f != nullptr ? *f : temporary;
  bool cholesky = useCholesky;
  if (f == nullptr || refactorise) {
    cholesky = useCholesky && factoriseCholesky(A, used, common->get());
    if (!cholesky) factoriseLU(A, used);
  }
  if (solve && cholesky && !solveCholesky(X, B, used, common->get())) {
    korin::throwError(__PRETTY_FUNCTION__, "Failed to do cholmod_solve, cmX = nullptr");
  }
  if (solve && !cholesky) solveLU(X, B, used);
  ZtVector_setZero(solveTimes.get());
}

void Solver::solveGeneric(const ProtoSparse& A, ZtVector& x, const ZtVector& b, bool useCholesky,
                          Factorisation* f, bool refactorise) {
  const korin::Matrix right(b.size, 1, 1, b.data, kZtView);
  korin::Matrix solution(x.size, 1, 1, x.data, kZtView);
  solveGeneric(A, solution, right, useCholesky, f, refactorise, true);
}

void Solver::lastSolveTimes(korin::Vector& times, ZtStringArray& labels) const {
  static const ZtStringArray solveLabels = makeSolveLabels();
  ZtVector_copy(&times, solveTimes.get());
  if (&labels != &solveLabels) labels = solveLabels;
}

}  // namespace zeph_solver
