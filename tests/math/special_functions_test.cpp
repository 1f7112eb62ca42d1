#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <vector>

#include "math/korin_math_base.h"

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
  const char* name;
  Function function;
  Function derivative;  // of function, null for the second derivatives
  Quad (*reference)(int, int, Quad);
  int family;
  int order;
  double threshold;
  double tolerance;  // largest relative error allowed above the threshold
};

const Case kCases[] = {
    {"sinc", korin::sinc, korin::sincJacobian, sincFamily, 1, 0, 0.050190914246321355, 3e-16},
    {"sincJacobian", korin::sincJacobian, korin::sincHessian, sincFamily, 1, 1, 0.05904227960167175,
     5e-13},
    {"sincHessian", korin::sincHessian, nullptr, sincFamily, 1, 2, 0.04486095539256875, 2e-12},
    {"cosinc", korin::cosinc, korin::cosincJacobian, sincFamily, 2, 0, 0.061376541846515406, 5e-14},
    {"cosincJacobian", korin::cosincJacobian, korin::cosincHessian, sincFamily, 2, 1,
     0.06773385303251855, 1e-10},
    {"cosincHessian", korin::cosincHessian, nullptr, sincFamily, 2, 2, 0.05146510070086663, 8e-10},
    {"disinc", korin::disinc, korin::disincJacobian, sincFamily, 3, 0, 0.07220038303931696, 2e-13},
    {"disincJacobian", korin::disincJacobian, korin::disincHessian, sincFamily, 3, 1,
     0.07632716972793631, 9e-10},
    {"disincHessian", korin::disincHessian, nullptr, sincFamily, 3, 2, 0.05799456382805544, 9e-9},
    {"asinc", korin::asinc, korin::asincJacobian, asincSeries, 0, 0, 0.015679843745529276, 3e-16},
    {"asincJacobian", korin::asincJacobian, korin::asincHessian, asincSeries, 0, 1,
     0.010649333937042363, 2e-11},
    {"asincHessian", korin::asincHessian, nullptr, asincSeries, 0, 2, 0.00809185095426405, 6e-11},
    {"acosinc", korin::acosinc, korin::acosincJacobian, acosincSeries, 0, 0, 0.0002571349336840866,
     1e-13},
    {"acosincJacobian", korin::acosincJacobian, korin::acosincHessian, acosincSeries, 0, 1,
     0.0001591242264943736, 2e-9},
    {"acosincHessian", korin::acosincHessian, nullptr, acosincSeries, 0, 2, 0.00011665819474381395,
     5e-5},
};

// The point at distance d from where a case's polynomial is centred.
double pointAt(const Case& c, double d) {
  return c.reference == acosincSeries ? 1.0 + d : d;
}

TEST(SpecialFunctions, SincFamiliesFollowTheirSeriesOnBothSidesOfTheSwitch) {
  for (const Case& c : kCases) {
    // Geometric and dense near the threshold; the series converge fast up to 0.5 (u down to -0.5).
    std::vector<double> distances = {1e-8};
    for (double d = 1e-7; d < 0.5; d *= 1.07) distances.push_back(d);
    for (int i = -50; i <= 50; ++i) distances.push_back(c.threshold * (1.0 + 0.002 * i));
    for (const double d : distances) {
      const double x = pointAt(c, -d);
      const Quad expected = c.reference(c.family, c.order, x);
      const bool polynomial = std::fabs(x - pointAt(c, 0.0)) < c.threshold;
      const double tolerance = polynomial ? 4e-16 : c.tolerance;
      EXPECT_NEAR(static_cast<double>((c.function(x) - expected) / expected), 0.0, tolerance)
          << c.name << " at " << x;
    }
  }
}

