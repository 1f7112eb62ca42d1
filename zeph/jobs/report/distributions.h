// Quantiles that the tests of an adjustment need.
#ifndef ZEPH_JOBS_REPORT_DISTRIBUTIONS_H
#define ZEPH_JOBS_REPORT_DISTRIBUTIONS_H

namespace zeph {

/// z that a standard normal variable exceeds with the given probability, for 0 < upperTail <= 1/2.
double normalQuantile(double upperTail);

/// x below which a chi-square variable of f > 0 degrees of freedom falls with probability p,
/// 0 < p < 1. Relative error below 1e-9 up to f = 10⁷; cost grows with √f.
double chiSquareQuantile(double f, double p);

}  // namespace zeph

#endif
