// Sequences of operations on the sparse containers, beside a standard map.
#include <map>
#include <vector>

#include "fuzz/input.h"
#include "math/korin.h"

namespace {

using Map = std::map<unsigned long, double>;

void compare(const korin::SkipList<unsigned long, double>& list, const Map& m) {
  const auto* node = list.first();
  for (const auto& [key, value] : m) {
    PROMISE(node != nullptr && node->key == key && node->value == value);
    PROMISE(list.find(key) == value);
    node = node->next(0);
  }
  PROMISE(node == nullptr);
}

double at(const Map& m, unsigned long key) {
  const auto found = m.find(key);
  return found == m.end() ? 0.0 : found->second;
}

void lists(Input& in) {
  korin::SkipList<unsigned long, double> list(64, nullptr);
  Map m;
  for (int step = 0; step < 80 && !in.empty(); ++step) {
    const unsigned long key = in.below(96);
    switch (in.below(6)) {
      case 0: {
        const unsigned long count = in.below(20);
        list.eraseRange(key, count);
        m.erase(m.lower_bound(key), m.lower_bound(key + count));
        break;
      }
      case 1:
        if (m.empty() || m.rbegin()->first < key) {
          list.append(key, 1.5);
          m[key] = 1.5;
        }
        break;
      case 2:
        PROMISE(list.find(key) == at(m, key));
        break;
      default: {
        const double v = in.value(6);
        list.findOrInsert(key) = v;
        m[key] = v;
      }
    }
    compare(list, m);
  }
  list.clear();
  compare(list, {});
}

constexpr unsigned kRows = 9, kCols = 7;

void compare(const korin::SparseMatrix& s, const double (&m)[kRows][kCols]) {
  for (unsigned r = 0; r < kRows; ++r) {
    for (unsigned c = 0; c < kCols; ++c) PROMISE(s.getValue(r, c) == m[r][c]);
  }
}

void matrices(Input& in) {
  const unsigned lines = in.byte();
  korin::SparseMatrix s(kRows, kCols, lines % 2 == 0, lines % 2 == 1 || lines % 4 == 0, nullptr);
  double m[kRows][kCols] = {};
  for (int step = 0; step < 60 && !in.empty(); ++step) {
    const unsigned r = in.below(kRows), c = in.below(kCols);
    switch (in.below(8)) {
      case 0:
        s.isSelfMulSca(2.0);
        for (auto& row : m) {
          for (double& v : row) v *= 2.0;
        }
        break;
      case 1: {
        const korin::SparseMatrix copy(s);
        s.isSelfAddMat(copy);
        for (auto& row : m) {
          for (double& v : row) v += v;
        }
        break;
      }
      case 2:
        s.addRowData();
        break;
      case 3:
        s.addColData();
        break;
      default: {
        const double v = (static_cast<int>(in.byte()) - 128) / 8.0;
        s.setValue(r, c, v);
        m[r][c] = v;
      }
    }
    compare(s, m);
  }
  const korin::SparseMatrix copy(s);
  s.setZero();
  compare(copy, m);
  const double zero[kRows][kCols] = {};
  compare(s, zero);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input in(data, size);
  if (in.byte() % 2 == 0) {
    lists(in);
  } else {
    matrices(in);
  }
  return 0;
}
