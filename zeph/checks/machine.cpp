#include "zeph/checks/machine.h"

#include <dlfcn.h>
#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

#include "kernels/processor.h"
#include "sparse/ordering/libraries.h"
#include "zeph/build_facts.h"
#include "zeph/factor.h"
#include "zeph/factor/lu_backend.h"

namespace zeph {
namespace {

using korin::kernels::ProcessorLevel;

constexpr std::size_t kOrder = 400;
constexpr double kTolerance = 1e-9;

// A function of a library that may not be there, and that no header is needed for.
template <class Function>
Function* loaded(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_DEFAULT, name));
}

void addThreeNumbers(std::vector<std::pair<std::string, std::string>>& list, const char* name,
                     const char* function) {
  auto* const version = loaded<int(int*)>(function);
  if (version == nullptr) return;
  int v[3] = {};
  version(v);
  list.emplace_back(name,
                    std::to_string(v[0]) + "." + std::to_string(v[1]) + "." + std::to_string(v[2]));
}

const char* levelName(ProcessorLevel level) {
  switch (level) {
    case ProcessorLevel::Avx512:
      return "AVX-512";
    case ProcessorLevel::Avx2:
      return "AVX2";
    case ProcessorLevel::Baseline:
      break;
  }
  return "baseline";
}

// A chain of differences held at both ends: 2 on the diagonal, -1 beside it.
SparseMatrix chain(Symmetry symmetry) {
  SparseMatrix A;
  A.source = "the chain of the self-test";
  A.rows = A.cols = kOrder;
  A.symmetry = symmetry;
  for (std::uint32_t i = 0; i < kOrder; ++i) {
    A.entries.push_back({i, i, 2.0});
    if (i == 0) continue;
    A.entries.push_back({i, i - 1, -1.0});
    if (symmetry == Symmetry::General) A.entries.push_back({i - 1, i, -1.0});
  }
  return A;
}

// The largest relative error of variances, a solution and the determinant of the chain, whose
// inverse has the entries (min + 1) (n - max) / (n + 1).
double chainError(Route route) {
  Options options;
  options.route = route;
  const Factor f(chain(route == Route::Lu ? Symmetry::General : Symmetry::Symmetric), options);
  const std::vector<double> d = f.variances();
  const std::vector<double> x = f.solve(std::vector<double>(kOrder, 1.0));
  const double n = static_cast<double>(kOrder);
  double worst = std::abs(f.logDeterminant() / std::log(n + 1.0) - 1.0);
  for (std::size_t i = 0; i < kOrder; ++i) {
    const double k = static_cast<double>(i) + 1.0;
    worst = std::max({worst, std::abs(d[i] * (n + 1.0) / (k * (n + 1.0 - k)) - 1.0),
                      std::abs(x[i] * 2.0 / (k * (n + 1.0 - k)) - 1.0)});
  }
  return worst;
}

template <class Work>
SelfTestResult tested(std::string what, const Work& error) {
  try {
    const double e = error();
    char text[64];
    std::snprintf(text, sizeof text, "largest relative error %.1g", e);
    return {std::move(what), e <= kTolerance, text};
  } catch (const std::exception& e) {
    return {std::move(what), false, e.what()};
  }
}

}  // namespace

std::string versionText() {
  return std::string(kVersion) + ", sources of " + kSourceDate;
}

std::string sourceDate() {
  return kSourceDate;
}

std::string processorLevelText() {
  const ProcessorLevel used = korin::kernels::processorLevel();
  const ProcessorLevel there = korin::kernels::detectedProcessorLevel();
  std::string text = levelName(used);
  if (used != there) text += std::string(", of ") + levelName(there) + " (ZEPH_PROCESSOR)";
  return text;
}

std::vector<std::pair<std::string, std::string>> componentVersions() {
  std::vector<std::pair<std::string, std::string>> list;
  list.emplace_back("AMD", korin::sparse::minimumDegreeVersion());
  list.emplace_back("METIS", korin::sparse::separatorVersion());
  addThreeNumbers(list, "SuiteSparse", "SuiteSparse_version");
  addThreeNumbers(list, "CHOLMOD", "cholmod_version");
  if (auto* const config = loaded<char*()>("openblas_get_config")) {
    list.emplace_back("BLAS", config());
  } else if (loaded<void()>("dgemm_") != nullptr) {
    list.emplace_back("BLAS", "one that does not say which");
  }
  list.emplace_back("zlib", zlibVersion());
  list.emplace_back("compiler", kCompiler);
  return list;
}

std::vector<SelfTestResult> selfTest() {
  std::vector<SelfTestResult> results;
  results.push_back(tested("Cholesky", [] { return chainError(Route::Cholesky); }));
  if (hasLuRoute()) results.push_back(tested("LU", [] { return chainError(Route::Lu); }));
  results.push_back(tested("nested dissection", [] {
    Options options;
    options.ordering = Ordering::NestedDissection;
    const double n = static_cast<double>(kOrder);
    return std::abs(
        Factor(chain(Symmetry::Symmetric), options).logDeterminant() / std::log(n + 1.0) - 1.0);
  }));
  results.push_back(tested("a free network is refused", [] {
    SparseMatrix A = chain(Symmetry::Symmetric);
    for (Entry& e : A.entries) {
      if (e.row == e.col && (e.row == 0 || e.row + 1 == kOrder)) e.value = 1.0;
    }
    try {
      const Factor f(A);
      f.variances();
    } catch (const Error& e) {
      if (e.kind() == ErrorKind::Singular) return 0.0;
    }
    return std::numeric_limits<double>::infinity();
  }));
  return results;
}

}  // namespace zeph
