// Sizes about 2^31 and 2^63, without the memory that they would take: counted right, or refused in
// a sentence with the figures.

#include <cstdint>

#include "tests/zeph/files/archives.h"
#include "tests/zeph/front_test.h"
#include "zeph/factor/lower_factor.h"
#include "zeph/matrix/requirements.h"
#include "zeph/zeph.h"
#include "zeph/zeph_c.h"

namespace zeph {
namespace {

constexpr std::int64_t kBeyond = std::int64_t{1} << 31;

class Limits : public FrontTest {};

TEST_F(Limits, OfRowsAndColumnsAreToldWithTheFigures) {
  const auto npz = [](std::int64_t rows) {
    return archive({{"shape.npy", npy<std::int64_t>("<i8", "(2,)", {rows, rows})},
                    {"format.npy", npy<char>("|S3", "()", {'d', 'i', 'a'})},
                    {"offsets.npy", npy<std::int64_t>("<i8", "(3,)", {INT64_MIN, 0, INT64_MAX})},
                    {"data.npy", npy<double>("<f8", "(3, 2)", {1, 2, 3, 4, 5, 6})}});
  };
  const std::string coordinates = "%%MatrixMarket matrix coordinate real general\n",
                    pointers = "t\n 1 1 1 1\nRUA ",
                    formats = " 1 0\n(10I8)          (10I8)          (4E20.12)\n 1 2\n";
  const struct {
    const char* name;
    std::string content;
    const char* said;  // empty where the file is read
  } files[] = {
      {"a.mtx", coordinates + "2147483648 1 1\n1 1 1\n",
       "3 a.mtx, line 2: the size 2147483648 is larger than 2147483647"},
      {"b.mtx", coordinates + "3 3 99999999999999999999\n", "3 b.mtx, line 2: the size \"9999"},
      {"c.mtx", coordinates + "3 3 18446744073709551615\n1 1 1\n",
       "3 c.mtx ends after line 3 with 1 of the 18446744073709551615 entries"},
      {"d.mtx", "%%MatrixMarket matrix array real general\n2147483647 2147483647\n1\n",
       "3 d.mtx ends after line 3 with 1 of the 4611686014132420609 entries"},
      {"e.mtx", coordinates + "2147483647 2147483647 1\n2147483647 2147483647 1\n", ""},
      {"a.csv", "2147483646,2147483646,1\n", ""},
      {"b.csv", "0,2147483647,1\n",
       "3 b.csv, line 1: the column index \"2147483647\" is larger than 2147483646"},
      {"a.npz", npz(2), ""},
      {"b.npz", npz(kBeyond),
       "3 entry 0 of shape of b.npz is 2147483648; it must lie between 0 "
       "and 2147483647"},
      {"a.rb", pointers + "2147483648 1" + formats,
       "3 a.rb, line 3: expected a whole number from 0 to 2147483647, found \"2147483648\""},
  };
  for (const auto& f : files) {
    const std::string file = write(f.name, f.content);
    if (f.said[0] != '\0') {
      expectError([&] { readSparse(file); }, f.said);
      continue;
    }
    const SparseMatrix A = readSparse(file);
    EXPECT_EQ(A.entries.back().row + 1, A.rows) << f.name;
    if (A.rows < kLargestSize) continue;
    expectError([&] { plan(A); }, "2147483647 rows need", false);
    expectError([&] { normalEquations(A, {}); }, "0 weights for the 2147483647", false);
  }
  // The least memory that a wide design takes is more than there is, or is there.
  SparseMatrix wide;
  wide.rows = 0, wide.cols = kLargestSize + 1;
  expectError([&] { normalEquations(wide, {}); }, "4 the matrix is 0 x 2147483648");

  const std::int64_t starts[] = {0};
  zeph_factor* f = nullptr;
  EXPECT_EQ(zeph_factor_create(&f, kBeyond, starts, nullptr, nullptr, 0, nullptr), 4);
  EXPECT_STREQ(zeph_last_error(),
               "the matrix is 2147483648 x 2147483648; the largest size is 2147483647");
  // As many unknowns as the normal matrix of 357,913,942 poses in space has.
  expectError([] { requireSizes("the normal matrix of g", 6 * 357913942UL, 1); },
              "4 the normal matrix of g is 2147483652 x 1; the largest size is 2147483647");
}

// The hub of a star comes first, at every `step`-th unknown, so that the star's factor is full. The
// unknowns between are a path each, of which one entry a row is below the diagonal.
SparseMatrix starHubFirst(std::uint32_t n, std::uint32_t step = 1) {
  SparseMatrix A;
  A.rows = A.cols = n;
  A.symmetry = Symmetry::Symmetric;
  for (std::uint32_t i = 0; i < n; ++i) {
    A.entries.push_back({i, i, 2.0 * n});
    if (i > 0 && i % step == 0) A.entries.push_back({i, 0, -1.0});
    if (i % step > 1) A.entries.push_back({i, i - 1, -1.0});
  }
  return A;
}

TEST_F(Limits, OfAFactorAreExactBeyondTwoToThe31AndRefusedByItsBytes) {
  Options natural;
  natural.ordering = Ordering::Natural;
  for (const std::uint32_t step : {1, 3}) {
    const SparseMatrix A = starHubFirst(step * 70000, step);
    const Report r = plan(A, natural);
    const std::int64_t k = 70000, paths = k * (step - 1);
    EXPECT_EQ(r.entriesOfL, k * (k + 1) / 2 + (step == 1 ? 0 : 2 * paths - k)) << step;
    EXPECT_EQ(r.operations, static_cast<double>(k * (k + 1) * (2 * k + 1) / 6 +
                                                (step == 1 ? 0 : 4 * paths - 3 * k)));
    EXPECT_GE(r.bytes, 8.0 * static_cast<double>(k * (k + 1) / 2));
    expectError([&] { lowerFactor(A, natural); },
                "has " + std::to_string(r.entriesOfL) + " entries; a matrix to be written", false);
  }
  // 16 TB, by what the machine has; and the same by a limit.
  const SparseMatrix large = starHubFirst(1400000);
  expectError([&] { Factor(large, natural); }, " are available", false);
  natural.memoryLimit = 1e9;
  expectError([&] { Factor(large, natural); }, "more than the limit of 1 GB", false);
}

TEST_F(Limits, OfBytesAreNeverWrappedRound) {
  const Factor f(starHubFirst(4));
  const std::size_t quarter = SIZE_MAX / 4 + 1, bytes = SIZE_MAX / 8 + 1;
  std::vector<double> b(4, 1.0);
  expectError([&] { f.solve(b.data(), b.data(), quarter); }, "8 the solutions for 46116860184273");
  DenseMatrix B;
  B.rows = 4, B.cols = quarter;
  expectError([&] { f.solve(B); }, "4 the right-hand side is 4 x 4611686018427387904");
  for (const std::size_t count : {quarter, bytes, std::size_t{1} << 50}) {
    expectError([&] { f.sample(count, 1); }, " of memory; ", false);
  }
  expectError([&] { DenseMatrix::zeros(8, bytes / 8); }, "8 a dense matrix of 8 x 288230376151711");
  EXPECT_EQ(DenseMatrix::zeros(SIZE_MAX, 0).values.size(), 0U);
  zeph_factor* c = nullptr;
  const std::int64_t starts[] = {0, 1}, row = 0;
  ASSERT_EQ(zeph_factor_create(&c, 1, starts, &row, b.data(), 0, nullptr), 0);
  EXPECT_EQ(zeph_factor_solve(c, INT64_MAX, b.data(), b.data()), 8);
  zeph_factor_free(c);
}

}  // namespace
}  // namespace zeph
