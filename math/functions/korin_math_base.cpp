#include "math/functions/korin_math_base.h"

#include <math.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

namespace korin {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kLog2OfE = 1.4426950408889634;
constexpr double kTwoOverPi = 0.6366197723675814;
constexpr double kSqrtTwoPi = 2.5066282746310002;
constexpr double kFuzzyRelative = 1e-16;

// The recurrences of digamma and trigamma take |x| / 3 steps for negative x. Beyond this many the
// reflection formula gives the same value to rounding at once.
constexpr double kRecurrenceLimit = -1048576.0;
// From here on down x + 3 == x: no recurrence, and no fraction to reflect.
constexpr double kNoStepLimit = -18014398509481984.0;  // -2^54

struct SinCos {
  double s;
  double c;
};

SinCos sinCos(double x) {
  SinCos result;
  ::sincos(x, &result.s, &result.c);
  return result;
}

// c0 + c1 t + c2 t^2 + c3 t^3
double cubic(double t, double c0, double c1, double c2, double c3) {
  return c0 + t * (c1 + t * (c2 + t * c3));
}

// x reduced by the nearest integer, exactly: tan(pi x) and sin(pi x)^2 stay the same.
double fractionAroundInteger(double x) {
  return x - std::nearbyint(x);
}

}  // namespace

double sinc(double x) {
  if (std::fabs(x) < 0.050190914246321355) {
    return cubic(x * x, 1.0, -1.0 / 6.0, 1.0 / 120.0, -1.0 / 5040.0);
  }
  return std::sin(x) / x;
}

double sincJacobian(double x) {
  const double t = x * x;
  if (std::fabs(x) < 0.05904227960167175) {
    return x * cubic(t, -1.0 / 3.0, 1.0 / 30.0, -1.0 / 840.0, 1.0 / 45360.0);
  }
  const auto [s, c] = sinCos(x);
  return c / x - s / t;
}

double sincHessian(double x) {
  const double t = x * x;
  if (std::fabs(x) < 0.04486095539256875) {
    return cubic(t, -1.0 / 3.0, 1.0 / 10.0, -1.0 / 168.0, 1.0 / 6480.0);
  }
  const auto [s, c] = sinCos(x);
  return (2.0 * s / t - (2.0 * c / x + s)) / x;
}

double cosinc(double x) {
  const double t = x * x;
  if (std::fabs(x) < 0.061376541846515406) {
    return cubic(t, 1.0 / 2.0, -1.0 / 24.0, 1.0 / 720.0, -1.0 / 40320.0);
  }
  return (1.0 - std::cos(x)) / t;
}

double cosincJacobian(double x) {
  const double t = x * x;
  if (std::fabs(x) < 0.06773385303251855) {
    return x * cubic(t, -1.0 / 12.0, 1.0 / 180.0, -1.0 / 6720.0, 1.0 / 453600.0);
  }
  const auto [s, c] = sinCos(x);
  return s / t - 2.0 * (1.0 - c) / (x * t);
}

double cosincHessian(double x) {
  const double t = x * x;
  if (std::fabs(x) < 0.05146510070086663) {
    return cubic(t, -1.0 / 12.0, 1.0 / 60.0, -1.0 / 1344.0, 1.0 / 64800.0);
  }
  const auto [s, c] = sinCos(x);
  return (c - (4.0 * s / x + 6.0 * (c - 1.0) / t)) / t;
}

double disinc(double x) {
  const double t = x * x;
  if (std::fabs(x) < 0.07220038303931696) {
    return cubic(t, 1.0 / 6.0, -1.0 / 120.0, 1.0 / 5040.0, -1.0 / 362880.0);
  }
  return (x - std::sin(x)) / (x * t);
}

double disincJacobian(double x) {
  const double t = x * x;
  if (std::fabs(x) < 0.07632716972793631) {
    return x * cubic(t, -1.0 / 60.0, 1.0 / 1260.0, -1.0 / 60480.0, 1.0 / 4989600.0);
  }
  const auto [s, c] = sinCos(x);
  const double cube = x * t;
  return (1.0 - c) / cube - 3.0 * (x - s) / (x * cube);
}

