// Factors whose panels lie in a file: the same bits, nothing left behind, one sentence where it
// cannot be.
#include <sys/resource.h>
#include <sys/statfs.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/zeph/front_test.h"
#include "zeph/factor/lower_factor.h"
#include "zeph/plan/run_plan.h"
#include "zeph/zeph.h"
#include "zeph/zeph_c.h"

namespace {

using zeph::Factor;
using zeph::Options;
using zeph::SparseMatrix;
using Numbers = std::vector<double>;

class ScratchTest : public FrontTest {
 protected:
  void SetUp() override {
    struct statfs kind {};
    if (statfs(path("").c_str(), &kind) == 0 && kind.f_type == 0x01021994) {
      GTEST_SKIP() << "temporary files lie in memory here";
    }
  }

  double uniform() { return static_cast<double>(random_()) * 0x1p-32; }

  // A bar with a square section of m x m and some edges along it, or points that a few dense rows
  // tie together: a deep tree, one with large fronts, and one with thousands of leaves.
  SparseMatrix matrix(bool bundle, std::uint32_t n, std::uint32_t m = 8) {
    SparseMatrix A;
    A.symmetry = zeph::Symmetry::Symmetric;
    const auto add = [&](std::uint32_t i, std::uint32_t j) {
      const double w = 0.1 + uniform();
      A.entries.insert(A.entries.end(), {{i, i, w}, {j, j, w}, {i, j, -w}});
    };
    A.rows = A.cols = n;
    for (std::uint32_t i = 0; i < n; ++i) {
      A.entries.push_back({i, i, 0.01 + uniform()});
      if (bundle) {
        for (int k = 0; i >= 90 && k < 40; ++k) add(i, below(90));
        continue;
      }
      if (i % m != 0) add(i, i - 1);
      if (i / m % m != 0) add(i, i - m);
      if (i >= m * m) add(i, i - m * m);
      if (i >= 600 && i % 50 == 0) add(i, i - below(600) - 1);
    }
    return A;
  }

  // The least limit with which there are variances.
  Options tight(const SparseMatrix& A, int threads) const {
    Options o;
    o.threads = threads;
    o.scratchFolder = path("");
    const zeph::MemoryPlan plan = zeph::planRun(A, o, zeph::CostModel()).besideFile;
    o.memoryLimit = std::max(plan.factorisation, plan.inversion) - 1.0;
    EXPECT_NE(errorOf([&] { Factor(A, o).variances(); }), "no error");
    o.memoryLimit += 2.0;
    return o;
  }

