#include "tests/zeph/factor/hard_matrices.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <optional>
#include <random>
#include <utility>

#include "tests/zeph/factor/exact.h"
#include "tests/zeph/matrices.h"
#include "zeph/factor.h"

namespace {

using zeph::SparseMatrix;
using zeph::Symmetry;
using Rows = std::vector<std::vector<double>>;
using Formula = std::function<double(unsigned, unsigned)>;

// The lower triangle of a symmetric or skew-symmetric matrix, or all of a general one.
SparseMatrix made(unsigned n, Symmetry symmetry, const Formula& entry) {
  SparseMatrix A = zeph::squareMatrix(n, symmetry);
  A.triangular = true;  // what has one triangle only is meant so
  for (unsigned i = 0; i < n; ++i) {
    const unsigned end = symmetry == Symmetry::General         ? n
                         : symmetry == Symmetry::SkewSymmetric ? i
                                                               : i + 1;
    for (unsigned j = 0; j < end; ++j) {
      if (const double v = entry(i, j); v != 0.0) A.entries.push_back({i, j, v});
    }
  }
  return A;
}

SparseMatrix symmetric(unsigned n, const Formula& entry) {
  return made(n, Symmetry::Symmetric, entry);
}

double hilbert(unsigned i, unsigned j) {
  return 1.0 / (i + j + 1);
}

// Kahan's triangle for an angle, whose rows shrink by its sine.
double kahan(unsigned i, unsigned j) {
  const double angle = 1.2;
  if (j < i) return 0.0;
  return std::pow(std::sin(angle), i) * (i == j ? 1.0 : -std::cos(angle));
}

SparseMatrix normal(unsigned n, const Formula& factor) {
  return symmetric(n, [&](unsigned i, unsigned j) {
    double sum = 0.0;
    for (unsigned k = 0; k < n; ++k) sum += factor(k, i) * factor(k, j);
    return sum;
  });
}

// A path of so many levelled heights, the first held by a weight.
Formula path(double held, unsigned n = 0) {
  return [held, n](unsigned i, unsigned j) {
    if (i == j) return i == 0 ? 1.0 + held : i + 1 == n ? 1.0 : 2.0;
    return i == j + 1 || j == i + 1 ? -1.0 : 0.0;
  };
}

// Height differences between all neighbours of a grid of that width with weights 1 to 4, no height
// held.
SparseMatrix levelling(unsigned width, unsigned height) {
  SparseMatrix A = zeph::squareMatrix(std::size_t{width} * height, Symmetry::Symmetric);
  for (unsigned i = 0; i < A.rows; ++i) {
    for (const unsigned j : {i + 1, i + width}) {
      if (j >= A.rows || (j == i + 1 && j % width == 0)) continue;
      const double w = 1.0 + (i + j) % 4;
      A.entries.insert(A.entries.end(), {{i, i, w}, {j, j, w}, {j, i, -w}});
    }
  }
  return A;
}

// Poses (x, y, angle) in a ring with its chords, linearised where all angles are multiples of a
// right angle and positions are whole; `held` is added to the diagonal of the first pose.
SparseMatrix poses(unsigned count, double held) {
  const std::size_t n = 3 * std::size_t{count};
  Rows a(n, std::vector<double>(n, 0.0));
  for (unsigned from = 0; from < count; ++from) {
    for (const unsigned step : {1u, 3u}) {
      const unsigned to = (from + step) % count;
      const double dx = static_cast<double>(to) - from, dy = from % 3 - static_cast<double>(to % 3);
      const bool turned = from % 2 != 0;
      const double jacobian[3][6] = {{turned ? 0. : -1., turned ? -1. : 0., turned ? -dx : dy,
                                      turned ? 0. : 1., turned ? 1. : 0., 0},
                                     {turned ? 1. : 0., turned ? 0. : -1., turned ? -dy : -dx,
                                      turned ? -1. : 0., turned ? 0. : 1., 0},
                                     {0, 0, -1, 0, 0, 1}};
      const auto index = [&](unsigned k) { return k < 3 ? 3 * from + k : 3 * to + k - 3; };
      for (const auto& row : jacobian) {
        for (unsigned p = 0; p < 6; ++p) {
          for (unsigned q = 0; q < 6; ++q) a[index(p)][index(q)] += row[p] * row[q];
        }
      }
    }
  }
  for (unsigned k = 0; k < 3; ++k) a[k][k] += held;
  return symmetric(3 * count, [&](unsigned i, unsigned j) { return a[i][j]; });
}

// One block after the other, without an entry between them.
SparseMatrix beside(const std::vector<SparseMatrix>& blocks) {
  SparseMatrix A = zeph::squareMatrix(0, Symmetry::Symmetric);
  for (const SparseMatrix& block : blocks) {
    const auto shift = static_cast<std::uint32_t>(A.rows);
    for (const zeph::Entry& e : block.entries) {
      A.entries.push_back({e.row + shift, e.col + shift, e.value});
    }
    A.rows = A.cols = A.rows + block.rows;
  }
  return A;
}

// Unknowns and multipliers: [K Bᵀ; B 0].
SparseMatrix saddle(unsigned n, unsigned m) {
  return symmetric(n + m, [n](unsigned i, unsigned j) {
    if (i < n) return path(1.0)(i, j);
    return j < n && (j == i - n || j == i - n + 1) ? 1.0 + (j - (i - n)) : 0.0;
  });
}

SparseMatrix uncertain() {
  return zeph::squareMatrix(8, Symmetry::Symmetric,
                            {{0, 0, 0.000611871313772057},
                             {7, 0, 7.1342254177910995},
                             {5, 1, -9.7673812559167974},
                             {7, 1, 7.25},
                             {2, 2, 1e-4},
                             {3, 2, 6691.3159030292163},
                             {4, 3, -0.5},
                             {5, 3, -2.75},
                             {6, 3, -0.68395890427628625},
                             {5, 4, 7.625},
                             {7, 5, 7.0},
                             {6, 6, 2.0}});
}

Formula always(double value) {
  return [value](unsigned, unsigned) { return value; };
}

SparseMatrix pair(double first, double other, double second) {
  return symmetric(2, [=](unsigned i, unsigned j) {
    return i != j ? other : i == 0 ? first : second;
  });
}

}  // namespace