TEST(SpecialFunctions, DerivativesMatchDifferencesAwayFromTheSwitch) {
  constexpr double kStep = 1e-5;
  for (const Case& c : kCases) {
    if (c.derivative == nullptr) continue;
    const bool bounded = c.reference != sincFamily;
    for (double x = bounded ? -0.9 : -9.5; x < (bounded ? 0.9 : 9.5); x += 0.17) {
      if (std::fabs(x) < 0.1) continue;
      const double difference = (c.function(x + kStep) - c.function(x - kStep)) / (2 * kStep);
      EXPECT_NEAR(c.derivative(x), difference, 3e-8 * (1.0 + std::fabs(difference)))
          << c.name << " at " << x;
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
  struct {
    double value, expected;
  } const exact[] = {
      {korin::sinc(0), 1.0},
      {korin::cosinc(0), 0.5},
      {korin::disinc(0), 1.0 / 6.0},
      {korin::asinc(0), 1.0},
      {korin::acosinc(1), 1.0},
      {korin::sincJacobian(0), 0.0},
      {korin::sincHessian(0), -1.0 / 3.0},
      {korin::asinClamped(1.5), std::asin(1.0)},
      {korin::asinClamped(-7), -std::asin(1.0)},
      {korin::acosClamped(-1.5), std::acos(-1.0)},
      {korin::acosClamped(0.25), std::acos(0.25)},
      {korin::asincClamped(3), std::asin(1.0)},
      {korin::asincClamped(-3), std::asin(1.0)},
      {korin::asincClamped(0.01), korin::asinc(0.01)},
      {korin::acosincClamped(1.5), 1.0},
      {korin::acosincClamped(-1), kInfinity},
      {korin::acosincClamped(0.3), korin::acosinc(0.3)},
      {korin::asincInv(0.5), 0.5 / std::asin(0.5)},
      {korin::asincInv(0.00026), 1.0 - 0.00026 * 0.00026 / 6.0},
      {korin::asincInv(1), 0.6366197723675814},
      {korin::asincInv(-2), 0.6366197723675814},
      {korin::sq(-3), 9.0},
      {korin::interpolate(0.25, 8, 4), 5.0},
      {korin::xlog2(8), std::log(8.0) * 1.4426950408889634},
  };
  for (const auto& e : exact) EXPECT_EQ(e.value, e.expected) << &e - exact;
  for (const double nan : {korin::asinc(2), korin::acosinc(2), korin::asinClamped(kNaN),
                           korin::acosincClamped(kNaN), korin::asincInv(kNaN)}) {
    EXPECT_TRUE(std::isnan(nan));
  }
}

TEST(SpecialFunctions, FuzzyComparisonsIncludeTheirBound) {
  EXPECT_FALSE(korin::fuzzyIsEqual(0, 1e-300));
  EXPECT_TRUE(korin::fuzzyIsEqual(0.0, -0.0));
  EXPECT_FALSE(korin::fuzzyIsEqual(1, 1 + 3e-16));
  EXPECT_FALSE(korin::fuzzyIsEqual(kInfinity, kInfinity));
  EXPECT_TRUE(korin::fuzzyIsEqual(1.0, 1.5, 0.5));
  EXPECT_FALSE(korin::fuzzyIsEqual(1.0, 1.5, 0.4999));
  EXPECT_TRUE(korin::fuzzyCompareRelative(-4.0, -3.0, 0.25));
  EXPECT_FALSE(korin::fuzzyCompareRelative(-4.0, -3.0, 0.2499));
}

TEST(SpecialFunctions, UlpDistances) {
  const double next = std::nextafter(1.0, 2.0);
  const long largest = std::numeric_limits<long>::max();
  struct {
    double a, b;
    long ulps;
  } const cases[] = {
      {1.0, next, 1},
      {next, 1.0, 1},
      {0.0, -0.0, 0},
      {5e-324, 0.0, 1},
      {-1.0, -next, 1},
      {2.0, 1.0, 1L << 52},
      {kNaN, kNaN, 0},
      {5e-324, -0.0, largest},
      {0.0, -5e-324, largest},
      {1.0, -1.0, largest},
      {-1.0, 2.0, largest - (1L << 52) + 1},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(korin::ulpDiff(c.a, c.b), c.ulps) << c.a << " " << c.b;
    EXPECT_TRUE(korin::ulpCompare(c.a, c.b, c.ulps));
    EXPECT_EQ(korin::ulpCompare(c.a, c.b, c.ulps - 1), c.a == c.b) << c.a << " " << c.b;
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

// psi(x + 1) = psi(x) + 1 / x walks up to where the first correction terms suffice.
Quad digammaReference(Quad x) {
  if (x < 0.0L) {
    return digammaReference(1.0L - x) -
           std::numbers::pi_v<Quad> / std::tan(std::numbers::pi_v<Quad> * x);
  }
  Quad sum = 0.0L;
  for (; x < 3000.0L; x += 1.0L) sum -= 1.0L / x;
  return sum + std::log(x) - 0.5L / x - 1.0L / (12.0L * x * x) + 1.0L / (120.0L * x * x * x * x);
}

Quad trigammaReference(Quad x) {
  const Quad pi = std::numbers::pi_v<Quad>;
  if (x < 0.0L) return std::pow(pi / std::sin(pi * x), 2.0L) - trigammaReference(1.0L - x);
  Quad sum = 0.0L;
  for (; x < 3000.0L; x += 1.0L) sum += 1.0L / (x * x);
  const Quad cube = x * x * x;
  return sum + 1.0L / x + 0.5L / (x * x) + 1.0L / (6.0L * cube) - 1.0L / (30.0L * cube * x * x);
}

TEST(SpecialFunctions, DigammaAndTrigammaFollowTheirRecurrence) {
  for (const double x : {1e-9, 0.01, 0.37, 0.5,    1.0,  1.4616, 2.75, 8.99,  9.0,   10.99,  11.0,
                         11.5, 14.2, 57.0, 1234.5, -0.3, -0.75,  -1.4, -2.62, -17.3, -100.45}) {
    const Quad psi = digammaReference(x);
    const Quad psi1 = trigammaReference(x);
    EXPECT_NEAR(static_cast<double>(korin::digamma(x) - psi), 0.0,
                5e-15 + 2e-14 * static_cast<double>(std::fabs(psi)))
        << x;
    EXPECT_NEAR(static_cast<double>(korin::trigamma(x) / psi1), 1.0, x > 0 ? 6e-14 : 1e-11) << x;
  }
}

TEST(SpecialFunctions, DigammaAndTrigammaEndForAnyArgument) {
  for (const double pole : {0.0, -1.0, -2.0, -3.0, -1048576.0, -1048577.0, -1e12, -1e16}) {
    EXPECT_EQ(korin::digamma(pole), -kInfinity) << pole;
    EXPECT_EQ(korin::trigamma(pole), kInfinity) << pole;
  }
  for (const double far : {-18014398509481984.0, -1e300, -kInfinity, kNaN}) {
    EXPECT_TRUE(std::isnan(korin::digamma(far))) << far;
    EXPECT_TRUE(std::isnan(korin::trigamma(far))) << far;
  }
  // Both sides of where reflection takes over from the recurrence; psi is continuous there.
  const double above = korin::digamma(-1048575.75);
  const double below = korin::digamma(-1048576.75);
  EXPECT_NEAR(above - below, 1.0 / -1048576.75, 2e-12);
  EXPECT_NEAR(korin::trigamma(-1048576.25) / korin::trigamma(-1048575.25), 1.0, 1e-6);
  EXPECT_EQ(korin::digamma(kInfinity), kInfinity);
  EXPECT_EQ(korin::trigamma(kInfinity), 0.0);
}

}  // namespace
