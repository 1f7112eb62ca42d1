#include "zeph/jobs/report/distributions.h"

#include <math.h>  // lgamma_r, which unlike std::lgamma shares no variable between threads

#include <cmath>
#include <limits>

namespace zeph {
namespace {

constexpr double kEpsilon = std::numeric_limits<double>::epsilon();
constexpr double kTiny = 1e-300;
constexpr double kFarthestNormal = 40.0;  // erfc underflows before
constexpr int kHalvings = 200;            // more than a bracket can take

/// Where `below(x)` turns from true to false between low and high.
template <class Below>
double bisected(double low, double high, const Below& below) {
  for (int k = 0; k < kHalvings; ++k) {
    const double middle = 0.5 * (low + high);
    if (middle <= low || middle >= high) break;
    (below(middle) ? low : high) = middle;
  }
  return 0.5 * (low + high);
}

/// The regularised incomplete gamma function P(a, x): its series below a + 1, 1 minus Legendre's
/// continued fraction by Lentz's method (1976) above.
double gammaP(double a, double x) {
  if (x <= 0.0) return 0.0;
  int sign = 0;
  const double front = std::exp(a * std::log(x) - x - lgamma_r(a, &sign));
  if (x < a + 1.0) {
    double term = 1.0 / a, sum = term;
    for (double n = a + 1.0; term > kEpsilon * sum; n += 1.0) sum += term *= x / n;
    return front * sum;
  }
  double b = x + 1.0 - a, c = 1.0 / kTiny, d = 1.0 / b, h = d;
  for (double k = 1.0, step = 0.0; std::fabs(step - 1.0) > kEpsilon; k += 1.0) {
    const double numerator = k * (a - k);
    b += 2.0;
    d = b + numerator * d;
    c = b + numerator / c;
    d = 1.0 / (std::fabs(d) < kTiny ? kTiny : d);
    if (std::fabs(c) < kTiny) c = kTiny;
    step = c * d;
    h *= step;
  }
  return 1.0 - front * h;
}

}  // namespace

double normalQuantile(double upperTail) {
  return bisected(0.0, kFarthestNormal, [upperTail](double z) {
    return 0.5 * std::erfc(z * std::sqrt(0.5)) > upperTail;
  });
}

double chiSquareQuantile(double f, double p) {
  // Chebyshev's inequality bounds it on the right.
  const double high = f + std::sqrt(2.0 * f / (1.0 - p)) + 1.0;
  return bisected(0.0, high, [=](double x) { return gammaP(0.5 * f, 0.5 * x) < p; });
}

}  // namespace zeph
