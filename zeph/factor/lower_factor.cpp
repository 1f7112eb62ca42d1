#include "zeph/factor/lower_factor.h"

#include <optional>
#include <utility>

#include "zeph/checks/guarded.h"
#include "zeph/factor/cholesky_backend.h"
#include "zeph/factor/first_route.h"
#include "zeph/files/atomic_file.h"
#include "zeph/files/matrix_file.h"
#include "zeph/files/number_text.h"
#include "zeph/matrix/merge.h"

namespace zeph {
namespace {

Error noFactor(const SparseMatrix& A, std::int64_t row) {
  return Error(ErrorKind::NotPositiveDefinite,
               A.source +
                   " is not positive definite: the Cholesky factorisation broke down at row " +
                   std::to_string(static_cast<std::size_t>(row) + A.indexBase) +
                   "; only positive definite matrices have a Cholesky factor",
               row);
}

}  // namespace

CholeskyFactor lowerFactor(const SparseMatrix& A, const Options& options) {
  return guarded(A.source, [&] {
    requireFactorable(A);
    Watch watch(options);
    watch.begin("assembling", 0.0);
    std::string against;
    SymmetricInput input = symmetricInput(A, against);
    if (!against.empty()) {
      throw Error(ErrorKind::Unfit, against + "; only a symmetric matrix has a Cholesky factor");
    }
    if (input.unusableDiagonal >= 0) throw noFactor(A, input.unusableDiagonal);
    CholeskyBackend factorised(std::move(input), options, watch);
    const std::int64_t entries = factorised.predicted().entriesOfL;
    if (entries > static_cast<std::int64_t>(kLargestSize)) {
      throw Error(ErrorKind::Unfit, "the factor of " + A.source + " has " +
                                        std::to_string(entries) +
                                        " entries; a matrix to be written has no more than " +
                                        std::to_string(kLargestSize));
    }
    try {
      factorised.factorise(A, watch);
    } catch (const Error& e) {
      if (e.kind() != ErrorKind::NotPositiveDefinite) throw;
      throw noFactor(A, e.row());
    }
    CholeskyFactor result;
    result.L = factorised.lower(result.perm, watch);
    mergeDuplicates(result.L);
    return result;
  });
}

void writeFactor(const std::string& path, const std::string& permPath, CholeskyFactor factor) {
  guarded(path, [&] {
    AtomicFile out(path);
    std::optional<AtomicFile> order;
    if (!permPath.empty()) {
      order.emplace(permPath);
      std::string text;
      for (const std::uint32_t index : factor.perm) {
        appendIndex(text, index);
        text += '\n';
      }
      order->write(text);
    }
    writeSparse(out, std::move(factor.L));
    AtomicFile::commitAll({&out, order ? &*order : nullptr});
  });
}

}  // namespace zeph