std::vector<HardMatrix> hardMatrices() {
  using E = Expected;
  const auto G = Symmetry::General;
  const auto K = Symmetry::SkewSymmetric;
  const Formula graded = [](unsigned i, unsigned j) {
    return std::pow(10.0, -2.0 * std::max(i, j)) * (i == j ? 3.0 : 1.0);
  };
  const Formula upwards = [](unsigned i, unsigned j) {
    return std::pow(10.0, 2.0 * std::min(i, j)) * (i == j ? 3.0 : 1.0);
  };
  const Formula weighted = [](unsigned i, unsigned j) {
    const auto weight = [](unsigned k) { return k % 3 == 1 ? 1e12 : 1.0; };
    if (i == j) return weight(i) + weight(i + 1) + 1.0;
    return i == j + 1 ? -weight(i) : 0.0;
  };
  const Formula nearlyHilbert = [](unsigned i, unsigned j) {
    return hilbert(i, j) + (i > j ? 0x1p-30 : 0.0);
  };
  const Formula dense = [](unsigned i, unsigned j) {
    return i == j ? i - 3.5 : 1.0 / (1 + i + j * j);
  };
  const Formula hollow = [](unsigned i, unsigned j) { return i == j + 1 ? 1.0 + 0.1 * i : 0.0; };
  const Formula arrow = [](unsigned i, unsigned j) {
    return i == j ? (i % 2 == 0 ? 1.0 : -1.0) : j == 0 ? 0.3 * i : 0.0;
  };
  const Formula skew = [](unsigned i, unsigned j) { return 1.0 + i * i + 3.0 * j; };
  const Formula oddSkew = [](unsigned i, unsigned j) { return 1.0 + i + 3.0 * j; };
  const Formula twice = [](unsigned i, unsigned j) {
    return i < 6 ? path(1.0)(i, j) : j < 6 ? 1.0 : 0.0;
  };
  const Formula waves = [](unsigned i, unsigned j) {
    return std::sin(1.0 + 7 * i + 3 * j + i * j * j);
  };
  const Formula steep = [](unsigned i, unsigned j) {
    return std::cos(1.0 + 5 * i * j + j * j) * std::pow(10.0, 8.0 * i - 32);
  };
  const Formula denormal = [](unsigned i, unsigned j) {
    return i == j ? 2e-300 : i == j + 1 ? 3e-310 : 0.0;
  };
  const SparseMatrix three = symmetric(3, hilbert), six = symmetric(6, hilbert),
                     two = symmetric(2, hilbert), five = symmetric(5, hilbert),
                     held = symmetric(4, path(1.0)), none = symmetric(1, always(0.0));
  return {
      {"the number 3", symmetric(1, always(3.0))},
      {"the number -1e-300", symmetric(1, always(-1e-300)), E::Answer, false},
      {"the least denormal number", symmetric(1, always(5e-324)), E::Refusal, false},
      {"the number 0", none, E::Refusal, false},
      {"2 x 2, 1e200 and 1e-200", pair(1e200, 0.0, 1e-200), E::Answer, false},
      {"2 x 2, swapped", pair(0.0, 1.0, 0.0), E::Answer, true, 2},
      {"2 x 2, 1 - 1e-7 off the diagonal", pair(1.0, 1.0 - 1e-7, 1.0)},
      {"2 x 2, 1 - 2^-52 off the diagonal", pair(1.0, 1.0 - 0x1p-52, 1.0), E::Either},
      {"2 x 2, singular", pair(1.0, -3.0, 9.0), E::Refusal},
      {"2 x 2, denormal coupling", pair(3e-154, 4e-310, 5e-154), E::Answer, false},
      {"2 x 2, inverse near the least normal", pair(4e307, 1e300, 3e307), E::Answer, false},
      {"2 x 2, inverse overflows", pair(1e-310, 0.0, 1.0), E::Refusal, false},
      {"Hilbert, order 4", symmetric(4, hilbert)},
      {"Hilbert, order 6", six},
      {"Hilbert, order 8", symmetric(8, hilbert)},
      {"Hilbert, order 10", symmetric(10, hilbert), E::Either},
      {"Hilbert, order 12", symmetric(12, hilbert), E::Either},
      {"four Hilbert blocks", beside({three, six, two, five})},
      {"Hilbert by LU, unsymmetric", made(6, G, nearlyHilbert)},
      {"Kahan's triangle", made(12, G, kahan)},
      {"Kahan's normal matrix, order 8", normal(8, kahan)},
      {"Kahan's normal matrix, order 14", normal(14, kahan), E::Either},
      {"path held by 1e-03", symmetric(12, path(1e-3, 12))},
      {"path held by 1e-08", symmetric(12, path(1e-8, 12))},
      {"path held by 1e-12", symmetric(12, path(1e-12, 12)), E::Either},
      {"path held by 1e-15", symmetric(12, path(1e-15, 12)), E::Either},
      {"graded, 10^-2 a row", symmetric(12, graded)},
      {"graded upwards", symmetric(12, upwards)},
      {"weights 1 and 1e12", symmetric(9, weighted)},
      {"free levelling network", levelling(5, 4), E::Refusal},
      {"free levelling network beside a held one",
       beside({symmetric(5, path(1.0)), levelling(3, 3)}), E::Refusal},
      {"pose graph, a pose held", poses(6, 1.0)},
      {"pose graph without a fixed pose", poses(6, 0.0), E::Refusal},
      {"an unknown without an observation", beside({held, none, held}), E::Refusal},
      {"equal rows", symmetric(5, always(1.0)), E::Refusal},
      {"disconnected", beside({symmetric(1, always(7.0)), symmetric(6, path(1.0)),
                               symmetric(1, always(1e-9)), symmetric(4, hilbert), poses(3, 2.0)})},
      {"indefinite, dense", symmetric(8, dense)},
      {"indefinite, a variance cancels", uncertain()},
      {"tridiagonal, zero diagonal", symmetric(10, hollow), E::Answer, true, 10},
      {"tridiagonal, zero diagonal, odd", symmetric(9, hollow), E::Refusal},
      {"arrow, indefinite", symmetric(9, arrow)},
      {"skew-symmetric", made(6, K, skew), E::Answer, true, 6},
      {"skew-symmetric, odd order", made(7, K, oddSkew), E::Refusal},
      {"saddle point", saddle(7, 3)},
      // Five are zero; the other five are those of multipliers, whose unit against the unknowns' is
      // free here, and where it is small, the bound does not tell them from zeros.
      {"saddle point, as many conditions", saddle(5, 5), E::Answer, true, 10},
      {"saddle point, a condition twice", symmetric(8, twice), E::Refusal},
      {"unsymmetric, dense", made(9, G, waves)},
      {"unsymmetric, rows 10^(8 i)", made(8, G, steep)},
      {"denormal entries beside large ones", symmetric(6, denormal), E::Answer, false},
  };
}

