#include "engine_call.h"

#include <algorithm>
#include <ctime>
#include <stdexcept>

#include "kernels/products/fused_product.h"
#include "kernels/team.h"
#include "measure.h"
#include "sparse/inverse/selected_inverse.h"
#include "sparse/numeric/factorise.h"
#include "sparse/pattern/assembly.h"
#include "sparse/symbolic/analyse.h"

namespace compare {
namespace {

using namespace korin::sparse;
using korin::kernels::Team;

template <class Work>
double processorSeconds(const Work& work) {
  const std::clock_t start = std::clock();
  work();
  return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

/// Brings the values to their places.
void fill(const Triplets& t, Engine& engine) {
  std::vector<double>& value = engine.entries.value;
  value.assign(engine.entries.position.size(), 0.0);
  const double* next = t.value.data();
  engine.slots.forEach([&](Offset at, bool mirrored) {
    if (!mirrored) value[static_cast<std::size_t>(at)] += *next;
    ++next;
  });
}

void factoriseInto(Engine& engine, Team& team) {
  if (factorise(engine.symbolic, engine.entries, engine.panels.get(), team, nullptr) >= 0)
    throw std::domain_error("the matrix is not positive definite");
}

void invert(Engine& engine, double* diagonal, Team& team) {
  engine.residual =
      variances(engine.symbolic, engine.entries, engine.panels.get(), diagonal, team, nullptr);
}

}  // namespace

Triplets tripletsOf(const zeph_solver::ProtoSparse& A) {
  Triplets t;
  t.n = static_cast<Index>(A.rowCount);
  t.row.reserve(A.elements.size());
  t.col.reserve(A.elements.size());
  t.value.reserve(A.elements.size());
  for (std::size_t k = 0; k < A.elements.size(); ++k) {
    const auto& e = A.elements[k];
    t.row.push_back(static_cast<Index>(e.row));
    t.col.push_back(static_cast<Index>(e.col));
    t.value.push_back(e.value);
  }
  return t;
}

Stages callEngine(const Triplets& t, int threads, Engine& engine, double* variances,
                  bool processorTime) {
  const auto timed = [processorTime](const auto& work) {
    return processorTime ? processorSeconds(work) : seconds(work);
  };
  engine = {};
  Stages s{};
  s.total = timed([&] {
    Team team(threads);
    {
      Columns lower;
      s.assembly = timed([&] {
        const Places<Index> places{t.row.data(), t.col.data(), t.row.size()};
        lower = assemblePattern(t.n, t.n, places, Part::LowerOfBoth);
        findSlots(lower, places, Part::LowerOfBoth, engine.slots);
      });
      s.analysis = timed([&] { engine.symbolic = analyse(lower.view()); });
      s.placement =
          timed([&] { engine.entries = place(engine.symbolic, lower.view(), &engine.slots); });
    }
    s.placement += timed([&] { fill(t, engine); });
    s.factor = timed([&] {
      engine.panels =
          korin::kernels::rawPanels(static_cast<std::size_t>(engine.symbolic.storage()));
      factoriseInto(engine, team);
    });
    s.inverse = timed([&] { invert(engine, variances, team); });
  });
  return s;
}

double refactorise(const Triplets& t, int threads, Engine& engine, double* variances) {
  return seconds([&] {
    Team team(threads);
    fill(t, engine);
    factoriseInto(engine, team);
    invert(engine, variances, team);
  });
}

double kernelRate() {
  constexpr std::size_t kOrder = 256;
  constexpr int kProducts = 4;
  const std::vector<double> a(kOrder * kOrder, 1.0), b(kOrder * kOrder, 0.5);
  std::vector<double> c(kOrder * kOrder, 0.0);
  const auto stride = static_cast<std::ptrdiff_t>(kOrder);
  const double time = seconds([&] {
    for (int k = 0; k < kProducts; ++k) {
      korin::kernels::fusedProduct(kOrder, kOrder, kOrder, 1.0, {a.data(), stride, 1},
                                   {b.data(), stride, 1}, 0.0, {c.data(), stride, 1});
    }
  });
  return 2.0 * kProducts * static_cast<double>(kOrder * kOrder * kOrder) / time;
}

}  // namespace compare
