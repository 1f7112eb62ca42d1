// Prints the seconds of factor and variances against the order, for shapes that invite quadratic
// work: growth_numbers [LARGEST ORDER].
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

#include "zeph/factor.h"

namespace {

using zeph::SparseMatrix;
using Index = std::uint32_t;

SparseMatrix symmetric(Index n, const std::function<Index(Index)>& other, double diagonal) {
  SparseMatrix A;
  A.rows = A.cols = n;
  A.symmetry = zeph::Symmetry::Symmetric;
  for (Index i = 0; i < n; ++i) {
    if (diagonal != 0.0) A.entries.push_back({i, i, diagonal});
    const Index j = other(i);
    if (j != i) A.entries.push_back({std::max(i, j), std::min(i, j), -1.0});
  }
  return A;
}

SparseMatrix shaped(const std::string& shape, Index n) {
  const auto before = [](Index i) { return i == 0 ? 0 : i - 1; };
  if (shape == "path") return symmetric(n, before, 3.0);
  if (shape == "arrow, hub first")
    return symmetric(
        n, [](Index) { return Index{0}; }, 1.0 + n);
  if (shape == "arrow, hub last")
    return symmetric(
        n, [n](Index) { return n - 1; }, 1.0 + n);
  if (shape == "tridiagonal, zero diagonal") return symmetric(n, before, 0.0);
  SparseMatrix A = symmetric(n, before, shape == "dense row beside a path" ? 3.0 + n : 3.0);
  if (shape == "dense row beside a path") {
    for (Index i = 2; i < n; ++i) A.entries.push_back({i, 0, -1.0});
  } else {  // each entry in eight equal parts
    const std::size_t once = A.entries.size();
    for (zeph::Entry& e : A.entries) e.value /= 8.0;
    for (int part = 1; part < 8; ++part) {
      for (std::size_t k = 0; k < once; ++k) A.entries.push_back(A.entries[k]);
    }
  }
  return A;
}

}  // namespace

int main(int count, char** arguments) {
  const auto largest = static_cast<Index>(count > 1 ? std::atol(arguments[1]) : 400000);
  std::printf("| shape | order %u | %u | %u |\n|---|---|---|---|\n", largest / 4, largest / 2,
              largest);
  for (const char* shape :
       {"path", "arrow, hub first", "arrow, hub last", "dense row beside a path",
        "tridiagonal, zero diagonal", "path, all entries eight times"}) {
    std::printf("| %s", shape);
    for (const Index n : {largest / 4, largest / 2, largest}) {
      const SparseMatrix A = shaped(shape, n);
      const auto begin = std::chrono::steady_clock::now();
      zeph::Options o;
      o.threads = 1;
      zeph::Factor(A, o).variances();
      const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;
      std::printf(" | %.2f s", seconds.count());
      std::fflush(stdout);
    }
    std::puts(" |");
  }
  return 0;
}
