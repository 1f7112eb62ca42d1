#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "math/kernels/cholesky.h"
#include "math/kernels/fused_product.h"
#include "math/kernels/ordered_product.h"
#include "math/kernels/processor.h"
#include "math/kernels/transpose.h"

namespace {

using namespace korin::kernels;

constexpr double kGuard = -7.25;  // fills what a kernel must leave alone

// Bit-equal, except that any NaN stands for any other.
bool same(double x, double y) {
  return std::bit_cast<std::uint64_t>(x) == std::bit_cast<std::uint64_t>(y) ||
         (std::isnan(x) && std::isnan(y));
}

// A strided block inside a guarded buffer; element (i, j) at data[offset + i*rs + j*cs].
struct Block {
  std::ptrdiff_t rs, cs;
  std::vector<double> data;
  static constexpr std::ptrdiff_t kOffset = 3;
  Block(std::size_t rows, std::size_t cols, std::ptrdiff_t rowStride, std::ptrdiff_t colStride)
      : rs(rowStride), cs(colStride), data(rows * rs + cols * cs + 2 * kOffset, kGuard) {}
  double* begin() { return data.data() + kOffset; }
  double& at(std::size_t i, std::size_t j) { return begin()[i * rs + j * cs]; }
  template <class F>
  void fill(std::size_t rows, std::size_t cols, F&& next) {
    for (std::size_t i = 0; i < rows; ++i) {
      for (std::size_t j = 0; j < cols; ++j) at(i, j) = next();
    }
  }
};

class KernelsOnEveryLevel : public testing::TestWithParam<ProcessorLevel> {
 protected:
  void SetUp() override {
    before_ = processorLevel();
    if (forceProcessorLevel(GetParam()) != GetParam()) GTEST_SKIP() << "not on this machine";
  }
  void TearDown() override { forceProcessorLevel(before_); }
  double uniform() { return std::uniform_real_distribution<>(-1, 1)(random_); }
  double special() {
    static constexpr double kInf = std::numeric_limits<double>::infinity();
    static const double kValues[] = {kInf, -kInf, std::nan(""), -0.0, 0.0, 5e-324, 1e308, -1e308};
    return random_() % 8 == 0 ? kValues[random_() % 8] : uniform();
  }
  std::ptrdiff_t pick(int from, int to) {
    return std::uniform_int_distribution<>(from, to)(random_);
  }
  std::mt19937 random_{20210713};

