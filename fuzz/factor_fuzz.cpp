// The whole pipeline: small matrices of every kind by every route, order and number of threads,
// beside the inverse in long double. An answer is right within its own estimate, or there is none.
#include <algorithm>
#include <numeric>
#include <string>
#include <vector>

#include "fuzz/input.h"
#include "tests/zeph/factor/dense_truth.h"
#include "tests/zeph/factor/exact.h"
#include "zeph/error.h"
#include "zeph/factor.h"

namespace {

constexpr unsigned kMost = 14;

zeph::SparseMatrix matrix(Input& in) {
  zeph::SparseMatrix A;
  const unsigned n = 1 + in.below(kMost), kind = in.below(4);
  const int decades = static_cast<int>(in.below(3)) * 8;
  A.rows = A.cols = n;
  A.symmetry = kind < 3 ? zeph::Symmetry::Symmetric : zeph::Symmetry::General;
  const unsigned edges = in.below(3 * n + 1);
  const auto weight = [&] { return std::fabs(in.value(decades)); };
  for (unsigned k = 0; k < edges; ++k) {
    const unsigned i = in.below(n), j = in.below(n);
    if (kind < 2) {  // a network: positive semidefinite, definite where it is held
      const double w = weight();
      A.entries.push_back({i, i, w});
      if (i == j) continue;
      A.entries.push_back({j, j, w});
      A.entries.push_back({std::max(i, j), std::min(i, j), -w});
    } else {
      A.entries.push_back(
          {std::max(i, j), kind == 2 ? std::min(i, j) : in.below(n), in.value(decades)});
    }
  }
  for (unsigned i = 0; i < n; ++i) {
    if (in.byte() % 4 != 0) A.entries.push_back({i, i, weight()});
  }
  // Duplicates add up in an order of the library's choice: they come as equal halves, whose sum has
  // no rounding.
  std::vector<double> sums(n * n, 0.0);
  for (const zeph::Entry& e : A.entries) sums[e.row * n + e.col] += e.value;
  A.entries.clear();
  for (unsigned i = 0; i < n; ++i) {
    for (unsigned j = 0; j < n; ++j) {
      const double sum = sums[i * n + j];
      if (sum == 0.0) continue;
      const unsigned parts = in.byte() % 8 == 0 ? 2 : 1;
      A.entries.insert(A.entries.end(), parts, {i, j, sum / parts});
    }
  }
  return A;
}

zeph::Options options(Input& in, unsigned n) {
  zeph::Options o;
  const zeph::Route routes[] = {zeph::Route::Automatic, zeph::Route::Cholesky, zeph::Route::Lu};
  o.route = routes[in.below(3)];
  o.threads = 1 + static_cast<int>(in.below(3));
  const unsigned order = in.below(5);
  const zeph::Ordering orders[] = {zeph::Ordering::Automatic, zeph::Ordering::MinimumDegree,
                                   zeph::Ordering::NestedDissection, zeph::Ordering::Natural,
                                   zeph::Ordering::Given};
  o.ordering = orders[order];
  if (o.ordering == zeph::Ordering::Given) {
    o.permutation.resize(n);
    std::iota(o.permutation.begin(), o.permutation.end(), 0);
    for (unsigned i = n; i-- > 1;) std::swap(o.permutation[i], o.permutation[in.below(i + 1)]);
  }
  return o;
}

void print(const zeph::SparseMatrix& A) {
  const DenseTruth truth(A);
  for (std::size_t k = 0; k < truth.n * truth.n; ++k) {
    std::fprintf(stderr, "%.17Lg%c", truth.a[k], (k + 1) % truth.n == 0 ? '\n' : ' ');
  }
}

void judge(const zeph::Factor& f, const zeph::SparseMatrix& A, Input& in) {
  const std::vector<double> d = f.variances();
  const DenseTruth truth(A);
  const std::size_t n = A.rows;
  const bool definite = f.report().route == zeph::Route::Cholesky;
  // How well long double knows the inverse: of matrices that need LU it may know less than zeph.
  double spread = 0.0;
  for (std::size_t i = 0; i < n; ++i) {
    long double sum = 0.0L;
    for (std::size_t k = 0; k < n; ++k) sum += truth.a[i * n + k] * truth(k, i);
    spread = std::max(spread, static_cast<double>(std::fabs(sum - 1.0L)));
  }
  if (!definite && !(spread < 1e-6)) return;
  PROMISE(spread < 1e-3);

  const double estimate = f.report().relativeErrorEstimate + (definite ? spread : 0.0);
  // By LU entries may cancel to nearly nothing, where long double knows no digit of them either.
  std::vector<std::vector<long double>> exact;
  if (!definite) exact = exactInverse(A);
  PROMISE(definite || !exact.empty());
  std::vector<long double> diagonal;
  for (std::size_t i = 0; i < n; ++i) diagonal.push_back(definite ? truth(i, i) : exact[i][i]);
  std::int64_t wrong = 0;
  for (std::size_t i = 0; i < n; ++i) {
    if (std::fabs(d[i] - diagonal[i]) <= estimate * std::fabs(diagonal[i])) continue;
    if (++wrong <= f.report().uncertainVariances) continue;
    print(A);
    std::fprintf(stderr,
                 "variance %zu is %.17g by the %s route, should be %.17Lg; estimate %g, %lld "
                 "uncertain\n",
                 i, d[i], definite ? "Cholesky" : "LU", diagonal[i], estimate,
                 static_cast<long long>(f.report().uncertainVariances));
    std::abort();
  }
  if (definite) {
    std::vector<std::int64_t> some;
    for (std::size_t i = 0; i < n; i += 1 + in.below(3)) some.push_back(static_cast<int>(i));
    const std::vector<double> few = f.variances(some);
    const zeph::DenseMatrix block = f.covarianceBlock(some);
    for (std::size_t a = 0; a < some.size(); ++a) {
      for (std::size_t b = 0; b < some.size(); ++b) {
        const auto i = static_cast<std::size_t>(some[a]), j = static_cast<std::size_t>(some[b]);
        const double size = std::sqrt(static_cast<double>(truth(i, i) * truth(j, j)));
        const double c = block.values[b * some.size() + a];
        if (!(std::fabs(c - truth(i, j)) <= 20 * estimate * size)) {
          print(A);
          std::fprintf(stderr, "covariance %zu, %zu is %.17g, should be %.17Lg; estimate %g\n", i,
                       j, c, truth(i, j), estimate);
          std::abort();
        }
      }
      const auto i = static_cast<std::size_t>(some[a]);
      PROMISE(std::fabs(few[a] - truth(i, i)) <= 2 * estimate * truth(i, i));
    }
    PROMISE(f.determinantSign() == 1);
    PROMISE(std::fabs(f.logDeterminant() - truth.logAbs) <=
            static_cast<double>(n) * estimate + 1e-13 * std::fabs(truth.logAbs));
  }
  std::vector<double> b(n);
  for (double& v : b) v = in.value(2);
  const std::vector<double> x = f.solve(b);
  for (std::size_t i = 0; i < n; ++i) {
    long double rest = b[i], size = std::fabs(b[i]);
    for (std::size_t k = 0; k < n; ++k) {
      rest -= truth.a[i * n + k] * x[k];
      size += std::fabs(truth.a[i * n + k] * x[k]);
    }
    PROMISE(std::fabs(rest) <= 1e-14L * size);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input in(data, size);
  zeph::SparseMatrix A = matrix(in);
  zeph::Options o = options(in, static_cast<unsigned>(A.rows));
  try {
    zeph::Factor f(A, o);
    judge(f, A, in);
    if (!A.entries.empty() && in.byte() % 2 == 0) {
      std::vector<double> values;
      const double scale = 1.0 + in.below(200);
      for (zeph::Entry& e : A.entries) values.push_back(e.value *= scale);
      f.refactorise(values);
      judge(f, A, in);
    }
  } catch (const zeph::Error& e) {
    PROMISE(std::string(e.what()).find('\n') == std::string::npos);
    PROMISE(e.kind() == zeph::ErrorKind::Singular || e.kind() == zeph::ErrorKind::Unfit ||
            e.kind() == zeph::ErrorKind::NotPositiveDefinite);
  }
  return 0;
}
