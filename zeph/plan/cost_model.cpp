#include "zeph/plan/cost_model.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "kernels/panel_storage.h"
#include "sparse/inverse/selected_inverse.h"
#include "sparse/numeric/factorise.h"
#include "sparse/symbolic/tree.h"

namespace zeph {
namespace {

using korin::sparse::Index;
using korin::sparse::Symbolic;
using std::size_t;

/// Seconds of dense work on a front: for each of its columns, entries of its panel, entries of the
/// square on the rows below, and operations.
struct FrontRates {
  double column, panel, square, operation;
};
struct DefaultRates {
  FrontRates factor, leaf, inverse;
};
/// Least squares over the tables of a processor with AVX2, and of the same one kept to the
/// baseline; they miss its times by 6 to 19 %. Those of AVX-512 are no measurements: vectors twice
/// as long, everything else the same.
constexpr DefaultRates kDefaultRates[] = {{{1e-8, 1.1e-9, 2.9e-10, 5.6e-11},
                                           {1e-8, 2.4e-10, 0.0, 6.8e-11},
                                           {2.5e-8, 2.7e-9, 5e-10, 1.3e-10}},
                                          {{1.2e-8, 7e-10, 1.3e-10, 2e-11},
                                           {1e-8, 3e-10, 0.0, 2.6e-11},
                                           {2.7e-8, 1.1e-9, 4.9e-10, 4.4e-11}},
                                          {{1.2e-8, 5e-10, 1.3e-10, 1.1e-11},
                                           {1e-8, 2e-10, 0.0, 1.4e-11},
                                           {2.7e-8, 8e-10, 4.9e-10, 2.4e-11}}};

/// Where a value lies among ascending points: between point i and i + 1, the share of the way.
struct Place {
  size_t i;
  double share;
};

template <size_t Count>
Place placeAmong(const std::array<int, Count>& points, double value) {
  size_t i = 0;
  while (i + 2 < Count && value > points[i + 1]) ++i;
  const double low = points[i], high = points[i + 1];
  if (low == 0.0) return {i, value / high};
  return {i, std::log(value / low) / std::log(high / low)};
}

double operations(double width, double below, bool keepsUpdate) {
  const double update = keepsUpdate ? below * below : 0.0;
  return width * (update + width * below + width * width / 3.0);
}

/// Columns of a group that are inverted at once, and the ancestors' entries gathered for each part.
double gatheredFor(double width, double below) {
  constexpr double kPartColumns = 256.0;
  double sum = 0.0;
  for (double left = width; left > 0.0;) {
    const double parts = std::ceil(left / kPartColumns);
    const double rows = below + width - left;
    sum += 0.5 * rows * rows;
    left -= std::ceil(left / parts);
  }
  return sum;
}

/// A count of doubles times the doublings by which they exceed kNear.
double far(double count) {
  return count * std::log2(std::max(1.0, sizeof(double) * count / kNear));
}

template <size_t Count>
double weighed(const std::array<double, Count>& seconds, const std::array<double, Count>& counts) {
  return std::inner_product(seconds.begin(), seconds.end(), counts.begin(), 0.0);
}

template <class Term, size_t Count>
double& term(std::array<double, Count>& terms, Term which) {
  return terms[static_cast<size_t>(which)];
}

}  // namespace

double FrontTable::seconds(double width, double below) const {
  const double w = std::min<double>(width, kWidths.back());
  const double b = std::min<double>(below, kBelow.back());
  const Place col = placeAmong(kWidths, w), row = placeAmong(kBelow, b);
  const auto between = [](double x, double y, double share) {
    return std::exp((1.0 - share) * std::log(x) + share * std::log(y));
  };
  const auto atWidth = [&](size_t i) {
    return between(seconds_[i][row.i], seconds_[i][row.i + 1], row.share);
  };
  const double inside = between(atWidth(col.i), atWidth(col.i + 1), col.share);
  return inside * operations(width, below, keepsUpdate_) / operations(w, b, keepsUpdate_);
}

CostModel defaultCostModel(korin::kernels::ProcessorLevel level) {
  const DefaultRates& rates = kDefaultRates[static_cast<size_t>(level)];
  CostModel m;
  const auto fill = [](FrontTable& table, const FrontRates& r, bool keepsUpdate) {
    for (size_t i = 0; i < FrontTable::kWidths.size(); ++i) {
      for (size_t j = 0; j < FrontTable::kBelow.size(); ++j) {
        const double w = FrontTable::kWidths[i], b = FrontTable::kBelow[j];
        const double square = keepsUpdate ? b * b : 0.0;
        table.at(i, j) = r.column * w + r.panel * w * (w + b) + r.square * square +
                         r.operation * operations(w, b, keepsUpdate);
      }
    }
  };
  fill(m.factor, rates.factor, true);
  fill(m.factorLeaf, rates.leaf, false);
  fill(m.inverse, rates.inverse, true);
  m.factorTerms = {1.6e-8, 2e-9, 8e-10, 1.1e-9, 6e-11, 1e-10, 7e-10, 8e-8, 1e-8};
  m.inverseTerms = {2.6e-7, 3e-9, 4e-10, 7e-10, 3e-10, 8e-10, 7e-8, 5e-8};
  m.smallPages = 4.3e-10;
  m.largePages = 4.3e-11;
  m.sharing = 1.08;
  return m;
}

FrontCounts countFront(const Symbolic& s, Index g) {
  FrontCounts counts;
  Terms<FactorTerm>& factor = counts.factor;
  Terms<InverseTerm>& inverse = counts.inverse;
  const double height = s.height(g);
  term(factor, FactorTerm::Groups) = term(inverse, InverseTerm::Groups) = 1.0;
  term(factor, FactorTerm::Rows) = term(inverse, InverseTerm::Rows) = height;
  korin::sparse::forEachChild(s, g, [&](Index child) {
    const double below = s.below(child);
    const double entries = 0.5 * below * (below + 1.0);
    if (s.firstDescendant[child] != child) {
      term(factor, FactorTerm::Passed) += entries;
      return;
    }
    term(factor, FactorTerm::LeafPassed) += entries;
    term(factor, FactorTerm::LeafProduct) += entries * s.width(child);
  });
  term(inverse, InverseTerm::Gathered) = gatheredFor(s.width(g), s.below(g));
  const Index* const rows = s.rowsOf(g);
  for (Index i = s.width(g); i < s.height(g);) {
    term(inverse, InverseTerm::Placed) += s.height(g) - i;
    const Index next = s.firstColumn[s.groupOf[rows[i]] + 1];
    while (i < s.height(g) && rows[i] < next) ++i;
  }
  return counts;
}

StageSeconds denseSeconds(const CostModel& model, const Symbolic& s, Index g) {
  const bool leaf = s.firstDescendant[g] == g;
  const double width = s.width(g), below = s.below(g);
  const FrontTable& table = leaf ? model.factorLeaf : model.factor;
  return {table.seconds(width, below), model.inverse.seconds(width, below)};
}

StageSeconds frontSeconds(const CostModel& model, const Symbolic& s, Index g) {
  const FrontCounts counts = countFront(s, g);
  if (s.isKept(g)) return {weighed(model.factorTerms, counts.factor), 0.0};
  const StageSeconds dense = denseSeconds(model, s, g);
  return {dense.factor + weighed(model.factorTerms, counts.factor),
          dense.inverse + weighed(model.inverseTerms, counts.inverse)};
}

FrontCounts countCommon(double unknowns, double entriesGiven) {
  FrontCounts counts;
  term(counts.factor, FactorTerm::Entries) = term(counts.inverse, InverseTerm::Entries) =
      entriesGiven;
  term(counts.factor, FactorTerm::FarEntries) = term(counts.inverse, InverseTerm::FarEntries) =
      far(entriesGiven);
  term(counts.factor, FactorTerm::Unknowns) = term(counts.inverse, InverseTerm::Unknowns) =
      unknowns;
  term(counts.factor, FactorTerm::FarUnknowns) = term(counts.inverse, InverseTerm::FarUnknowns) =
      far(unknowns);
  return counts;
}

double touchSeconds(const CostModel& model, double bytes) {
  return bytes * (bytes >= korin::kernels::kLargePanels ? model.largePages : model.smallPages);
}

StageSeconds pageSeconds(const CostModel& model, const Symbolic& s, double entriesGiven,
                         int threads) {
  const auto fresh = [&](double bytes) { return touchSeconds(model, bytes); };
  return {fresh(sizeof(double) * static_cast<double>(s.storage())) +
              fresh(korin::sparse::frontMemory(s, threads)) +
              model.smallPages * sizeof(double) * entriesGiven,
          fresh(korin::sparse::inverseMemory(s, threads))};
}

StageSeconds commonSeconds(const CostModel& model, const Symbolic& s, double entriesGiven,
                           int threads) {
  const FrontCounts counts = countCommon(s.n, entriesGiven);
  const StageSeconds pages = pageSeconds(model, s, entriesGiven, threads);
  return {pages.factor + weighed(model.factorTerms, counts.factor),
          pages.inverse + weighed(model.inverseTerms, counts.inverse)};
}

}  // namespace zeph