 private:
  ProcessorLevel before_{};
};

TEST_P(KernelsOnEveryLevel, OrderedProductsAreThePlainLoopToTheBit) {
  struct Shape {
    std::size_t m, n, k;
  };
  std::vector<Shape> shapes = {{1, 1, 1},    {5, 7, 0},    {1, 40, 9},    {40, 1, 600},
                               {9, 25, 257}, {65, 193, 7}, {66, 50, 513}, {2, 400, 3},
                               {23, 23, 23}, {70, 27, 300}};
  for (int i = 0; i < 150; ++i) {
    shapes.push_back(
        {std::size_t(pick(1, 40)), std::size_t(pick(1, 60)), std::size_t(pick(0, 50))});
  }
  for (const auto& [m, n, k] : shapes) {
    const bool transposed = random_() % 2 == 0;
    const bool wild = random_() % 3 == 0;
    Block a(m, k, k + pick(0, 5), 1);
    Block b = transposed ? Block(k, n, 1, k + pick(0, 5))
                         : Block(k, n, n + (random_() % 4 == 0 ? 600 : pick(0, 5)), 1);
    const auto next = [&] { return wild ? special() : uniform(); };
    a.fill(m, k, next);
    b.fill(k, n, next);
    Block c(m, n, n + pick(0, 3), 1);
    Block expected = c;
    for (std::size_t i = 0; i < m; ++i) {
      for (std::size_t j = 0; j < n; ++j) {
        double sum = 0.0;
        for (std::size_t p = 0; p < k; ++p) sum += a.at(i, p) * b.at(p, j);
        expected.at(i, j) = sum;
      }
    }
    const auto product = transposed ? orderedProductTransposed : orderedProduct;
    product(m, n, k, a.begin(), a.rs, b.begin(), transposed ? b.cs : b.rs, c.begin(), c.rs);
    for (std::size_t i = 0; i < c.data.size(); ++i) {
      ASSERT_TRUE(same(c.data[i], expected.data[i]))
          << m << "x" << n << "x" << k << (transposed ? " transposed" : "") << " at " << i << ": "
          << c.data[i] << " instead of " << expected.data[i];
    }
  }
}

TEST_P(KernelsOnEveryLevel, FusedProductTakesAnyStridesAndSigns) {
  for (int round = 0; round < 200; ++round) {
    const bool skinny = round % 2 == 0;
    const std::size_t m = pick(1, round % 20 == 0 ? 300 : 40);
    const std::size_t n = pick(1, skinny ? 4 : 70);
    const std::size_t k = pick(0, round % 25 == 0 ? 300 : (skinny ? 4 : 40));
    const auto layout = [&](std::size_t rows, std::size_t cols) {
      switch (random_() % 3) {
        case 0:
          return Block(rows, cols, cols + pick(0, 4), 1);
        case 1:
          return Block(rows, cols, 1, rows + pick(0, 4));
        default:
          return Block(rows, cols, 2 * cols + pick(0, 4), 2);
      }
    };
    Block a = layout(m, k);
    Block b = layout(k, n);
    Block c = layout(m, n);
    const double alpha = random_() % 2 == 0 ? 1.0 : -1.0;
    const double beta = random_() % 2 == 0 ? 1.0 : 0.0;
    a.fill(m, k, [&] { return uniform(); });
    b.fill(k, n, [&] { return uniform(); });
    c.fill(m, n, [&] { return beta == 0.0 ? std::nan("") : uniform(); });
    Block expected = c;
    for (std::size_t i = 0; i < m; ++i) {
      for (std::size_t j = 0; j < n; ++j) {
        double sum = 0.0;
        for (std::size_t p = 0; p < k; ++p) sum += a.at(i, p) * b.at(p, j);
        expected.at(i, j) = (beta == 0.0 ? 0.0 : c.at(i, j)) + alpha * sum;
      }
    }
    fusedProduct(m, n, k, alpha, a.begin(), a.rs, a.cs, b.begin(), b.rs, b.cs, beta, c.begin(),
                 c.rs, c.cs);
    for (std::size_t i = 0; i < c.data.size(); ++i) {
      ASSERT_NEAR(c.data[i], expected.data[i], 1e-15 * double(k + 1)) << m << "x" << n << "x" << k;
    }
  }
}

TEST_P(KernelsOnEveryLevel, TransposeMovesEveryElementAndNothingElse) {
  for (int round = 0; round < 60; ++round) {
    const std::size_t rows = pick(1, 150);
    const std::size_t cols = pick(1, 150);
    Block a(rows, cols, cols + pick(0, 9), 1);
    a.fill(rows, cols, [&] { return uniform(); });
    Block t(cols, rows, rows + pick(0, 9), 1);
    Block expected = t;
    for (std::size_t i = 0; i < rows; ++i) {
      for (std::size_t j = 0; j < cols; ++j) expected.at(j, i) = a.at(i, j);
    }
    transpose(rows, cols, a.begin(), a.rs, t.begin(), t.rs);
    ASSERT_EQ(t.data, expected.data) << rows << "x" << cols;
  }
}

// The right-looking factorisation one column at a time.
std::size_t plainCholesky(std::size_t n, Block& a) {
  for (std::size_t k = 0; k < n; ++k) {
    if (0.0 >= a.at(k, k)) return k;
    a.at(k, k) = std::sqrt(a.at(k, k));
    const double inverse = 1.0 / a.at(k, k);
    for (std::size_t i = k + 1; i < n; ++i) a.at(i, k) *= inverse;
    for (std::size_t j = k + 1; j < n; ++j) {
      for (std::size_t i = j; i < n; ++i) a.at(i, j) -= a.at(i, k) * a.at(j, k);
    }
  }
  return n;
}

TEST_P(KernelsOnEveryLevel, CholeskyIsThePlainLoopToTheBitAlsoWhereItFails) {
  for (const std::size_t n : {1, 2, 7, 8, 9, 16, 23, 24, 25, 40, 67, 131, 300}) {
    for (int round = 0; round < 6; ++round) {
      Block a(n, n, n + pick(0, 3), 1);
      a.fill(n, n, [&] { return uniform(); });
      for (std::size_t i = 0; i < n; ++i) a.at(i, i) += 2.0 * std::sqrt(double(n)) + 1.0;
      const std::size_t spot = pick(0, int(n) - 1);
      if (round >= 2) a.at(spot, spot) = round == 2 ? std::nan("") : -1.0;  // else may fail or not
      if (round == 5) a.at(spot, 0) = -0.0;
      Block expected = a;
      const std::size_t done = plainCholesky(n, expected);
      ASSERT_EQ(cholesky(n, a.begin(), a.rs), done);
      for (std::size_t i = 0; i < a.data.size(); ++i) {
        ASSERT_TRUE(same(a.data[i], expected.data[i])) << "n = " << n << ", failed at " << done;
      }
    }
  }
}

std::string levelName(const testing::TestParamInfo<ProcessorLevel>& info) {
  static const char* const kNames[] = {"Baseline", "Avx2", "Avx512"};
  return kNames[static_cast<int>(info.param)];
}

INSTANTIATE_TEST_SUITE_P(Levels, KernelsOnEveryLevel,
                         testing::Values(ProcessorLevel::Baseline, ProcessorLevel::Avx2,
                                         ProcessorLevel::Avx512),
                         levelName);

}  // namespace
