// Networks that nothing holds, found and named; and no others.
#include "zeph/checks/datum.h"

#include <array>
#include <set>

#include "tests/zeph/front_test.h"
#include "tests/zeph/matrices.h"
#include "zeph/factor.h"

namespace zeph {
namespace {

class DatumTest : public FrontTest {
 protected:
  struct Case {
    SparseMatrix A;
    std::size_t dimension = 0, parts = 0;
    bool levelled = true;
    std::vector<std::vector<double>> motions = {};  // that change nothing, where they are checked
  };

  /// J with rows appended by `observe`, as its normal matrix with random weights.
  SparseMatrix normal(const SparseMatrix& J, double decades) {
    std::vector<double> weights(J.rows);
    for (double& w : weights) w = std::pow(10.0, uniform(-decades / 2, decades / 2));
    return normalEquations(J, weights);
  }

  static void observe(SparseMatrix& J, const std::vector<std::pair<unsigned, double>>& row) {
    for (const auto& [col, value] : row) {
      J.entries.push_back({static_cast<std::uint32_t>(J.rows), col, value});
    }
    ++J.rows;
  }

  /// Some parts, each a random tree with extra edges; those of `held` have a benchmark. The
  /// unknowns of the parts alternate.
  Case levelling(unsigned parts, const std::set<unsigned>& held, unsigned size, double decades) {
    SparseMatrix J;
    J.cols = std::size_t{parts} * size;
    for (unsigned part = 0; part < parts; ++part) {
      const auto at = [&](unsigned k) { return k * parts + part; };
      for (unsigned k = 1; k < size; ++k) observe(J, {{at(k), 1.0}, {at(below(k)), -1.0}});
      for (unsigned k = 0; k < size; ++k) {
        const unsigned a = below(size), b = below(size);
        if (a != b) observe(J, {{at(a), 1.0}, {at(b), -1.0}});
      }
      if (held.count(part) > 0) observe(J, {{at(below(size)), 1.0}});
    }
    return {normal(J, decades), parts - held.size(), parts - held.size(), true};
  }

  /// Points of a plane between which distances or coordinate differences are measured, in unlike
  /// units a column; fixed[k] known coordinates hold it.
  Case plane(unsigned size, bool distances, unsigned fixed, double decades) {
    SparseMatrix J;
    J.cols = std::size_t{2} * size;
    std::vector<std::array<double, 2>> point(size);
    for (auto& p : point) p = {uniform(0, 10), uniform(0, 10)};
    const auto measure = [&](unsigned a, unsigned b) {
      const double dx = point[a][0] - point[b][0], dy = point[a][1] - point[b][1];
      const double d = std::hypot(dx, dy);
      if (distances) {
        observe(J, {{2 * a, dx / d}, {2 * a + 1, dy / d}, {2 * b, -dx / d}, {2 * b + 1, -dy / d}});
      } else {
        observe(J, {{2 * a, 1e3}, {2 * b, -1e3}});
        observe(J, {{2 * a + 1, 1.0}, {2 * b + 1, -1.0}});
      }
    };
    for (unsigned a = 1; a < size; ++a) {
      for (unsigned b = a > 5 ? a - 5 : 0; b < a; ++b) measure(a, b);
    }
    for (unsigned k = 0; k < fixed; ++k) observe(J, {{k, 1.0}});
    const std::size_t free = distances ? 3 - std::min(fixed, 3u) : 2 - std::min(fixed, 2u);
    Case c{normal(J, decades), free, distances ? std::min<std::size_t>(free, 1) : free, !distances};
    if (!distances) return c;
    // A turn about the first point and shifts; the first coordinate that is known forbids the last.
    c.motions.assign(3, std::vector<double>(J.cols));
    for (unsigned a = 0; a < size; ++a) {
      c.motions[0][2 * a] = point[0][1] - point[a][1];
      c.motions[0][2 * a + 1] = point[a][0] - point[0][0];
      c.motions[1][2 * a + 1] = c.motions[2][2 * a] = 1.0;
    }
    c.motions.resize(free);
    return c;
  }

