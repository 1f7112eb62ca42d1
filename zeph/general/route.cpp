#include "zeph/general/route.h"

#include <cmath>
#include <utility>

#include "zeph/checks/matrix_check.h"
#include "zeph/checks/memory.h"
#include "zeph/checks/one_triangle.h"
#include "zeph/error.h"
#include "zeph/files/number_text.h"
#include "zeph/general/protosparse.h"
#include "zeph/matrix/merge.h"
#include "zeph/matrix/requirements.h"

namespace zeph {
namespace {

constexpr const char* kUseLu = "use LU (--lu)";

double entry(const SparseMatrix& m, std::size_t row, std::size_t col) {
  for (const Entry& e : m.entries) {
    if (e.row == row && e.col == col) return e.value;
  }
  return 0.0;
}

// Too few entries leave rows empty; found before memory is taken for that many rows.
void requireEntries(const SparseMatrix& m) {
  const std::size_t stored = m.entries.size();
  if ((m.symmetry == Symmetry::General ? stored : 2 * stored) >= m.rows) return;
  throw Error(ErrorKind::Singular, m.source + " is singular: it has fewer entries (" +
                                       std::to_string(stored) + ") than its " +
                                       std::to_string(m.rows) + " rows need");
}

// Why m is not symmetric, or nothing when it is.
std::string asymmetry(const SparseMatrix& m) {
  if (m.symmetry == Symmetry::Symmetric) return {};
  if (m.symmetry == Symmetry::SkewSymmetric) return m.source + " is skew-symmetric";
  const SymmetryReport report = findSymmetry(m);
  if (report.numerical) return {};
  return m.source + " is not symmetric: entry " + position(m.indexBase, report.row, report.col) +
         " is " + toText(entry(m, report.row, report.col)) + " but entry " +
         position(m.indexBase, report.col, report.row) + " is " +
         toText(entry(m, report.col, report.row));
}

// Merging may have overflowed.
void requireFiniteSums(const SparseMatrix& m) {
  for (const auto& [row, col, value] : m.entries) {
    if (std::isfinite(value)) continue;
    throw Error(ErrorKind::Unfit, "the entries at " + position(m.indexBase, row, col) + " of " +
                                      m.source + " add up to " + toText(value) +
                                      "; scale the equations");
  }
}

// A = -Aᵀ gives det A = (-1)ⁿ det A.
void requireEvenOrder(const SparseMatrix& m) {
  if (m.symmetry != Symmetry::SkewSymmetric || m.rows % 2 == 0) return;
  throw Error(ErrorKind::Singular, m.source +
                                       " is singular: a skew-symmetric matrix of odd order (" +
                                       std::to_string(m.rows) + ") has no inverse");
}

// Why diagonal entry i, found unusable, rules Cholesky out.
std::string diagonalFault(const SparseMatrix& m, std::size_t i) {
  const double diagonal = entry(m, i, i);
  return "diagonal entry " + position(m.indexBase, i, i) + " of " + m.source + " is " +
         toText(diagonal) +
         (diagonal == 0.0 ? "" : ", too small beside the other entries of its row");
}

PreparedMatrix scaled(PreparedMatrix m, bool symmetric) {
  m.scaling =
      m.choice.route == Route::Cholesky ? diagonalScaling(m.A) : equilibration(m.A, symmetric);
  applyScaling(m.scaling, m.A);
  return m;
}

}  // namespace

PreparedMatrix prepare(SparseMatrix m, Route asked, bool mayUseLu) {
  requireSquare(m);
  requireRoomForBlas("factorising " + m.source);
  requireFinite(m);
  requireBothTriangles(m);
  requireEntries(m);
  requireEvenOrder(m);
  mergeDuplicates(m);
  requireFiniteSums(m);
  const bool mayBeCholesky = asked == Route::Automatic || asked == Route::Cholesky;
  const std::string against = mayBeCholesky ? asymmetry(m) : std::string();
  if (!against.empty() && asked == Route::Cholesky) {
    throw Error(ErrorKind::Unfit, against + "; the Cholesky route needs a symmetric matrix" +
                                      (mayUseLu ? std::string(", ") + kUseLu : ""));
  }
  std::vector<std::size_t> unusable;
  if (mayBeCholesky && against.empty()) unusable = unusableDiagonal(m);

  RouteChoice choice{asked, "as asked"};
  if (!against.empty()) choice = {Route::Lu, against};
  if (!unusable.empty() && asked == Route::Automatic) {
    choice = {Route::Lu, diagonalFault(m, unusable.front())};
  } else if (choice.route == Route::Automatic) {
    choice = {Route::Cholesky, m.source + " is symmetric with a usable diagonal"};
  }
  const bool declared = m.symmetry == Symmetry::Symmetric;
  const bool upperOnly = declared && choice.route == Route::Cholesky;
  const std::string source = m.source;
  const std::size_t indexBase = m.indexBase;
  PreparedMatrix result{
      source,    indexBase, assemble(std::move(m), upperOnly ? Triangles::Upper : Triangles::Both),
      upperOnly, choice,    {},
      mayUseLu};
  if (!unusable.empty() && asked == Route::Cholesky) {
    zeph_solver::FactorisationStatus status;
    status.failedColumn = static_cast<int>(unusable.front());
    throw breakdown(result, status);
  }
  return scaled(std::move(result), declared || (mayBeCholesky && against.empty()));
}

void factorise(const PreparedMatrix& m, zeph_solver::Solver& solver,
               zeph_solver::Factorisation& f) {
  const bool cholesky = m.choice.route == Route::Cholesky;
  f.cholesky = cholesky;
  solver.factorise(m.A, &f);
  zeph_solver::FactorisationStatus status = zeph_solver::factorisationStatus(f);
  // The solver falls back to LU when CHOLMOD cannot analyse the matrix, for want of memory.
  if (cholesky && !f.cholesky) status.exhausted = true;
  if (status.exhausted || !(cholesky ? status.positiveDefinite : status.ok)) {
    throw breakdown(m, status);
  }
}

Error breakdown(const PreparedMatrix& m, const zeph_solver::FactorisationStatus& status) {
  if (status.exhausted) {
    return Error(ErrorKind::Memory,
                 "the factors of " + m.source + " do not fit into memory or into 2^31 entries");
  }
  const std::string where =
      status.failedColumn < 0
          ? std::string()
          : " at row " +
                std::to_string(static_cast<std::size_t>(status.failedColumn) + m.indexBase);
  if (m.choice.route == Route::Cholesky) {
    return Error(ErrorKind::NotPositiveDefinite,
                 m.source + " is not positive definite: the Cholesky factorisation broke down" +
                     where +
                     (m.mayUseLu ? std::string("; if it is meant to be indefinite, ") + kUseLu
                                 : "; only positive definite matrices have a Cholesky factor"));
  }
  return Error(ErrorKind::Singular, m.source +
                                        " is singular: the LU factorisation met a zero pivot" +
                                        where + "; the matrix has no inverse");
}

}  // namespace zeph
