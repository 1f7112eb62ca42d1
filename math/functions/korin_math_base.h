// Special functions on double: the sinc family with derivatives, clamped inverse trigonometric
// functions, tolerant comparisons, gamma and its logarithmic derivatives.
//
// Nothing here throws or checks: arguments outside a domain give NaN or infinities, as the closed
// forms do. Errors stated below are the largest found against 113-bit references on 100,000 random
// arguments a range, with the neighbourhood of every switch as a range of its own.
#ifndef ZEPH_MATH_FUNCTIONS_KORIN_MATH_BASE_H
#define ZEPH_MATH_FUNCTIONS_KORIN_MATH_BASE_H

namespace korin {

// Sinc family. Jacobian is the first derivative, Hessian the second. Each function is a cubic
// polynomial (in x^2; acosinc: in x - 1) strictly below a fixed small threshold and the closed form
// from there on. The polynomials err by at most 3.1e-16 relative; the closed forms err most just
// above the threshold, where their terms cancel: that largest relative error up to |x| = 1 is the
// "rel" below. From |x| = 1 to 20 the sin and cos families err by at most 1.4e-15 absolute, and the
// acosinc family down to x = -0.999 by at most 6.4e-14 relative.

/// sin(x) / x; rel 1.7e-16, derivatives 2.8e-13 and 1.2e-12.
double sinc(double x);
double sincJacobian(double x);
double sincHessian(double x);

/// (1 - cos(x)) / x^2; rel 3.0e-14, derivatives 6.4e-11 and 5.8e-10.
double cosinc(double x);
double cosincJacobian(double x);
double cosincHessian(double x);

/// (x - sin(x)) / x^3; rel 1.2e-13, derivatives 5.7e-10 and 6.4e-9.
double disinc(double x);
double disincJacobian(double x);
double disincHessian(double x);

/// asin(x) / x for |x| <= 1 (derivatives: |x| < 1), NaN beyond; rel 2.3e-16, derivatives 9.8e-12
/// and 3.8e-11.
double asinc(double x);
double asincJacobian(double x);
double asincHessian(double x);

/// acos(x) / sqrt(1 - x^2) for -1 < x < 1 + threshold, NaN beyond; rel 5.4e-14, derivatives 8.2e-10
/// and 2.5e-5 (at the threshold, x = 1 - 1.17e-4; 1.5e-13 up to x = 0.9).
double acosinc(double x);
double acosincJacobian(double x);
double acosincHessian(double x);

/// asin and acos of x clamped to [-1, 1]; NaN stays NaN.
double asinClamped(double x);
double acosClamped(double x);
/// asinc of x clamped to [-1, 1].
double asincClamped(double x);
/// acosinc, with 1 for x >= 1 and +infinity for x <= -1.
double acosincClamped(double x);
/// x / asin(x), the reciprocal of asinc; 2/pi for |x| >= 1.
double asincInv(double x);

/// x * x.
double sq(double x);
/// t * a + (1 - t) * b: t = 1 gives a.
double interpolate(double t, double a, double b);
/// Binary logarithm.
double xlog2(double x);

/// |a - b| <= max(|a|, |b|) * 1e-16: plain equality of finite values, whose neighbours are farther
/// apart. By the formula an infinity equals every finite value and not itself.
bool fuzzyIsEqual(double a, double b);
/// |a - b| <= tol.
bool fuzzyIsEqual(double a, double b, double tol);
/// |a - b| <= max(|a|, |b|) * rel.
bool fuzzyCompareRelative(double a, double b, double rel);
/// Distance in representable numbers between values of one sign; 0 for equal values, +0 and -0
/// among them. Taken on the bit patterns, so values of opposite sign are very many apart, at most
/// 2^63 - 1. NaNs count as their bit patterns.
long ulpDiff(double a, double b);
/// ulpDiff(a, b) <= maxUlps.
bool ulpCompare(double a, double b, long maxUlps);

/// Gamma function by the Lanczos approximation with g = 7 and nine terms (Lanczos 1964, in
/// Godfrey's coefficients), reflected on (-0.5, 0.5) only. Relative error up to 2.2e-15 on
/// (-0.5, 0.5), 1.4e-14 to 20 and 2.8e-13 to 171, where it overflows. Arguments <= -0.5 give what
/// the approximation yields there: 1e-10 down to -3, 1e-2 near the poles down to -6, NaN below
/// -6.5. Call it as korin::gamma: the C library has another function of this name.
double gamma(double x);
/// Logarithmic derivative of gamma by recurrence and asymptotic series. Error up to 3.6e-15
/// absolute on [0.5, 20] (zero at 1.4616) and 6.6e-16 relative on (0, 0.5] and from 20 on; for
/// negative x up to 5e-11 relative near the poles. -infinity at the poles 0, -1, -2, ..., but
/// +infinity at -0.0, the limit from below; NaN at and below -2^54, where steps of 3 no longer
/// change x. At most 350,000 steps, for x = -2^20.
double digamma(double x);
/// Derivative of digamma. Relative error up to 4.5e-14 for x > 0; for negative x the recurrence
/// cancels near the poles (7e-5 at a distance of 1e-5). +infinity at the poles, NaN at and below
/// -2^54.
double trigamma(double x);

}  // namespace korin

#endif
