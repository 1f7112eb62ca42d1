#include "zeph/factor/trust.h"

#include <limits>

namespace zeph {
namespace {

constexpr double kSafety = 10.0;
constexpr double kFloor = 16.0;

}  // namespace

double relativeErrorEstimate(double identityResidual) {
  return kSafety * identityResidual + kFloor * std::numeric_limits<double>::epsilon();
}

Error notPositiveDefinite(const std::string& source, std::size_t indexBase, std::int64_t row) {
  return Error(ErrorKind::NotPositiveDefinite,
               source + " is not positive definite: the Cholesky factorisation broke down at row " +
                   std::to_string(static_cast<std::size_t>(row) + indexBase) +
                   "; if it is meant to be indefinite, use LU (--lu)",
               row);
}

Error singular(const std::string& source) {
  return Error(
      ErrorKind::Singular,
      source + " is singular to working precision; no digit of its inverse can be trusted");
}

}  // namespace zeph
