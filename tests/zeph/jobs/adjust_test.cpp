#include "zeph/adjust.h"

#include "tests/zeph/factor/dense_truth.h"
#include "tests/zeph/front_test.h"

namespace zeph {
namespace {

struct Network {
  SparseMatrix J;
  std::vector<double> y, sigma;

  void observe(std::vector<std::pair<unsigned, double>> terms, double value, double sd) {
    for (const auto& [unknown, factor] : terms) {
      J.entries.push_back({static_cast<unsigned>(y.size()), unknown, factor});
    }
    y.push_back(value);
    sigma.push_back(sd);
    J.rows = y.size();
  }
};

class AdjustTest : public FrontTest {
 protected:
  /// Unknown 0 is held; the last one hangs on a single observation, whose number is `hanging`.
  /// One observation has its only term in two parts.
  Network network(unsigned n, unsigned& hanging) {
    Network w;
    w.J.source = "J";
    w.J.cols = n;
    w.observe({{0, 0.25}, {0, 0.75}}, uniform(90, 110), 0.3);
    for (unsigned j = 1; j < n; ++j) {
      hanging = static_cast<unsigned>(w.y.size());
      w.observe({{j, 1.0}, {below(j), -1.0}}, uniform(-5, 5), uniform(0.1, 20.0));
    }
    for (unsigned k = below(3 * n); k > 0 && n > 2; --k) {
      const unsigned a = below(n - 1), b = below(n - 1), c = below(n - 1);
      w.observe({{a, uniform(1, 2)}, {b, uniform(-1, 1)}, {c, -0.5}}, uniform(-9, 9),
                uniform(0.1, 20.0));
    }
    return w;
  }
};

TEST_F(AdjustTest, AgreesWithDenseStatistics) {
  for (unsigned trial = 0; trial < 60; ++trial) {
    SCOPED_TRACE(trial);
    const unsigned n = 1 + below(25);
    unsigned hanging = 0;
    const Network w = network(n, hanging);
    const std::size_t m = w.J.rows;
    const Adjustment a = adjust(w.J, w.y, w.sigma);

    std::vector<std::vector<long double>> J(m, std::vector<long double>(n, 0.0L));
    for (const Entry& e : w.J.entries) J[e.row][e.col] += e.value;
    SparseMatrix N;
    N.rows = N.cols = n;
    std::vector<long double> right(n, 0.0L), x(n, 0.0L);
    const auto weight = [&](std::size_t i) { return 1.0L / w.sigma[i] / w.sigma[i]; };
    for (unsigned i = 0; i < n; ++i) {
      for (unsigned j = 0; j < n; ++j) {
        long double sum = 0.0L;
        for (std::size_t k = 0; k < m; ++k) sum += J[k][i] * weight(k) * J[k][j];
        N.entries.push_back({i, j, static_cast<double>(sum)});
      }
      for (std::size_t k = 0; k < m; ++k) right[i] += J[k][i] * weight(k) * w.y[k];
    }
    const DenseTruth Z(N);
    for (unsigned i = 0; i < n; ++i) {
      for (unsigned j = 0; j < n; ++j) x[i] += Z(i, j) * right[j];
      EXPECT_NEAR(a.x[i], static_cast<double>(x[i]), 1e-8);
      EXPECT_NEAR(a.sigma[i] / std::sqrt(static_cast<double>(Z(i, i))), 1.0, 1e-8);
    }
    long double squares = 0.0L;
    double largest = 0.0;
    for (std::size_t k = 0; k < m; ++k) {
      long double v = w.y[k], h = 0.0L;
      for (unsigned i = 0; i < n; ++i) {
        v -= J[k][i] * x[i];
        for (unsigned j = 0; j < n; ++j) h += J[k][i] * Z(i, j) * J[k][j] * weight(k);
      }
      squares += v * v * weight(k);
      const auto r = static_cast<double>(1.0L - h);
      EXPECT_NEAR(a.residuals[k], static_cast<double>(v), 1e-8);
      EXPECT_NEAR(a.leverage[k], static_cast<double>(h), 1e-8);
      EXPECT_NEAR(a.redundancy[k], r, 1e-8);
      EXPECT_EQ(std::isnan(a.normalizedResiduals[k]), a.redundancy[k] == 0.0);
      if (r < 1e-6) continue;
      EXPECT_NEAR(a.residualSigma[k], w.sigma[k] * std::sqrt(r), 1e-6);
      const double u = static_cast<double>(v) / (w.sigma[k] * std::sqrt(r));
      EXPECT_NEAR(a.normalizedResiduals[k], u, 1e-6 * (1.0 + std::fabs(u)));
      largest = std::max(largest, std::fabs(u));
    }
    EXPECT_EQ(a.redundancy[hanging], 0.0);
    EXPECT_EQ(a.degreesOfFreedom, static_cast<std::int64_t>(m - n));
    EXPECT_EQ(a.suspect < 0, m == n);
    if (m == n) continue;
    EXPECT_NEAR(std::fabs(a.normalizedResiduals[a.suspect]), largest, 1e-6 * largest);
    const auto factor = static_cast<double>(squares) / static_cast<double>(m - n);
    EXPECT_NEAR(a.varianceFactor, factor, 1e-8 * (1.0 + factor));
  }
}

// The normal matrix alone would leave about half of the digits.
TEST_F(AdjustTest, RegainsWhatTheNormalMatrixLoses) {
  Network w;
  w.J.cols = 7;
  for (int i = 0; i <= 12; ++i) {
    std::vector<std::pair<unsigned, double>> powers;
    double sum = 0.0;
    for (unsigned k = 0; k < 7; ++k) powers.emplace_back(k, std::pow(i / 12.0, k));
    for (unsigned k = 7; k-- > 0;) sum += powers[k].second;
    w.observe(powers, sum, 0.1);
  }
  for (const double x : adjust(w.J, w.y, w.sigma).x) EXPECT_NEAR(x, 1.0, 2e-11);
}

TEST_F(AdjustTest, FaultsAreNamedInTheUsersTerms) {
  unsigned hanging = 0;
  Network good;
  while (good.y.size() < 12) good = network(10, hanging);
  good.J.indexBase = 1;
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const struct {
    void (*spoil)(Network&, double nan);
    const char* error;
  } cases[] = {
      {[](Network& w, double) { w.y.pop_back(); }, "4 there are"},
      {[](Network& w, double) { w.sigma.resize(3); }, "4 there are 3 standard deviations"},
      {[](Network& w, double) { w.sigma[4] = 0.0; }, "4 the standard deviation of observation 5"},
      {[](Network& w, double) { w.sigma[4] = -1.0; }, "4 the standard deviation of observation 5"},
      {[](Network& w, double) { w.sigma[4] = 1e-200; }, "4 the standard deviation of observatio"},
      {[](Network& w, double n) { w.sigma[4] = n; }, "4 the standard deviation of observation 5"},
      {[](Network& w, double n) { w.y[2] = n; }, "4 observation 3 of J is nan"},
      {[](Network& w, double n) { w.J.entries[3].value = n; }, "4 "},
      {[](Network& w, double) { w.J.cols = w.J.rows + 1; }, "4 J has"},
      {[](Network& w, double) { w.J.cols = 0, w.J.entries.clear(); }, "4 J has no columns"},
      {[](Network& w, double) { w.J.cols = 11; }, "6 unknown 11 of J occurs in no observation"},
  };
  for (const auto& c : cases) {
    Network w = good;
    c.spoil(w, nan);
    expectError([&] { adjust(w.J, w.y, w.sigma); }, c.error);
  }
  // Free networks, alone and beside one that is held; rounding hides the defect from the pivots.
  for (const unsigned n : {2u, 30u, 3000u}) {
    for (const bool beside : {false, true}) {
      Network w;
      w.J.cols = n + beside;
      if (beside) w.observe({{n, 1.0}}, 1.0, 1.0), w.observe({{n, 1.0}}, 1.0, 1.0);
      for (unsigned i = 1; i < n; ++i) {
        w.observe({{i, 1.1}, {i - 1, -1.1}}, 1.0, uniform(0.3, 3.0));
        w.observe({{i, 1.7}, {below(i), -1.7}}, 1.0, uniform(0.3, 3.0));
      }
      expectError([&] { adjust(w.J, w.y, w.sigma); }, "no point is held fixed", false);
    }
  }
}

}  // namespace
}  // namespace zeph