  static Numbers answers(Factor& f, const SparseMatrix& A) {
    Numbers all;
    const auto keep = [&](const Numbers& some) { all.insert(all.end(), some.begin(), some.end()); };
    const auto n = static_cast<std::int64_t>(A.rows);
    auto B = zeph::DenseMatrix::zeros(A.rows, 17);
    for (std::size_t k = 0; k < B.values.size(); ++k) B.values[k] = static_cast<double>(k % 17);
    const std::vector<std::int64_t> some{n - 1, 3, n / 2}, others{0, n / 3, n - 2};
    SparseMatrix few = A;
    few.entries.resize(50);
    Numbers values;
    for (const zeph::Entry& e : A.entries) values.push_back(2.0 * e.value);
    for (int round = 0; round < 2; ++round) {
      keep(f.variances());
      keep(f.solve(B).values);
      keep(f.variances(some));
      keep(f.covariance(some, others));
      keep(f.covarianceBlock(some).values);
      keep(f.sample(3, 5).values);
      keep({f.logDeterminant(), f.traceOfInverseTimes(few), f.estimateCondition()});
      f.refactorise(values);
    }
    return all;
  }
};

TEST_F(ScratchTest, holdsFactorsThatGiveTheSameBits) {
  for (const SparseMatrix& A : {matrix(false, 3000), matrix(true, 3000), matrix(false, 8000, 20)}) {
    Factor inMemory(A);
    EXPECT_EQ(inMemory.report().scratchBytes, 0.0);
    const Numbers expected = answers(inMemory, A);
    const Options o = tight(A, 3);
    Factor f(A, o);
    const double inFile = f.report().scratchBytes;
    EXPECT_GT(inFile, 5e5) << o.memoryLimit;
    EXPECT_EQ(zeph::plan(A, o).scratchBytes, inFile);
    EXPECT_NEAR(f.report().bytes + inFile, inMemory.report().bytes, 1.0);
    const Numbers found = answers(f, A);
    ASSERT_EQ(found.size(), expected.size());
    EXPECT_EQ(std::memcmp(found.data(), expected.data(), found.size() * sizeof(double)), 0);
    Options roomy = o;
    roomy.memoryLimit *= 10.0;
    EXPECT_EQ(Factor(A, roomy).report().scratchBytes, 0.0);
    EXPECT_EQ(fileCount(), 0u);
    const auto entries = [](const SparseMatrix& m) {
      Numbers all;
      for (const zeph::Entry& e : m.entries) all.push_back(e.value);
      return all;
    };
    EXPECT_EQ(entries(zeph::lowerFactor(A, o).L), entries(zeph::lowerFactor(A, {}).L));
  }
}

TEST_F(ScratchTest, saysWhyThereIsNone) {
  const SparseMatrix A = matrix(false, 4000);
  const Options good = tight(A, 1);
  const std::string file = write("file", "");
  const std::string shared = "/dev/shm";
  struct statfs kind {};
  const bool inMemory = statfs(shared.c_str(), &kind) == 0 && kind.f_type == 0x01021994;
  const std::pair<std::string, std::string> refused[] = {
      {path("none"), "7 there is no folder none for scratch files"},
      {file, "7 file is no folder; name one for scratch files"},
      {"/proc", "7 cannot keep a scratch file in /proc: "},
      {inMemory ? shared : path("none"),
       inMemory ? "7 the folder /dev/shm for scratch files lies in memory" : "7 there is no"}};
  for (const auto& [folder, sentence] : refused) {
    Options o = good;
    o.scratchFolder = folder;
    expectError([&] { Factor(A, o).variances(); }, sentence);
  }
  Options without = good;
  without.scratchFolder.clear();
  expectError([&] { Factor(A, without).variances(); },
              "given a folder on a disk (--scratch, Options::scratchFolder), ", false);
  without.memoryLimit = 1e4;
  EXPECT_EQ(errorOf([&] { Factor f(A, without); }).find("--scratch"), std::string::npos);
  without.scratchFolder = path("");
  expectError([&] { Factor f(A, without); },
              "8 factorising the matrix with its factor in a scratch file would take");

  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit small{100000, before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &small);
  expectError([&] { Factor f(A, good); }, "7 the factor of the matrix needs a scratch file of");
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_GT(Factor(A, good).report().scratchBytes, 1e5);
  EXPECT_EQ(fileCount(), 1u);
}

TEST_F(ScratchTest, isAskedForInC) {
  const std::int64_t starts[] = {0, 2, 3}, rows[] = {0, 1, 1};
  const double values[] = {4.0, -1.0, 4.0};
  zeph_factor* f = nullptr;
  zeph_options o{};
  o.threads = 1;
  const std::string folder = path("");
  o.scratch_folder = folder.c_str();
  // Of the file, or less than 0 where the factor is refused.
  const auto bytes = [&] {
    zeph_report r{};
    if (zeph_factor_create(&f, 2, starts, rows, values, 1, &o) != 0) return -1.0;
    EXPECT_EQ(zeph_factor_report(f, &r), 0);
    zeph_factor_free(f);
    return r.scratch_bytes;
  };
  EXPECT_EQ(bytes(), 0.0);
  // Some limit is too small for the factor in memory and large enough for the rest of it.
  o.memory_limit = 1.0;
  while (bytes() < 0.0 && o.memory_limit < 1e6) o.memory_limit *= 1.02;
  EXPECT_GT(bytes(), 0.0) << o.memory_limit;
  o.memory_limit = -1.0;
  EXPECT_EQ(zeph_factor_create(&f, 2, starts, rows, values, 1, &o), 2);
  o.memory_limit = 0.0;
  o.scratch_folder = "/proc/none";
  EXPECT_EQ(zeph_factor_create(&f, 2, starts, rows, values, 1, &o), 7);
}

}  // namespace
