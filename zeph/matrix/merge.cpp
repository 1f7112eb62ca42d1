#include "zeph/matrix/merge.h"

#include <algorithm>
#include <string>

#include "math/sorting/mtsort.h"
#include "zeph/error.h"

namespace zeph {
namespace {

using Entries = std::vector<Entry>;

void appendMirrored(Entries& entries, double sign) {
  std::size_t offDiagonal = 0;
  for (const auto& e : entries) offDiagonal += e.row != e.col;
  const std::size_t stored = entries.size();
  entries.reserve(stored + offDiagonal);
  for (std::size_t k = 0; k < stored; ++k) {
    const Entry e = entries[k];
    if (e.row != e.col) entries.push_back({e.col, e.row, sign * e.value});
  }
}

constexpr int kSortThreads = 32;

std::uint64_t key(const Entry& e) {
  return (std::uint64_t{e.col} << 32) | e.row;
}

}  // namespace

void requireCountable(const SparseMatrix& m) {
  if (m.entries.size() <= kLargestSize) return;
  throw Error(ErrorKind::Unfit, m.source + " has " + std::to_string(m.entries.size()) +
                                    " entries; the solvers count no further than " +
                                    std::to_string(kLargestSize));
}

std::size_t mergeDuplicates(SparseMatrix& m) {
  requireCountable(m);
  Entries& entries = m.entries;
  const auto before = [](const auto& a, const auto& b) { return key(a) < key(b); };
  if (!std::is_sorted(entries.begin(), entries.end(), before)) {
    korin::mtSort(entries.data(), static_cast<int>(entries.size()), kSortThreads);
  }
  std::size_t kept = 0;
  for (const Entry e : entries) {
    if (kept != 0 && key(entries[kept - 1]) == key(e)) {
      entries[kept - 1].value += e.value;
    } else {
      entries[kept++] = e;
    }
  }
  const std::size_t merged = entries.size() - kept;
  entries.resize(kept);
  return merged;
}

void makeGeneral(SparseMatrix& m) {
  mergeDuplicates(m);
  if (m.symmetry == Symmetry::General) return;
  appendMirrored(m.entries, m.symmetry == Symmetry::Symmetric ? 1.0 : -1.0);
  m.symmetry = Symmetry::General;
  mergeDuplicates(m);
}

}  // namespace zeph