SparseMatrix inOtherUnits(const SparseMatrix& A, int decades, unsigned seed) {
  std::mt19937 random(seed);
  std::vector<double> scale(A.rows);
  for (double& s : scale) {
    s = std::pow(10.0,
                 static_cast<int>(random() % (2u * static_cast<unsigned>(decades) + 1)) - decades);
  }
  std::map<std::pair<std::uint32_t, std::uint32_t>, double> sums;  // which stay one number
  for (const zeph::Entry& e : A.entries) sums[{e.row, e.col}] += e.value;
  SparseMatrix B = A;
  B.entries.clear();
  for (const auto& [at, sum] : sums) {
    B.entries.push_back({at.first, at.second, sum * scale[at.first] * scale[at.second]});
  }
  return B;
}

namespace {

using Truth = std::vector<std::vector<long double>>;

// Estimates of all results of a matrix whose variances are good to twelve digits stay below this.
constexpr double kHarmless = 1e-9;

// The results beside the variances of all unknowns that are wrong by more than kDoubtfulError
// without a warning, and those of a harmless matrix that are doubted. Errors are those of
// Report::lastErrorEstimate.
std::string missedWarning(const zeph::Factor& f, const SparseMatrix& A, const Truth& truth,
                          long double determinant) {
  const std::size_t n = truth.size();
  const zeph::Report known = f.report();
  const bool definite = known.route == zeph::Route::Cholesky;
  const bool harmless = known.uncertainVariances == 0 && known.relativeErrorEstimate < 1e-12;
  std::string fault;
  const auto check = [&](const std::string& what, long double error) {
    const double told = f.report().lastErrorEstimate;
    if (error > zeph::kDoubtfulError && f.warnings().empty()) fault += what + " unwarned; ";
    if (harmless && told > kHarmless) fault += what + " doubted; ";
  };
  // Of entry (i, j) beside the standard deviations, by LU beside the largest of its column.
  const auto beside = [&](std::size_t i, std::size_t j) {
    if (i == j) return std::fabs(truth[i][i]);
    if (definite) return std::sqrt(truth[i][i]) * std::sqrt(truth[j][j]);
    long double largest = 0.0L;
    for (std::size_t k = 0; k < n; ++k) largest = std::max(largest, std::fabs(truth[k][j]));
    return largest;
  };
  const auto errorOf = [&](std::size_t i, std::size_t j, double z) {
    const long double wrong = std::fabs(z - truth[i][j]);
    return wrong == 0.0L ? 0.0L : wrong / beside(i, j);
  };
  std::vector<std::int64_t> all;
  long double worst = 0.0L;
  for (std::size_t i = 0; i < n; ++i) {
    all.push_back(static_cast<std::int64_t>(i));
    check("a variance", errorOf(i, i, f.variances(std::vector<std::int64_t>(1, all[i]))[0]));
    std::vector<double> b(n, 0.0);
    b[i] = 1.0;
    const std::vector<double> x = f.solve(b);
    long double wrong = 0.0L, size = 0.0L;
    for (std::size_t k = 0; k < n; ++k) {
      long double unit = definite ? 0.0L : 1.0L;  // in which the unknowns are comparable
      for (const zeph::Entry& e : A.entries) {
        if (definite && e.row == k && e.col == k) unit += e.value;
      }
      unit = std::sqrt(unit);
      wrong = std::max(wrong, unit * std::fabs(x[k] - truth[k][i]));
      size = std::max(size, unit * std::fabs(truth[k][i]));
    }
    check("a solution", wrong / size);
  }
  const zeph::DenseMatrix block = f.covarianceBlock(all);
  for (std::size_t k = 0; k < n * n; ++k) {
    worst = std::max(worst, errorOf(k % n, k / n, block.values[k]));
  }
  check("a block", worst);
  if (definite) {
    worst = 0.0L;
    for (const zeph::Entry& e : f.selectedInverse().entries) {
      worst = std::max(worst, errorOf(e.row, e.col, e.value));
    }
    check("the selected inverse", worst);
  }
  check("the determinant", std::fabs(f.logDeterminant() - std::log(determinant)));
  check("the trace", std::fabs(f.traceOfInverseTimes(A) / static_cast<double>(n) - 1.0));
  return fault;
}

}  // namespace

