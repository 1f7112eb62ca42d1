// Dense products of square matrices in turn: ours at the level of this machine and at AVX2, our
// kernel with fused multiply-add that the inverse step uses, OpenBLAS' dgemm, Eigen, and for small
// orders the plain loop. OPENBLAS_CORETYPE chooses OpenBLAS' kernel, and only before it starts.
//   compare_dense [--limit=SECONDS an order] ORDER...
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "eigen_peers.h"
#include "kernels/processor.h"
#include "kernels/products/fused_product.h"
#include "math/dense/korin_matrix.h"
#include "measure.h"

#ifdef ZEPH_COMPARE_OPENBLAS
extern "C" {
void cblas_dgemm(int order, int transA, int transB, int m, int n, int k, double alpha,
                 const double* a, int lda, const double* b, int ldb, double beta, double* c,
                 int ldc);
char* openblas_get_corename(void);
}
#endif

namespace {

using korin::Matrix;
using korin::kernels::forceProcessorLevel;
using korin::kernels::ProcessorLevel;

constexpr std::size_t kLargestForPlainLoop = 16;

struct Contestant {
  std::string name;
  std::function<void()> multiply;
  compare::Best best;
};

Matrix randomMatrix(std::size_t n, unsigned int seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<> uniform(-1.0, 1.0);
  Matrix m(n, n);
  for (std::size_t i = 0; i < n * n; ++i) m.data[i] = uniform(random);
  return m;
}

void plainProduct(const Matrix& a, const Matrix& b, Matrix& c) {
  const std::size_t n = a.rows;
  for (std::size_t i = 0; i < n; ++i) {
    double* row = c.data + i * n;
    std::fill_n(row, n, 0.0);
    for (std::size_t p = 0; p < n; ++p) {
      const double factor = a.data[i * n + p];
      for (std::size_t j = 0; j < n; ++j) row[j] += factor * b.data[p * n + j];
    }
  }
}

#ifdef ZEPH_COMPARE_OPENBLAS
void openblasProduct(const Matrix& a, const Matrix& b, Matrix& c) {
  constexpr int kRowMajor = 101, kNoTranspose = 111;
  const int n = static_cast<int>(a.rows);
  cblas_dgemm(kRowMajor, kNoTranspose, kNoTranspose, n, n, n, 1.0, a.data, n, b.data, n, 0.0,
              c.data, n);
}
#endif

void measure(std::size_t n, double limit) {
  const Matrix a = randomMatrix(n, 1), b = randomMatrix(n, 2);
  Matrix c(n, n), expected(n, n);
  plainProduct(a, b, expected);
  const ProcessorLevel level = korin::kernels::detectedProcessorLevel();
  const auto stride = static_cast<std::ptrdiff_t>(n);

  std::vector<Contestant> contestants;
  contestants.push_back({"ours", [&] { c.setMatMulMat(a, b); }, {}});
  contestants.push_back({"fused",
                         [&] {
                           korin::kernels::fusedProduct(n, n, n, 1.0, {a.data, stride, 1},
                                                        {b.data, stride, 1}, 0.0,
                                                        {c.data, stride, 1});
                         },
                         {}});
  if (level > ProcessorLevel::Avx2) {
    contestants.push_back({"avx2", [&] { c.setMatMulMat(a, b); }, {}});
  }
#ifdef ZEPH_COMPARE_OPENBLAS
  contestants.push_back({"openblas", [&] { openblasProduct(a, b, c); }, {}});
#endif
#ifdef ZEPH_COMPARE_EIGEN
  contestants.push_back({"eigen", [&] { compare::eigenProduct(n, a.data, b.data, c.data); }, {}});
#endif
  if (n <= kLargestForPlainLoop) {
    contestants.push_back({"plain", [&] { plainProduct(a, b, c); }, {}});
  }

  const double operations = 2.0 * std::pow(static_cast<double>(n), 3.0);
  // Enough products at a time for the clock's resolution.
  const int batch = std::max(1, static_cast<int>(2e7 / operations));
  double difference = 0.0;
  compare::repeat(limit, 5, 200, [&] {
    for (Contestant& x : contestants) {
      forceProcessorLevel(x.name == "avx2" ? ProcessorLevel::Avx2 : level);
      std::fill_n(c.data, n * n, std::numeric_limits<double>::quiet_NaN());
      x.multiply();
      for (std::size_t i = 0; i < n * n; ++i) {
        const double error = std::fabs(c.data[i] - expected.data[i]);
        difference = error <= difference ? difference : error;  // NaN is a difference
      }
      x.best.add(compare::seconds([&] {
        for (int k = 0; k < batch; ++k) x.multiply();
      }));
    }
  });
  forceProcessorLevel(level);

  compare::Record record("dense");
  record.add("n", n).add("level", static_cast<int>(level));
  for (const Contestant& x : contestants) {
    record.add(x.name, operations * batch / x.best.value * 1e-9);
  }
#ifdef ZEPH_COMPARE_OPENBLAS
  record.add("core", openblas_get_corename());
#endif
  // Sums of n products of values below 1; the text tells also what is not finite.
  record.add("agree", difference <= 1e-13 * static_cast<double>(n));
  record.print();
}

}  // namespace

int main(int argc, char** argv) {
  const compare::Arguments arguments(argc, argv);
  for (const std::string& order : arguments.positions()) {
    measure(std::strtoul(order.c_str(), nullptr, 10), arguments.number("limit", 1.0));
  }
}
