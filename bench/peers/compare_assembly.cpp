// From triplets to compressed order, in turn: sortElements and compress, our sort on one thread,
// std::sort with the same order, and Eigen's setFromTriplets; and the rate of addElement.
//   compare_assembly TRIPLETS [--limit=SECONDS a case] [FILE: keep the triplets of each case there]
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "math/sorting/mtsort.h"
#include "measure.h"
#include "solver/assembly/protosparse.h"

#ifdef ZEPH_COMPARE_EIGEN
#include <Eigen/SparseCore>
#endif

namespace {

using compare::Best;
using compare::seconds;
using zeph_solver::MatrixElement;
using zeph_solver::ProtoSparse;

constexpr int kDuplicates = 8;

std::uint64_t key(const MatrixElement& e) {
  return (std::uint64_t{e.col} << 32) | e.row;
}

bool before(const MatrixElement& a, const MatrixElement& b) {
  return key(a) < key(b) || (key(a) == key(b) && std::fabs(a.value) > std::fabs(b.value));
}

struct Case {
  std::string name;
  std::vector<MatrixElement> list;
};

std::vector<MatrixElement> randomList(std::size_t count, std::size_t order) {
  std::mt19937_64 random(1);
  std::vector<MatrixElement> list(count);
  for (MatrixElement& e : list) {
    e.row = static_cast<std::uint32_t>(random() % order);
    e.col = static_cast<std::uint32_t>(random() % order);
    e.value = static_cast<double>(random() >> 11) * 0x1p-52 - 1.0;
  }
  return list;
}

/// Blocks that elements of a mesh would add: every position comes eight times, in a row of the
/// list.
std::vector<MatrixElement> duplicatedList(std::size_t count, std::size_t order) {
  std::vector<MatrixElement> list = randomList(count, order);
  for (std::size_t i = 0; i < count; ++i) {
    list[i].row = list[i / kDuplicates * kDuplicates].row;
    list[i].col = list[i / kDuplicates * kDuplicates].col;
  }
  return list;
}

/// A number that depends on all values and their positions, and entries that are left.
struct Digest {
  double sum = 0.0;
  std::size_t entries = 0;
  void add(std::uint64_t row, std::uint64_t col, double value) {
    sum += value * static_cast<double>(1 + row % 7 + 10 * (col % 11));
    ++entries;
  }
};

[[maybe_unused]] bool agree(const Digest& a, const Digest& b) {
  return a.entries == b.entries &&
         std::fabs(a.sum - b.sum) <= 1e-7 * static_cast<double>(a.entries);
}

double addRate(const std::vector<MatrixElement>& list, std::size_t order, double limit) {
  Best best;
  ProtoSparse A(order, order);
  A.reserve(list.size());
  compare::repeat(limit, 3, 10, [&] {
    A.clear();
    best.add(seconds([&] {
      for (const MatrixElement& e : list) A.addElement(e.row, e.col, e.value);
    }));
  });
  return static_cast<double>(list.size()) / best.value;
}

void keep(const Case& c, const std::string& folder) {
  std::FILE* file = std::fopen((folder + "/" + c.name + ".bin").c_str(), "wb");
  if (file == nullptr) return;
  std::fwrite(c.list.data(), sizeof(MatrixElement), c.list.size(), file);
  std::fclose(file);
}

void measure(const Case& c, std::size_t order, double limit) {
  const auto count = static_cast<int>(c.list.size());
  std::vector<MatrixElement> copy;
  ProtoSparse A(order, order);
  Best sortElements, compress, oneThread, standard, eigen;
  Digest ours, standardDigest, eigenDigest;
#ifdef ZEPH_COMPARE_EIGEN
  std::vector<Eigen::Triplet<double>> triplets;
  for (const MatrixElement& e : c.list) {
    triplets.emplace_back(static_cast<int>(e.row), static_cast<int>(e.col), e.value);
  }
#endif
  compare::repeat(limit, 3, 9, [&] {
    A.elements = c.list;
    sortElements.add(seconds([&] { A.sortElements(); }));
    copy = c.list;
    standard.add(seconds([&] { std::sort(copy.begin(), copy.end(), before); }));
    const bool same = std::equal(copy.begin(), copy.end(), A.elements.begin(),
                                 [](const MatrixElement& a, const MatrixElement& b) {
                                   return key(a) == key(b) && a.value == b.value;
                                 });
    standardDigest.entries += same ? 0 : 1;
    copy = c.list;
    oneThread.add(seconds([&] { korin::mtSort(copy.data(), count, 1); }));
    A.elements = c.list;
    compress.add(seconds([&] { A.compress(); }));
#ifdef ZEPH_COMPARE_EIGEN
    Eigen::SparseMatrix<double> e(static_cast<int>(order), static_cast<int>(order));
    eigen.add(seconds([&] { e.setFromTriplets(triplets.begin(), triplets.end()); }));
    eigenDigest = {};
    for (int j = 0; j < e.outerSize(); ++j) {
      for (decltype(e)::InnerIterator it(e, j); it; ++it) {
        eigenDigest.add(static_cast<std::uint64_t>(it.row()), static_cast<std::uint64_t>(it.col()),
                        it.value());
      }
    }
#endif
  });
  for (const MatrixElement& e : A.elements) ours.add(e.row, e.col, e.value);
  bool same = standardDigest.entries == 0;
#ifdef ZEPH_COMPARE_EIGEN
  same = same && agree(ours, eigenDigest);
#endif
  compare::Record record("assembly");
  record.add("case", c.name).add("triplets", count).add("order", order);
  record.add("sort", sortElements.value).add("compress", compress.value);
  record.add("sort_one_thread", oneThread.value).add("std_sort", standard.value);
  record.add("eigen", eigen.value).add("agree", same);
  record.add("entries", ours.entries).add("digest", ours.sum);
  if (c.name == "random") record.add("add_rate", addRate(c.list, order, limit / 5.0));
  record.print();
}

}  // namespace

int main(int argc, char** argv) {
  const compare::Arguments arguments(argc, argv);
  const std::size_t count = std::strtoul(arguments.positions().at(0).c_str(), nullptr, 10);
  const std::size_t order = std::max<std::size_t>(count / kDuplicates, 16);
  const double limit = arguments.number("limit", 8.0);
  for (const char* name : {"random", "duplicates", "sorted"}) {
    Case c{name, {}};
    c.list = c.name == "duplicates" ? duplicatedList(count, order) : randomList(count, order);
    if (c.name == "sorted") std::sort(c.list.begin(), c.list.end(), before);
    if (arguments.positions().size() > 1) keep(c, arguments.positions()[1]);
    measure(c, order, limit);
  }
}