double disincHessian(double x) {
  const double t = x * x;
  if (std::fabs(x) < 0.05799456382805544) {
    return cubic(t, -1.0 / 60.0, 1.0 / 420.0, -1.0 / 12096.0, 1.0 / 712800.0);
  }
  const auto [s, c] = sinCos(x);
  return (6.0 * (c - 1.0) / x + s + 12.0 * (x - s) / t) / (x * t);
}

double asinc(double x) {
  if (std::fabs(x) < 0.015679843745529276) {
    return cubic(x * x, 1.0, 1.0 / 6.0, 3.0 / 40.0, 5.0 / 112.0);
  }
  return std::asin(x) / x;
}

double asincJacobian(double x) {
  const double t = x * x;
  if (std::fabs(x) < 0.010649333937042363) {
    return x * cubic(t, 1.0 / 3.0, 0.3, 15.0 / 56.0, 35.0 / 144.0);
  }
  return 1.0 / (x * std::sqrt(1.0 - t)) - std::asin(x) / t;
}

double asincHessian(double x) {
  const double t = x * x;
  if (std::fabs(x) < 0.00809185095426405) {
    return cubic(t, 1.0 / 3.0, 0.9, 75.0 / 56.0, 245.0 / 144.0);
  }
  const double c = 1.0 - t;
  return std::pow(c, -1.5) + 2.0 * std::asin(x) / (x * t) - 2.0 / (t * std::sqrt(c));
}

double acosinc(double x) {
  const double u = x - 1.0;
  if (std::fabs(u) < 0.0002571349336840866) {
    return cubic(u, 1.0, -1.0 / 3.0, 2.0 / 15.0, -2.0 / 35.0);
  }
  return std::acos(x) / std::sqrt(1.0 - x * x);
}

double acosincJacobian(double x) {
  const double u = x - 1.0;
  if (std::fabs(u) < 0.0001591242264943736) {
    return cubic(u, -1.0 / 3.0, 4.0 / 15.0, -6.0 / 35.0, 32.0 / 315.0);
  }
  const double c = 1.0 - x * x;
  const double s = std::sqrt(c);
  return std::acos(x) * x / (s * s * s) - 1.0 / c;
}

double acosincHessian(double x) {
  const double u = x - 1.0;
  if (std::fabs(u) < 0.00011665819474381395) {
    return cubic(u, 4.0 / 15.0, -12.0 / 35.0, 32.0 / 105.0, -160.0 / 693.0);
  }
  const double t = x * x;
  const double s = std::sqrt(1.0 - t);
  const double cube = s * s * s;
  const double angle = std::acos(x);
  return angle / cube + 3.0 * t * angle / (cube * s * s) - 3.0 * x / sq(t - 1.0);
}

double asinClamped(double x) {
  return std::asin(std::clamp(x, -1.0, 1.0));
}

double acosClamped(double x) {
  return std::acos(std::clamp(x, -1.0, 1.0));
}

double asincClamped(double x) {
  return asinc(std::clamp(x, -1.0, 1.0));
}

double acosincClamped(double x) {
  if (x >= 1.0) return 1.0;
  if (x <= -1.0) return std::numeric_limits<double>::infinity();
  return acosinc(x);
}

double asincInv(double x) {
  const double magnitude = std::fabs(x);
  if (magnitude <= 0.00026) return 1.0 - x * x / 6.0;
  if (magnitude >= 1.0) return kTwoOverPi;
  return x / std::asin(x);
}

double sq(double x) {
  return x * x;
}

double interpolate(double t, double a, double b) {
  return t * a + (1.0 - t) * b;
}

double xlog2(double x) {
  return std::log(x) * kLog2OfE;
}

bool fuzzyIsEqual(double a, double b) {
  return fuzzyCompareRelative(a, b, kFuzzyRelative);
}

bool fuzzyIsEqual(double a, double b, double tol) {
  return std::fabs(a - b) <= tol;
}

bool fuzzyCompareRelative(double a, double b, double rel) {
  return std::fabs(a - b) <= std::max(std::fabs(a), std::fabs(b)) * rel;
}

