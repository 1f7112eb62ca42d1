#include "kernels/products/fused_product.h"

#include "kernels/processor.h"
#include "kernels/triangles/front_cholesky.h"
#include "tests/math/dense/dense_testing.h"

namespace dense_testing {
namespace {

using namespace korin::kernels;

// A strided block inside a guarded buffer; element (i, j) at data[kOffset + i*rs + j*cs].
struct Strided {
  std::ptrdiff_t rs, cs;
  std::vector<double> data;
  static constexpr std::ptrdiff_t kOffset = 3;
  Strided(std::size_t rows, std::size_t cols, std::ptrdiff_t rowStride, std::ptrdiff_t colStride)
      : rs(rowStride), cs(colStride), data(rows * rs + cols * cs + 2 * kOffset, -7.25) {}
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
  ZtSize pick(int from, int to) {
    return static_cast<ZtSize>(std::uniform_int_distribution<>(from, to)(random_));
  }
  std::mt19937 random_{20210713};

 private:
  ProcessorLevel before_{};
};

TEST_P(KernelsOnEveryLevel, OrderedProductsAreThePlainLoopToTheBit) {
  struct Shape {
    ZtSize m, n, k;
  };
  std::vector<Shape> shapes = {{1, 1, 1},    {5, 7, 0},    {1, 40, 9},    {40, 1, 600},
                               {9, 25, 257}, {65, 193, 7}, {66, 50, 513}, {2, 400, 3},
                               {23, 23, 23}, {70, 27, 300}};
  for (int i = 0; i < 150; ++i) shapes.push_back({pick(1, 40), pick(1, 60), pick(0, 50)});
  for (const auto& [m, n, k] : shapes) {
    const bool byRows = random_() % 2 == 0, wild = random_() % 3 == 0;
    const auto next = [&] { return wild ? special() : uniform(); };
    Block a(m, k, pick(0, 5)), target(m, n, pick(0, 3));
    Block b(byRows ? n : k, byRows ? k : n, random_() % 4 == 0 ? 600 : pick(0, 5));
    a.fill(next);
    b.fill(next);
    if (byRows) target.view.setMatMulTransMat(a.view, b.view);
    if (!byRows) target.view.setMatMulMat(a.view, b.view);
    ASSERT_TRUE(sameBits(target.view, plainProduct(a.view, b.view, byRows))) << k << byRows;
    ASSERT_TRUE(target.outsideUntouched());
  }
}

TEST_P(KernelsOnEveryLevel, FusedProductTakesAnyStridesAndSigns) {
  for (int round = 0; round < 200; ++round) {
    const bool skinny = round % 2 == 0;
    const std::size_t m = pick(1, round % 20 == 0 ? 300 : 40);
    const std::size_t n = pick(1, skinny ? 4 : 70);
    const std::size_t k = pick(0, round % 25 == 0 ? 300 : (skinny ? 4 : 40));
    const auto layout = [&](std::size_t rows, std::size_t cols) {
      const std::ptrdiff_t gap = pick(0, 4), height = rows, width = cols;
      const Strided layouts[] = {{rows, cols, width + gap, 1},
                                 {rows, cols, 1, height + gap},
                                 {rows, cols, 2 * width + gap, 2}};
      return layouts[random_() % 3];
    };
    Strided a = layout(m, k);
    Strided b = layout(k, n);
    Strided c = layout(m, n);
    const double alpha = random_() % 2 == 0 ? 1.0 : -1.0;
    const double beta = random_() % 2 == 0 ? 1.0 : 0.0;
    a.fill(m, k, [&] { return uniform(); });
    b.fill(k, n, [&] { return uniform(); });
    c.fill(m, n, [&] { return beta == 0.0 ? std::nan("") : uniform(); });
    Strided expected = c;
    for (std::size_t i = 0; i < m; ++i) {
      for (std::size_t j = 0; j < n; ++j) {
        double sum = 0.0;
        for (std::size_t p = 0; p < k; ++p) sum += a.at(i, p) * b.at(p, j);
        expected.at(i, j) = (beta == 0.0 ? 0.0 : c.at(i, j)) + alpha * sum;
      }
    }
    fusedProduct(m, n, k, alpha, {a.begin(), a.rs, a.cs}, {b.begin(), b.rs, b.cs}, beta,
                 {c.begin(), c.rs, c.cs});
    for (std::size_t i = 0; i < c.data.size(); ++i) {
      ASSERT_NEAR(c.data[i], expected.data[i], 1e-15 * double(k + 1)) << m << "x" << n << "x" << k;
    }
  }
}

TEST_P(KernelsOnEveryLevel, FrontCholeskyFactorisesPanelsAndPassesOnWhatIsLeft) {
  std::vector<std::pair<ZtSize, ZtSize>> shapes = {{8, 8}, {500, 5}, {237, 197}, {410, 400}};
  for (int k = 0; k < 20; ++k) shapes.emplace_back(pick(60, 130), pick(1, 60));
  for (const auto& [rows, columns] : shapes) {
    SCOPED_TRACE(testing::Message() << rows << " x " << columns);
    const ZtSize below = rows - columns, stride = rows + pick(0, 3);
    std::vector<double> factor(rows * columns), panel(stride * columns, 0.5), update(below * below);
    std::vector<double> scratch(frontScratch(rows, columns));
    // Products of known factors: A = L L^T.
    const auto l = [&, height = rows](ZtSize i, ZtSize j) -> double& {
      return factor[i + j * height];
    };
    const auto product = [&](ZtSize i, ZtSize j) {
      double sum = 0.0;
      for (ZtSize k = 0; k <= std::min(j, columns - 1); ++k) sum += l(i, k) * l(j, k);
      return sum;
    };
    for (ZtSize j = 0; j < columns; ++j) {
      for (ZtSize i = j; i < rows; ++i) l(i, j) = i == j ? 8.0 : uniform();
    }
    for (ZtSize j = 0; j < columns; ++j) {
      for (ZtSize i = j; i < rows; ++i) panel[i + j * stride] = product(i, j);
    }
    std::vector<double> broken = panel;
    ASSERT_EQ(
        frontCholesky(rows, columns, panel.data(), stride, update.data(), scratch.data(), nullptr),
        columns);
    for (ZtSize i = 0; i < rows; ++i) {
      for (ZtSize j = 0; j <= std::min(i, columns - 1); ++j) {
        ASSERT_NEAR(panel[i + j * stride], l(i, j), 1e-12) << i << ' ' << j;
      }
      for (ZtSize j = columns; j <= i; ++j) {
        ASSERT_NEAR(update[i - columns + (j - columns) * below], -product(i, j), 1e-11) << i;
      }
    }
    const ZtSize bad = pick(0, static_cast<int>(columns) - 1);
    broken[bad * (stride + 1)] = bad % 2 == 0 ? -1.0 : std::nan("");
    EXPECT_EQ(frontCholesky(rows, columns, broken.data(), stride, nullptr, scratch.data(), nullptr),
              bad);
  }
}

TEST_P(KernelsOnEveryLevel, TransposeMovesEveryElementAndNothingElse) {
  for (int round = 0; round < 60; ++round) {
    const Block a(pick(1, 150), pick(1, 150), pick(0, 9));
    Block target(a.view.cols, a.view.rows, pick(0, 9));
    target.view.setTransposeOf(a.view);
    ASSERT_TRUE(sameBits(target.view, transposed(a.view)));
    ASSERT_TRUE(target.outsideUntouched());
  }
}

// Column by column on the lower triangle, as any faster way has to round. Returns the pivot that
// failed, or n.
ZtSize plainCholesky(Matrix& a) {
  const ZtSize n = a.rows;
  for (ZtSize k = 0; k < n; ++k) {
    if (0.0 >= a(k, k)) return k;
    a(k, k) = std::sqrt(a(k, k));
    const double inverse = 1.0 / a(k, k);
    for (ZtSize i = k + 1; i < n; ++i) a(i, k) *= inverse;
    for (ZtSize j = k + 1; j < n; ++j) {
      for (ZtSize i = j; i < n; ++i) a(i, j) -= a(i, k) * a(j, k);
    }
  }
  a.setTriL(a);
  return n;
}

TEST_P(KernelsOnEveryLevel, CholeskyIsThePlainLoopToTheBitAlsoWhereItFails) {
  for (const ZtSize n : {0, 1, 2, 7, 8, 9, 16, 23, 24, 25, 40, 67, 131, 300}) {
    for (int round = 0; round < 6; ++round) {
      Block target(n, n, pick(0, 3));
      Matrix& a = target.view;
      target.fill([&] { return uniform(); });
      a.setSelfAddDiag(2.0 * std::sqrt(double(n)) + 1.0);
      for (ZtSize i = 1; i < n; ++i) a(i - 1, i) = 1e300;  // never read
      if (round >= 2 && n > 0) {                           // may fail or not
        const ZtSize spot = pick(0, int(n) - 1);
        if (round == 5) a(spot, 0) = -0.0;
        a(spot, spot) = round == 2 ? std::nan("") : -double(round % 2);
      }
      Matrix expected = a;
      const ZtSize done = plainCholesky(expected);
      ASSERT_EQ(a.setCholesky(false), done == n);
      ASSERT_TRUE(sameBits(a, expected)) << "failed at " << done;
      ASSERT_TRUE(target.outsideUntouched());
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
}  // namespace dense_testing
