#include "zeph/operations.h"

#include <cmath>
#include <utility>

#include "solver/partial_inverse_chol.h"
#include "zeph/checks/guarded.h"
#include "zeph/checks/route.h"
#include "zeph/files/atomic_file.h"
#include "zeph/files/number_text.h"

namespace zeph {
namespace {

// Column of L at which the factorisation broke down: the first one without a positive, finite
// diagonal entry; L's columns when there is none.
std::size_t brokenColumn(const SparseMatrix& L) {
  std::size_t next = 0;
  for (const auto& e : L.entries) {
    if (e.row != e.col) continue;
    if (e.col != next || !(e.value > 0.0) || !std::isfinite(e.value)) return next;
    ++next;
  }
  return next;
}

}  // namespace

CholeskyFactor factor(SparseMatrix A, bool reorder, const Progress& progress) {
  const std::string source = A.source;
  return guarded(source, [&] {
    progress.begin("checking and sorting");
    PreparedMatrix m = prepare(std::move(A), Route::Cholesky);
    progress.begin("factorising");
    zeph_solver::ProtoSparse L;
    CholeskyFactor result;
    if (reorder) result.perm.resize(m.size());
    zeph_solver::FactorisationStatus status;
    try {
      zeph_solver::choleskyFactor(m.A, L, reorder ? result.perm.data() : nullptr);
    } catch (const ZtException&) {
      status.exhausted = true;
      throw breakdown(m, status);
    }
    result.L = takeEntries(L, "the factor of " + m.source);
    const std::size_t broken = brokenColumn(result.L);
    if (broken < m.size()) {
      status.failedColumn = static_cast<int>(reorder ? result.perm[broken] : broken);
      throw breakdown(m, status);
    }
    return result;
  });
}

void writePermutation(const std::string& path, const std::vector<std::uint32_t>& perm) {
  AtomicFile out(path);
  std::string text;
  for (const std::uint32_t index : perm) {
    appendIndex(text, index);
    text += '\n';
  }
  out.write(text);
  out.commit();
}

}  // namespace zeph
