#include "distributed/domains/domain.h"

#include <cmath>
#include <cstddef>
#include <utility>

#include "kernels/team.h"
#include "sparse/inverse/selected_inverse.h"
#include "sparse/numeric/factorise.h"
#include "sparse/numeric/solve.h"
#include "sparse/symbolic/analyse.h"
#include "sparse/symbolic/placement.h"

namespace zeph::distributed {
namespace {

namespace sparse = korin::sparse;
using korin::kernels::Team;
using std::size_t;

}  // namespace

Domain::Domain(const sparse::Columns& lower, sparse::Slots slots, Index boundary, int threads)
    : slots_(std::move(slots)), threads_(threads) {
  sparse::AnalysisOptions options;
  options.kept = boundary;
  symbolic_ = sparse::analyse(lower.view(), options);
  entries_ = sparse::place(symbolic_, lower.view(), &slots_);
  placeOfRow_.resize(static_cast<size_t>(symbolic_.n));
  for (Index k = 0; k < symbolic_.n; ++k) placeOfRow_[symbolic_.permutation[k]] = k;
}

double Domain::bytes() const {
  const sparse::MemoryPrediction memory = sparse::predictMemory(symbolic_);
  return memory.panels + memory.structure +
         static_cast<double>(entries_.position.size()) * (sizeof(double) + sizeof(Index)) +
         static_cast<double>(symbolic_.n) * (sizeof(Offset) + sizeof(Index)) +
         static_cast<double>(slots_.bytes());
}

double Domain::factorisationBytes() const {
  return sparse::frontMemory(symbolic_, threads_);
}

double Domain::inverseBytes() const {
  return sparse::inverseMemory(symbolic_, threads_) + sparse::identityMemory(symbolic_, entries_);
}

void Domain::setValues(const std::vector<double>& values) {
  auto next = values.begin();
  slots_.forEach([&](Offset place, bool) { entries_.value[static_cast<size_t>(place)] = *next++; });
}

Domain::Index Domain::factorise() {
  if (!panels_) panels_ = korin::kernels::rawPanels(static_cast<size_t>(symbolic_.storage()));
  Team team(threads_);
  return sparse::factorise(symbolic_, entries_, panels_.get(), team, nullptr);
}

double Domain::smallestPivotShare() const {
  double least = 1.0;
  for (Index c = 0; c < interior(); ++c) {
    const Index g = symbolic_.groupOf[c], own = c - symbolic_.firstColumn[g];
    const double l = panels_[symbolic_.panelStart[g] + Offset{own} * (symbolic_.height(g) + 1)];
    for (Offset p = entries_.start[c]; p < entries_.start[c + 1]; ++p) {
      if (entries_.position[p] != own) continue;
      const double share = l * l / entries_.value[p];
      if (!(share >= least)) least = std::isnan(share) ? 0.0 : share;
    }
  }
  return least;
}

double Domain::logDeterminant() const {
  return sparse::logDeterminant(symbolic_, panels_.get());
}

void Domain::eliminate(double* x, double* right) const {
  Team team(threads_);
  sparse::solveForward(symbolic_, panels_.get(), 1, x, team);
  for (Index b = 0; b < boundary(); ++b) right[b] = x[interior() + b];
}

void Domain::substitute(double* x, const double* boundary) const {
  for (Index b = 0; b < symbolic_.kept; ++b) x[interior() + b] = boundary[b];
  Team team(threads_);
  sparse::solveTransposed(symbolic_, panels_.get(), 1, x, team);
}

void Domain::variances(double* diagonal, double* sums) const {
  Team team(threads_);
  sparse::variances(symbolic_, entries_, panels_.get(), diagonal, sums, team, nullptr);
}

Domain::Offset Domain::placeInPanels(Index i, Index j) const {
  const auto [low, high] = std::minmax(placeOfRow_[i], placeOfRow_[j]);
  const Index g = symbolic_.groupOf[low];
  const Index* const rows = symbolic_.rowsOf(g);
  const Index* const end = rows + symbolic_.height(g);
  const Index* const at = std::lower_bound(rows, end, high);
  if (at == end || *at != high) return -1;
  return symbolic_.panelStart[g] + Offset{low - symbolic_.firstColumn[g]} * symbolic_.height(g) +
         (at - rows);
}

std::vector<double> Domain::entriesOfInverse(const std::vector<Offset>& places) const {
  std::vector<double> values(places.size());
  std::vector<bool> wanted(static_cast<size_t>(symbolic_.groups()));
  const auto from = [&](Index g) {
    return std::lower_bound(places.begin(), places.end(), symbolic_.panelStart[g]) - places.begin();
  };
  for (Index g = 0; g < symbolic_.groups(); ++g) wanted[g] = from(g) != from(g + 1);
  const sparse::PanelReader read = [&](Index g, const double* z) {
    for (auto k = from(g); k < from(g + 1); ++k) {
      values[k] = z[places[k] - symbolic_.panelStart[g]];
    }
  };
  Team team(threads_);
  sparse::selectedInverse(symbolic_, panels_.get(), &wanted, read, team, nullptr);
  return values;
}

}  // namespace zeph::distributed