long ulpDiff(double a, double b) {
  if (a == b) return 0;
  std::uint64_t patternA = 0;
  std::uint64_t patternB = 0;
  std::memcpy(&patternA, &a, sizeof a);
  std::memcpy(&patternB, &b, sizeof b);
  // Unsigned, because the difference of two signed patterns can overflow.
  const std::uint64_t difference = patternA - patternB;
  constexpr std::uint64_t kMostNegative = 0x8000000000000000U;
  if (difference < kMostNegative) return static_cast<long>(difference);
  if (difference == kMostNegative) return std::numeric_limits<long>::max();
  return static_cast<long>(0 - difference);
}

bool ulpCompare(double a, double b, long maxUlps) {
  // Equal values compare equal even for a negative limit.
  return a == b || ulpDiff(a, b) <= maxUlps;
}

double gamma(double x) {
  // Only the magnitude is asked for: arguments <= -0.5 are not reflected, on purpose.
  if (std::fabs(x) < 0.5) return kPi / (std::sin(kPi * x) * korin::gamma(1.0 - x));

  constexpr double kFirst = 0.9999999999998099;
  constexpr double kCoefficients[] = {
      676.5203681218851,  -1259.1392167224028,  771.3234287776531,    -176.6150291621406,
      12.507343278686905, -0.13857109526572012, 9.984369578019572e-6, 1.5056327351493116e-7};
  const double y = x - 1.0;
  double sum = kFirst;
  double k = 1.0;
  for (const double coefficient : kCoefficients) {
    sum += coefficient / (y + k);
    k += 1.0;
  }
  const double w = y + 7.5;
  return kSqrtTwoPi * std::exp(std::log(w) * (y + 0.5) - w) * sum;
}

double digamma(double x) {
  if (x <= kNoStepLimit) return std::numeric_limits<double>::quiet_NaN();
  if (x < kRecurrenceLimit) {
    return digamma(1.0 - x) - kPi / std::tan(kPi * fractionAroundInteger(x));
  }

  // Roots of x^2 + 2x + 2/3, negated: 1/x + 1/(x+1) + 1/(x+2) = 3 (x + a)(x + b) / (x (x+1)(x+2)).
  constexpr double kRootA = 1.5773502691896257;
  constexpr double kRootB = 0.4226497308103742;
  double s = 0.0;
  while (x < 11.0) {
    s -= (x + kRootA) * (x + kRootB) / (x * (x + 1.0) * (x + 2.0));
    x += 3.0;
  }
  s *= 3.0;

  const double t = 1.0 / (x * x);
  // The three leading coefficients are not those of the asymptotic series; they are kept on purpose
  // and lie below double precision for x >= 11.
  double p = -kRootA * t - kRootB;
  for (const double coefficient : {3.0, -1.0 / 12.0, 691.0 / 32760.0, -5.0 / 660.0, 1.0 / 240.0,
                                   -1.0 / 252.0, 1.0 / 120.0, -1.0 / 12.0}) {
    p = p * t + coefficient;
  }
  return std::log(x) + t * p + s - 0.5 / x;
}

double trigamma(double x) {
  if (x <= kNoStepLimit) return std::numeric_limits<double>::quiet_NaN();
  if (x < kRecurrenceLimit) {
    return sq(kPi / std::sin(kPi * fractionAroundInteger(x))) - trigamma(1.0 - x);
  }

  double s = 0.0;
  while (x < 9.0) {
    // 1/x^2 + 1/(x+1)^2 + 1/(x+2)^2, divided by 3.
    const double numerator = (((x + 4.0) * x + 6.0) * x + 4.0) * x + 4.0 / 3.0;
    s += numerator / ((((((x + 6.0) * x + 13.0) * x + 12.0) * x + 4.0) * x) * x);
    x += 3.0;
  }
  s *= 3.0;

  const double r = 1.0 / x;
  const double t = r * r;
  double q = 0.0;
  for (const double bernoulli :
       {-691.0 / 2730.0, 5.0 / 66.0, -1.0 / 30.0, 1.0 / 42.0, -1.0 / 30.0, 1.0 / 6.0}) {
    q = (q + bernoulli) * t;
  }
  return (q + 1.0) * r + 0.5 * t + s;
}

}  // namespace korin
