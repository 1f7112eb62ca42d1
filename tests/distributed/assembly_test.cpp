#include "distributed/assembly.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <utility>

#include "distributed/communication.h"
#include "zeph/error.h"

namespace zeph::distributed {
namespace {

// The same entries on all processes, of which each keeps those that chance gives it.
SparseMatrix shareOf(const SparseMatrix& A, const Communicator& comm, unsigned seed) {
  SparseMatrix share = A;
  share.entries.clear();
  std::mt19937 chance(seed);
  for (const Entry& e : A.entries) {
    const auto owner = static_cast<int>(chance() % static_cast<unsigned>(comm.size()));
    if (owner == comm.rank()) share.entries.push_back(e);
  }
  return share;
}

TEST(Assembly, AddsUpSharesInAnyDivision) {
  const Communicator comm(MPI_COMM_WORLD);
  for (const Symmetry symmetry :
       {Symmetry::General, Symmetry::Symmetric, Symmetry::SkewSymmetric}) {
    for (unsigned seed = 0; seed < 20; ++seed) {
      std::mt19937 chance(seed);
      SparseMatrix A;
      A.rows = A.cols = 1 + seed;
      A.symmetry = symmetry;
      std::map<std::pair<unsigned, unsigned>, double> sums;
      for (unsigned k = 0; k < 8 * (seed + 1); ++k) {
        auto row = static_cast<std::uint32_t>(chance() % A.rows);
        auto col = static_cast<std::uint32_t>(chance() % A.rows);
        if (symmetry != Symmetry::General && row > col) std::swap(row, col);
        if (symmetry == Symmetry::SkewSymmetric && row == col) continue;
        const auto value = static_cast<double>(chance() % 9) + 1.0;  // sums are exact
        A.entries.push_back({row, col, value});
        if (symmetry == Symmetry::Symmetric) std::swap(row, col);
        sums[{row, col}] += value;
        if (symmetry == Symmetry::SkewSymmetric) sums[{col, row}] -= value;
      }
      const SparseMatrix share = shareOf(A, comm, seed);
      Assembled whole;
      try {
        whole = assemble(comm, share);
      } catch (const Error& e) {
        EXPECT_LT(A.rows, 3u) << e.what();  // all by chance in one triangle
        continue;
      }
      ASSERT_EQ(whole.symmetric(), symmetry == Symmetry::Symmetric || A.rows == 1) << seed;
      std::vector<double> other;
      for (const Entry& e : share.entries) other.push_back(3.0 * e.value);
      if (seed % 2 == 0) {
        EXPECT_EQ(assembleAgain(comm, other.data(), whole), "");
        for (auto& sum : sums) sum.second *= 3.0;
      }
      std::int64_t count = 0;
      for (const Entry& e : whole.entries) {
        EXPECT_EQ(e.value, (sums.at({e.row, e.col}))) << e.row << ", " << e.col;
        const std::int64_t column = std::min(e.row, e.col);
        const auto p = static_cast<std::size_t>(comm.rank());
        EXPECT_TRUE(whole.firstColumn[p] <= column && column < whole.firstColumn[p + 1]);
        ++count;
      }
      EXPECT_EQ(comm.sum(count), static_cast<std::int64_t>(sums.size()));
    }
  }
}

TEST(Agreement, EveryProcessThrowsWhatOneFound) {
  const Communicator comm(MPI_COMM_WORLD);
  const int last = comm.size() - 1;
  const auto sentence = [&](bool everywhere) -> std::string {
    try {
      comm.together([&] {
        if (everywhere || comm.rank() == last) throw Error(ErrorKind::Memory, "too much", 7);
      });
    } catch (const Error& e) {
      EXPECT_EQ(e.kind(), ErrorKind::Memory);
      EXPECT_EQ(e.row(), 7);
      EXPECT_TRUE(comm.agreed());
      return e.what();
    }
    return {};
  };
  EXPECT_EQ(sentence(true), "too much");
  EXPECT_EQ(sentence(false),
            last == 0 ? "too much" : "rank " + std::to_string(last) + ": too much");
}

}  // namespace
}  // namespace zeph::distributed
