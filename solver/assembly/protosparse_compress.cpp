// Compressed order of the triplet list: sorting, merging of duplicates, and the test for it.
#include <cmath>

#include "math/sorting/mtsort.h"
#include "solver/assembly/element_count.h"
#include "solver/assembly/protosparse.h"

namespace zeph_solver {

namespace {

// A sum of duplicates below this magnitude, 10^-153.5, has cancelled.
constexpr double kCancelled = 3.1622776601683795e-154;

constexpr int kSortThreads = 32;

std::uint64_t key(const MatrixElement& e) {
  return (static_cast<std::uint64_t>(e.col) << 32) | e.row;
}

void sortColumnMajor(std::vector<MatrixElement>& elements) {
  korin::mtSort(elements.data(), static_cast<int>(requireCountable(elements.size())), kSortThreads);
}

// Sums adjacent elements at one position into one and returns how many remain, at least one given.
// The open entry stays in registers: its sum is a chain of additions that memory would slow down.
std::size_t mergeDuplicates(MatrixElement* elements, std::size_t count) {
  std::size_t kept = 0;
  MatrixElement open = elements[0];
  bool isOpen = true;
  for (std::size_t i = 1; i < count; ++i) {
    const MatrixElement e = elements[i];
    if (isOpen && key(e) == key(open)) {
      open.value += e.value;
      // Only the sum so far goes: what follows at this position starts a new entry, on purpose.
      isOpen = !(std::fabs(open.value) < kCancelled);
    } else {
      if (isOpen) elements[kept++] = open;
      open = e;
      isOpen = true;
    }
  }
  if (isOpen) elements[kept++] = open;
  return kept;
}

}  // namespace

void ProtoSparse::sortElements() const {
  if (!denseBlock && elements.size() >= 2) sortColumnMajor(elements);
}

void ProtoSparse::compress() const {
  if (denseBlock || elements.empty()) return;
  sortColumnMajor(elements);
  elements.resize(mergeDuplicates(elements.data(), elements.size()));
}

bool ProtoSparse::isCompressed() const {
  if (denseBlock) return true;
  for (std::size_t i = 1; i < elements.size(); ++i) {
    if (key(elements[i - 1]) >= key(elements[i])) return false;
  }
  return true;
}

}  // namespace zeph_solver