HardOutcome judge(const HardMatrix& m, const SparseMatrix& A, const zeph::Options& options) {
  HardOutcome o;
  std::vector<double> d;
  std::optional<zeph::Factor> f;
  try {
    f.emplace(A, options);
    d = f->variances();
    const zeph::Report r = f->report();
    o.route = r.route;
    o.estimate = r.relativeErrorEstimate;
    o.uncertain = static_cast<long>(r.uncertainVariances);
  } catch (const zeph::Error& e) {
    o.refusal = e.what();
    if (m.expected == Expected::Answer) o.fault = "refused: " + o.refusal;
    return o;
  }
  if (m.expected == Expected::Refusal) o.fault = "not refused";
  long double determinant = 0.0L;
  const Truth truth = exactInverse(A, &determinant);
  if (truth.empty()) return o;
  // What is stored is rounded to the spacing of the denormal numbers.
  constexpr long double kSpacing = std::numeric_limits<double>::denorm_min();
  std::vector<double> errors;
  for (std::size_t i = 0; i < d.size(); ++i) {
    const long double wrong = std::max(std::fabs(d[i] - truth[i][i]) - kSpacing, 0.0L);
    errors.push_back(wrong == 0.0L ? 0.0 : static_cast<double>(wrong / std::fabs(truth[i][i])));
  }
  std::sort(errors.begin(), errors.end());
  errors.resize(errors.size() - static_cast<std::size_t>(o.uncertain));
  if (!errors.empty()) o.error = errors.back();
  if (!(o.error <= o.estimate)) o.fault = "wrong beyond its estimate";
  if (o.uncertain > m.cancelling) o.fault = "good entries are called uncertain";
  if (o.error > zeph::kDoubtfulError && f->warnings().empty()) o.fault = "no warning";
  // By LU solutions are judged in the units that the matrix was made in.
  if (!o.fault.empty() || (o.route != zeph::Route::Cholesky && &A != &m.A)) return o;
  try {
    o.fault = missedWarning(*f, A, truth, determinant);
  } catch (const zeph::Error& e) {
    if (e.kind() != zeph::ErrorKind::Singular) throw;
  }
  return o;
}
