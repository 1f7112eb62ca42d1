#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <tuple>
#include <vector>

#include "math/functions/korin_math_base.h"

namespace {

using Quad = long double;
using Function = double (*)(double);

const double kInfinity = std::numeric_limits<double>::infinity();
const double kNaN = std::numeric_limits<double>::quiet_NaN();

// j-th derivative of the power series sum c_k z^(step k) in long double.
template <class Next>
Quad seriesDerivative(Quad z, int step, int j, Quad c, int terms, Next next) {
  Quad sum = 0.0L;
  for (int k = 0; k < terms; c = next(c, k), ++k) {
    Quad factor = 1.0L;
    for (int i = 0; i < j; ++i) factor *= static_cast<Quad>(step * k - i);
    if (step * k >= j) sum += c * factor * std::pow(z, static_cast<Quad>(step * k - j));
  }
  return sum;
}

// sum (-1)^k x^2k / (2k + m)!, which is sinc, cosinc and disinc for m = 1, 2, 3.
Quad sincFamily(int m, int j, Quad x) {
  return seriesDerivative(x, 2, j, 1.0L / std::tgamma(m + 1.0L), 40, [m](Quad c, int k) {
    return -c / (static_cast<Quad>(2 * k + m + 1) * static_cast<Quad>(2 * k + m + 2));
  });
}

// The series' coefficients of asin x / x obey c_k+1 = c_k (2k+1)^2 / ((2k+2)(2k+3)).
Quad asincSeries(int, int j, Quad x) {
  return seriesDerivative(x, 2, j, 1.0L, 60, [](Quad c, int k) {
    const Quad odd = 2.0L * k + 1.0L;
    return c * odd * odd / ((odd + 1.0L) * (odd + 2.0L));
  });
}

Quad acosincSeries(int, int j, Quad x) {
  return seriesDerivative(x - 1.0L, 1, j, 1.0L, 90,
                          [](Quad c, int k) { return -c * (k + 1.0L) / (2.0L * k + 3.0L); });
}

struct Case {
  Function function;
  Quad (*reference)(int family, int order, Quad x);
  int family;
  int order;  // of the derivative
  double threshold;
  double tolerance;  // largest relative error allowed above the threshold
};

const Case kCases[] = {{korin::sinc, sincFamily, 1, 0, 0.050190914246321355, 3e-16},
                       {korin::sincJacobian, sincFamily, 1, 1, 0.05904227960167175, 5e-13},
                       {korin::sincHessian, sincFamily, 1, 2, 0.04486095539256875, 2e-12},
                       {korin::cosinc, sincFamily, 2, 0, 0.061376541846515406, 5e-14},
                       {korin::cosincJacobian, sincFamily, 2, 1, 0.06773385303251855, 1e-10},
                       {korin::cosincHessian, sincFamily, 2, 2, 0.05146510070086663, 8e-10},
                       {korin::disinc, sincFamily, 3, 0, 0.07220038303931696, 2e-13},
                       {korin::disincJacobian, sincFamily, 3, 1, 0.07632716972793631, 9e-10},
                       {korin::disincHessian, sincFamily, 3, 2, 0.05799456382805544, 9e-9},
                       {korin::asinc, asincSeries, 0, 0, 0.015679843745529276, 3e-16},
                       {korin::asincJacobian, asincSeries, 0, 1, 0.010649333937042363, 2e-11},
                       {korin::asincHessian, asincSeries, 0, 2, 0.00809185095426405, 6e-11},
                       {korin::acosinc, acosincSeries, 0, 0, 0.0002571349336840866, 1e-13},
                       {korin::acosincJacobian, acosincSeries, 0, 1, 0.0001591242264943736, 2e-9},
                       {korin::acosincHessian, acosincSeries, 0, 2, 0.00011665819474381395, 5e-5}};

TEST(SpecialFunctions, SincFamiliesFollowTheirSeriesOnBothSidesOfTheSwitch) {
  for (const Case& c : kCases) {
    // Geometric and dense near the threshold; the series converge fast up to there, on both sides
    // of 0 but only below 1.
    const double centre = c.reference == acosincSeries ? 1.0 : 0.0;
    std::vector<double> distances;
    for (double d = 1e-8; d < (c.reference == sincFamily ? 9.5 : 0.5); d *= 1.07) {
      distances.push_back(distances.size() % 2 == 0 || centre == 1.0 ? d : -d);
    }
    for (int i = -50; i <= 50; ++i) distances.push_back(c.threshold * (1.0 + 0.002 * i));
    for (const double d : distances) {
      const double x = centre - d;
      const Quad expected = c.reference(c.family, c.order, x);
      const double tolerance = std::fabs(x - centre) < c.threshold ? 4e-16 : c.tolerance;
      EXPECT_NEAR(static_cast<double>((c.function(x) - expected) / expected), 0.0, tolerance)
          << &c - kCases << " at " << x;
    }
  }
}

TEST(SpecialFunctions, TheClosedFormIsUsedAtTheThresholdItself) {
  // At these two the polynomial and the closed form round differently.
  const double cosincAt = 0.061376541846515406;
  EXPECT_EQ(korin::cosinc(cosincAt), (1.0 - std::cos(cosincAt)) / (cosincAt * cosincAt));
  EXPECT_NE(korin::cosinc(cosincAt), korin::cosinc(std::nextafter(cosincAt, 0.0)));
  const double jacobianAt = 0.05904227960167175;
  EXPECT_EQ(korin::sincJacobian(-jacobianAt),
            std::cos(jacobianAt) / -jacobianAt + std::sin(jacobianAt) / (jacobianAt * jacobianAt));
}

TEST(SpecialFunctions, ValuesAtTheEndsOfTheDomains) {
  const double cases[][2] = {{korin::sinc(0) + korin::acosinc(1) + korin::asinc(0), 3.0},
                             {korin::cosinc(0) + korin::sincJacobian(0), 0.5},
                             {korin::asinClamped(1.5), std::asin(1.0)},
                             {korin::asinClamped(-7), -std::asin(1.0)},
                             {korin::acosClamped(-1.5), std::acos(-1.0)},
                             {korin::acosClamped(0.25), std::acos(0.25)},
                             {korin::asincClamped(3), korin::asincClamped(-3)},
                             {korin::asincClamped(3), std::asin(1.0)},
                             {korin::acosincClamped(1.5), 1.0},
                             {korin::acosincClamped(-1), kInfinity},
                             {korin::acosincClamped(0.3), korin::acosinc(0.3)},
                             {korin::asincInv(0.5), 0.5 / std::asin(0.5)},
                             {korin::asincInv(0.00026), 1.0 - 0.00026 * 0.00026 / 6.0},
                             {korin::asincInv(-2), 0.6366197723675814},
                             {korin::interpolate(0.25, 8, 4), 5.0},
                             {korin::xlog2(8), std::log(8.0) * 1.4426950408889634}};
  for (const auto& c : cases) EXPECT_EQ(c[0], c[1]) << &c - cases;
  for (const double value : {korin::asinc(2), korin::acosinc(2), korin::asinClamped(kNaN),
                             korin::acosincClamped(kNaN), korin::asincInv(kNaN)}) {
    EXPECT_TRUE(std::isnan(value));
  }
}

TEST(SpecialFunctions, FuzzyComparisonsIncludeTheirBound) {
  EXPECT_FALSE(korin::fuzzyIsEqual(0, 1e-300));
  EXPECT_TRUE(korin::fuzzyIsEqual(0.0, -0.0));
  EXPECT_FALSE(korin::fuzzyIsEqual(1, 1 + 3e-16));
  EXPECT_FALSE(korin::fuzzyIsEqual(kInfinity, kInfinity));
  EXPECT_TRUE(korin::fuzzyIsEqual(1.0, 1.5, 0.5) && korin::fuzzyCompareRelative(-4, -3, 0.25));
  EXPECT_FALSE(korin::fuzzyIsEqual(1.0, 1.5, 0.49) || korin::fuzzyCompareRelative(-4, -3, 0.24));
}

TEST(SpecialFunctions, UlpDistances) {
  const double next = std::nextafter(1.0, 2.0), tiny = 5e-324;
  const long largest = std::numeric_limits<long>::max(), binade = 1L << 52;
  const std::tuple<double, double, long> cases[] = {
      {1.0, next, 1},        {next, 1.0, 1},
      {0.0, -0.0, 0},        {tiny, 0.0, 1},
      {-1.0, -next, 1},      {2.0, 1.0, binade},
      {tiny, -0.0, largest}, {0.0, -tiny, largest},
      {1.0, -1.0, largest},  {-1.0, 2.0, largest - binade + 1},
      {kNaN, kNaN, 0}};
  for (const auto& [a, b, ulps] : cases) {
    EXPECT_EQ(korin::ulpDiff(a, b), ulps) << a << " " << b;
    EXPECT_TRUE(korin::ulpCompare(a, b, ulps));
    EXPECT_EQ(korin::ulpCompare(a, b, ulps - 1), a == b) << a << " " << b;
  }
}

TEST(SpecialFunctions, GammaAgreesWithTheCLibraryWhereItIsAccurate) {
  for (double x = -0.499; x < 171.0; x += 0.173) {
    const Quad expected = std::tgamma(static_cast<Quad>(x));
    const double tolerance = x < 20.0 ? 2e-14 : 4e-13;
    EXPECT_NEAR(static_cast<double>(korin::gamma(x) / expected), 1.0, tolerance) << x;
  }
  EXPECT_NEAR(korin::gamma(5), 24.0, 24e-13);
  EXPECT_TRUE(std::isnan(korin::gamma(-7.5)));  // not reflected
}

// digamma (order 0) or trigamma (1): the recurrence walks up to where the first correction terms
// suffice; below 0, reflection.
Quad polygamma(int order, Quad x) {
  const Quad pi = std::numbers::pi_v<Quad>;
  if (x < 0.0L && order == 0) return polygamma(0, 1.0L - x) - pi / std::tan(pi * x);
  if (x < 0.0L) return std::pow(pi / std::sin(pi * x), 2.0L) - polygamma(1, 1.0L - x);
  Quad sum = 0.0L;
  for (; x < 3000.0L; x += 1.0L) sum += order == 0 ? -1.0L / x : 1.0L / (x * x);
  if (order == 0) return sum + std::log(x) - 0.5L / x - 1.0L / (12.0L * x * x);
  return sum + 1.0L / x + 0.5L / (x * x) + 1.0L / (6.0L * x * x * x);
}

TEST(SpecialFunctions, DigammaAndTrigammaFollowTheirRecurrence) {
  for (const double x : {1e-9, 0.37, 0.5, 1.4616, 2.75, 8.99, 9.0, 10.99, 11.0, 14.2, 57.0, 1234.5,
                         -0.3, -0.75, -2.62, -17.3, -100.45}) {
    const auto psi = static_cast<double>(polygamma(0, x));
    EXPECT_NEAR(korin::digamma(x), psi, 5e-15 + 2e-14 * std::fabs(psi)) << x;
    const Quad ratio = korin::trigamma(x) / polygamma(1, x);
    EXPECT_NEAR(static_cast<double>(ratio), 1.0, x > 0 ? 6e-14 : 1e-11) << x;
  }
}

TEST(SpecialFunctions, DigammaAndTrigammaEndForAnyArgument) {
  for (const double pole : {0.0, -1.0, -2.0, -3.0, -1048576.0, -1048577.0, -1e12, -1e16}) {
    EXPECT_EQ(korin::digamma(pole), -kInfinity) << pole;
    EXPECT_EQ(korin::trigamma(pole), kInfinity) << pole;
  }
  EXPECT_EQ(korin::digamma(-0.0), kInfinity);  // from below
  for (const double far : {-18014398509481984.0, -1e300, -kInfinity, kNaN}) {
    EXPECT_TRUE(std::isnan(korin::digamma(far))) << far;
    EXPECT_TRUE(std::isnan(korin::trigamma(far))) << far;
  }
  // Reflection takes over from the recurrence at -2^20; digamma has the period 1 there, nearly.
  const double difference = korin::digamma(-1048575.75) - korin::digamma(-1048576.75);
  EXPECT_NEAR(difference, 1.0 / -1048576.75, 2e-12);
  EXPECT_NEAR(korin::trigamma(-1048576.25) / korin::trigamma(-1048575.25), 1.0, 1e-6);
  EXPECT_EQ(1.0 / korin::digamma(kInfinity), korin::trigamma(kInfinity));
}

}  // namespace
