#include "zeph/factor/trust.h"

#include <limits>

#include "zeph/factor.h"
#include "zeph/files/number_text.h"

namespace zeph {
namespace {

constexpr double kEpsilon = std::numeric_limits<double>::epsilon();
constexpr double kSafety = 6.0;
constexpr double kProducts = 2.0 * kEpsilon;
constexpr double kMostProducts = 24.0 * kEpsilon;
constexpr double kFloor = 16.0 * kEpsilon;

}  // namespace

double relativeErrorEstimate(double residualNorm, double productNorm) {
  // Written so that a NaN of either stays one.
  const double first = kSafety * residualNorm, second = kProducts * productNorm;
  const double larger = first >= second || first != first ? first : second;
  const double most = kMostProducts * productNorm;
  return (larger > most ? most : larger) + kFloor;
}

std::string doubtSentence(const std::string& what, double error, const std::string& unknown) {
  std::string size;
  appendDigits(size, error, 1);
  return "the relative error of " + what + " may reach " + size + ", first of all at " + unknown +
         ": it is hardly determined";
}

std::vector<std::string> warningsOf(const GivenResult& result, const std::string& source,
                                    std::size_t indexBase, std::size_t rows) {
  const auto unknown = [&](std::int64_t row) {
    return "unknown " + std::to_string(static_cast<std::size_t>(row) + indexBase) + " of " + source;
  };
  std::vector<std::string> sentences;
  if (result.uncertain > 0) {
    sentences.push_back(std::to_string(result.uncertain) + " of the " + std::to_string(rows) +
                        " entries cancel to nearly nothing, the first of them that of " +
                        unknown(result.firstUncertain) + ": no digit of these is certain");
  }
  if (result.error > kDoubtfulError) {
    sentences.push_back(doubtSentence(result.what, result.error, unknown(result.unknown)));
  }
  return sentences;
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