  /// That this is the first of the unknowns that the motions move most, in units of their own.
  static void expectCarrier(const Case& c, std::size_t carrier) {
    std::vector<double> moved(c.A.rows);
    std::vector<std::vector<double>> basis = c.motions;
    for (std::size_t k = 0; k < basis.size(); ++k) {
      std::vector<double>& v = basis[k];
      for (const Entry& e : c.A.entries) {
        if (e.row == e.col) v[e.row] *= std::sqrt(e.value);
      }
      for (std::size_t j = 0; j < k; ++j) {
        const double along = std::inner_product(v.begin(), v.end(), basis[j].begin(), 0.0);
        for (std::size_t i = 0; i < v.size(); ++i) v[i] -= along * basis[j][i];
      }
      const double norm = std::sqrt(std::inner_product(v.begin(), v.end(), v.begin(), 0.0));
      for (std::size_t i = 0; i < v.size(); ++i) moved[i] += (v[i] /= norm) * v[i];
    }
    const double most = *std::max_element(moved.begin(), moved.end());
    EXPECT_GE(moved[carrier], 0.9989 * most);
    for (std::size_t i = 0; i < carrier; ++i) EXPECT_LE(moved[i], 0.9991 * most);
  }

  void expectCase(const Case& c, const char* what) {
    const auto found = findDatumDefect(c.A);
    ASSERT_EQ(found.has_value(), c.dimension > 0) << what;
    if (!found) {
      EXPECT_NO_THROW(Factor{c.A}.variances()) << what;
      return;
    }
    EXPECT_EQ(found->dimension, c.dimension) << what;
    EXPECT_EQ(found->parts, c.parts) << what;
    EXPECT_EQ(found->levelled, c.levelled) << what;
    EXPECT_EQ(found->carriers.size(), c.parts) << what;
    if (!c.motions.empty()) expectCarrier(c, found->carriers.at(0));
    // What the factor says when it is asked, by any route.
    for (const auto route : {Route::Automatic, Route::Cholesky, Route::Lu}) {
      Options options;
      options.route = route;
      const char* said = route == Route::Lu ? "" : "6 the normal matrix";
      expectError([&] { Factor(c.A, options).variances(); }, said);
      expectError([&] { Factor(c.A, options).variances({0}); }, said);
      expectError([&] { Factor(c.A, options).solve(std::vector<double>(c.A.rows, 1.0)); }, said);
    }
    // Known values of as many unknowns of each part as its share is make it regular.
    if (c.dimension > c.parts) return;
    SparseMatrix held = c.A;
    for (const std::size_t i : found->carriers) {
      for (Entry& e : held.entries) {
        if (e.row == i && e.col == i) e.value *= 2.0;
      }
    }
    EXPECT_FALSE(findDatumDefect(held)) << what;
  }
};

TEST_F(DatumTest, namesWhatNothingHoldsAndNothingElse) {
  for (int round = 0; round < 12; ++round) {
    const unsigned size = 3 + below(60);
    const double decades = round % 3 * 2.0;
    expectCase(levelling(1, {}, size, decades), "one part");
    expectCase(levelling(4, {1, 2}, size, decades), "two parts of four");
    expectCase(levelling(3, {0, 1, 2}, size, decades), "held");
    expectCase(plane(4 + size, true, 0, decades), "distances");
    expectCase(plane(4 + size, true, 1, decades), "distances, one coordinate");
    expectCase(plane(4 + size, true, 3, decades), "distances, held");
    expectCase(plane(4 + size, false, 0, decades), "differences");
    expectCase(plane(4 + size, false, 2, decades), "differences, held");
  }
}

TEST_F(DatumTest, otherMatricesHaveNoDatumToMiss) {
  const SparseMatrix cases[] = {
      symmetricMatrix(14, [](unsigned r, unsigned c) { return 1.0 / (r + c + 1); }),  // Hilbert
      symmetricMatrix(5, [](unsigned r, unsigned c) { return r == c ? 1.0 : 2.0; }),  // indefinite
      symmetricMatrix(
          3, [](unsigned r, unsigned c) { return r == c && r != 1 ? 1.0 : 0.0; }),  // empty row
      symmetricMatrix(
          40, [](unsigned r, unsigned c) { return r == c       ? 2.0
                                                  : r == c + 1 ? -1.0
                                                               : 0.0; }),
      // Heights held by a benchmark of little weight.
      symmetricMatrix(9, [](unsigned r, unsigned c) {
        return r == c ? (r % 8 == 0 ? 1.0 : 2.0) + (r == 0 ? 1e-8 : 0.0) : r == c + 1 ? -1.0 : 0.0;
      })};
  for (const SparseMatrix& A : cases) EXPECT_FALSE(findDatumDefect(A)) << A.rows;
  Options stopped;
  stopped.progress = [](const char*, double) { return false; };
  const Case free = plane(9, true, 0, 0.0);
  expectError([&] { findDatumDefect(free.A, stopped); }, "130 stopped on request");
}

}  // namespace
}  // namespace zeph
