#include <algorithm>
#include <iterator>
#include <string>

#include "distributed/mumps/instance.h"
#include "zeph/factor/trust.h"

namespace zeph::distributed {

bool wantsMoreWorkspace(MUMPS_INT status) {
  constexpr MUMPS_INT kSuch[] = {-8, -9, -11, -12, -14, -15, -17, -20};
  return std::find(std::begin(kSuch), std::end(kSuch), status) != std::end(kSuch);
}

Error negativePivots(const std::string& source, MUMPS_INT count) {
  const std::string number = count > 0 ? std::to_string(count) : "some";
  return Error(ErrorKind::NotPositiveDefinite,
               source + " is not positive definite: " + number +
                   " of its pivots are negative; if it is meant to be indefinite, use LU (--lu)");
}

Error mumpsError(MUMPS_INT status, MUMPS_INT detail, const std::string& source) {
  const std::string figures =
      " (MUMPS, status " + std::to_string(status) + ", " + std::to_string(detail) + ")";
  const auto memory = [&](const std::string& why) {
    return Error(ErrorKind::Memory, "not enough memory for " + source + why + figures);
  };
  if (wantsMoreWorkspace(status)) {
    return memory(": its factor grows beyond every forecast; use more processes");
  }
  switch (status) {
    case -5:
    case -7:
      return memory(": its analysis runs on the first process; give that a larger machine");
    case -13:
      return memory("; use more processes, or keep the factor in files (a scratch folder)");
    case -19:
      return memory(
          " within the limit of a process; raise it, use more processes, or keep the factor in "
          "files (a scratch folder)");
    case -6:
      return Error(ErrorKind::Singular, source + " is singular by its structure: at most " +
                                            std::to_string(detail) +
                                            " of its rows are independent, whatever the values");
    case -10:
      return singular(source);
    case -40:
      return Error(ErrorKind::NotPositiveDefinite,
                   source +
                       " is not positive definite: its Cholesky factorisation broke down; if it "
                       "is meant to be indefinite, use LU (--lu)");
    case -38:
    case -50:
    case -88:
    case -89:
      return Error(ErrorKind::Memory, "the ordering of " + source + " failed" + figures +
                                          ", mostly for want of memory on the first process");
    case -51:
    case -52:
      return Error(ErrorKind::Unfit, source +
                                         " has more entries than the ordering libraries of this "
                                         "MUMPS can count" +
                                         figures);
    case -90:
      return Error(ErrorKind::Output,
                   "the scratch files of the factor of " + source +
                       " cannot be written or read; is there room in the scratch folder?" +
                       figures);
    default:
      return Error(ErrorKind::Unfit, "MUMPS cannot go on with " + source + figures);
  }
}

}  // namespace zeph::distributed
