#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "sparse/inverse/selected_inverse.h"
#include "sparse/numeric/factorise.h"
#include "sparse/ordering/domains.h"
#include "sparse/pattern/assembly.h"
#include "sparse/symbolic/analyse.h"
#include "sparse/symbolic/placement.h"
#include "zeph/factor/symmetric_input.h"
#include "zeph/plan/run_plan.h"

namespace zeph {
namespace {

using korin::sparse::Columns;
using korin::sparse::Index;
using korin::sparse::kInterface;
using korin::sparse::Offset;
using korin::sparse::Symbolic;
using std::size_t;

/// Bytes a second between processes, and what a message takes by itself: a machine's own memory and
/// a cluster's network are faster, a slow network is not.
constexpr double kNetwork = 1e9;
constexpr double kLatency = 2e-5;
/// Share of their rates that processes reach together on the dense interface.
constexpr double kInterfaceShare = 0.5;
/// Rows and columns of a block of the interface, which are dealt out as a whole.
constexpr double kInterfaceBlock = 64.0;
/// Bytes that compressing and cutting the graph take for each node and neighbour: 43 to 58 on grids
/// and networks of 10^5 to 4*10^5 unknowns.
constexpr double kToCut = 50.0;
/// Bytes for each entry of a process that goes to it, and is assembled, placed and analysed there:
/// as it came, as a triplet in vectors that grow, in columns, and in a graph; and for each unknown.
constexpr double kToDeal = 60.0;
constexpr double kToAnalyse = 85.0;

/// The part of A that one process has: its lower triangle by its own numbers, those of the boundary
/// last.
struct Part {
  std::vector<Index> row, col;
  std::vector<Index> boundary;  ///< unknowns of A
  Index interior = 0;
  double entries() const { return static_cast<double>(row.size()); }
};

struct Cut {
  std::vector<Part> parts;
  double interface = 0.0;
  double moved = 0.0;  ///< entries that go from where they were assembled to another process
};

/// The process that assembles each column: equal numbers of entries, and of columns without any.
std::vector<Index> assemblers(const SparseMatrix& A, int processes) {
  std::vector<Index> count(A.rows, 1);
  for (const Entry& e : A.entries) ++count[std::min(e.row, e.col)];
  const double each = static_cast<double>(A.rows + A.entries.size()) / processes;
  std::vector<Index> process(A.rows);
  double before = 0.0;
  for (size_t c = 0; c < A.rows; ++c) {
    process[c] = std::min(processes - 1, static_cast<Index>(before / each));
    before += count[c];
  }
  return process;
}

/// Entries that are read by another process than the one that assembles them.
double movedToAssemblers(const SparseMatrix& A, const std::vector<Index>& assembler,
                         int processes) {
  const double each = static_cast<double>(A.entries.size()) / processes;
  double moved = 0.0, k = 0.0;
  for (const Entry& e : A.entries) {
    moved += static_cast<Index>(k++ / each) != assembler[std::min(e.row, e.col)] ? 1.0 : 0.0;
  }
  return moved;
}

/// A's entries dealt out to the domains that an end of theirs lies in.
Cut dealtOut(const Columns& lower, const std::vector<Index>& domainOf,
             const std::vector<Index>& assembler, int processes) {
  Cut cut;
  cut.parts.resize(static_cast<size_t>(processes));
  std::vector<Index> local(domainOf.size(), korin::sparse::kNone);
  for (size_t i = 0; i < domainOf.size(); ++i) {
    if (domainOf[i] == kInterface) {
      ++cut.interface;
    } else {
      local[i] = cut.parts[static_cast<size_t>(domainOf[i])].interior++;
    }
  }
  for (Index c = 0; c < lower.cols; ++c) {
    for (const Index r : lower.rowsOf(c)) {
      const Index domain = std::max(domainOf[r], domainOf[c]);
      if (domain == kInterface) continue;
      Part& part = cut.parts[static_cast<size_t>(domain)];
      cut.moved += domain != assembler[c] ? 1.0 : 0.0;
      part.row.push_back(r);
      part.col.push_back(c);
      if (domainOf[r] != domainOf[c]) part.boundary.push_back(domainOf[r] == domain ? c : r);
    }
  }
  for (Part& part : cut.parts) {
    std::sort(part.boundary.begin(), part.boundary.end());
    part.boundary.erase(std::unique(part.boundary.begin(), part.boundary.end()),
                        part.boundary.end());
    for (size_t b = 0; b < part.boundary.size(); ++b) {
      local[part.boundary[b]] = part.interior + static_cast<Index>(b);
    }
    for (Index& r : part.row) r = local[r];
    for (Index& c : part.col) c = local[c];
  }
  return cut;
}

/// What a domain takes by itself.
struct DomainCost {
  double operations = 0.0, interior = 0.0, boundary = 0.0;
  StageSeconds seconds;
  double held = 0.0, toFactorise = 0.0, toInvert = 0.0;  ///< bytes
};

DomainCost costOf(const CostModel& model, const Part& part) {
  const auto boundary = static_cast<Index>(part.boundary.size());
  const Index n = part.interior + boundary;
  const Columns lower = korin::sparse::assemblePattern<Index>(
      n, n, {part.row.data(), part.col.data(), part.row.size()}, korin::sparse::Part::OneTriangle);
  korin::sparse::AnalysisOptions options;
  options.kept = boundary;
  const Symbolic s = korin::sparse::analyse(lower.view(), options);
  DomainCost cost;
  cost.operations = s.operations;
  cost.interior = part.interior;
  cost.boundary = boundary;
  cost.seconds = commonSeconds(model, s, part.entries(), 1);
  for (Index g = 0; g < s.groups(); ++g) {
    const StageSeconds own = frontSeconds(model, s, g);
    cost.seconds.factor += own.factor;
    cost.seconds.inverse += own.inverse;
  }
  const korin::sparse::MemoryPrediction memory = korin::sparse::predictMemory(s);
  cost.held = memory.panels + memory.structure + part.entries() * (sizeof(double) + sizeof(Index)) +
              n * double{sizeof(Offset) + sizeof(Index)};
  cost.toFactorise = korin::sparse::frontMemory(s, 1);
  cost.toInvert = korin::sparse::inverseMemory(s, 1) +
                  korin::sparse::identityMemory(s, korin::sparse::place(s, lower.view()));
  return cost;
}

/// The domains of a cut, with the interface that eliminating them leaves.
class CutCost {
 public:
  CutCost(const CostModel& model, const Cut& cut) : interface_(cut.interface), moved_(cut.moved) {
    for (const Part& part : cut.parts) domains_.push_back(costOf(model, part));
    double sum = 0.0;
    for (const DomainCost& d : domains_) {
      sum += d.operations;
      most_ = std::max(most_, d.operations);
    }
    const double m = interface_, processes = static_cast<double>(domains_.size());
    const double dense = m * (m + 1.0) * (2.0 * m + 1.0) / 6.0 / processes;
    most_ += dense;
    mean_ = sum / processes + dense;
  }

  double interface() const { return interface_; }
  double moved() const { return moved_; }
  /// Operations of the busiest process, and of all of them on average.
  double most() const { return most_; }
  double mean() const { return mean_; }

  std::vector<korin::sparse::DomainWork> work() const {
    std::vector<korin::sparse::DomainWork> work;
    for (const DomainCost& d : domains_) work.push_back({d.operations, d.interior});
    return work;
  }

  template <class Value>
  double largest(const Value& value) const {
    double most = 0.0;
    for (const DomainCost& d : domains_) most = std::max(most, value(d));
    return most;
  }

  template <class Value>
  double sum(const Value& value) const {
    double all = 0.0;
    for (const DomainCost& d : domains_) all += value(d);
    return all;
  }

 private:
  std::vector<DomainCost> domains_;
  double interface_, moved_;
  double most_ = 0.0, mean_ = 0.0;
};

double shared(double seconds, int processes) {
  return processes == 1 ? seconds : seconds / (kInterfaceShare * processes);
}

/// One triangle of a boundary's square.
double triangle(const DomainCost& d) {
  return 0.5 * d.boundary * (d.boundary + 1.0);
}

/// Of the dense interface on one process, or of its inverse.
double interfaceBytes(double order, double processes) {
  return sizeof(double) * order * std::min(order, order / processes + kInterfaceBlock);
}

}  // namespace

DomainsPlan planDomains(const CostModel& model, const SparseMatrix& A, double nodes,
                        int processes) {
  std::string against;
  const Columns lower = symmetricInput(A, against).lower;
  const std::vector<Index> assembler = assemblers(A, processes);
  const auto costOfCut = [&](const std::vector<Index>& domainOf) {
    return CutCost(model, dealtOut(lower, domainOf, assembler, processes));
  };
  const std::vector<Index> domainOf = korin::sparse::cutUnknowns(lower.view(), processes);
  CutCost cut = costOfCut(domainOf);
  const auto n = static_cast<double>(lower.cols), entries = static_cast<double>(lower.entries());
  double cuts = 1.0, moved = cut.moved();
  if (korin::sparse::worthAnotherCut(cut.most(), cut.mean(), n)) {
    const std::vector<double> shares = korin::sparse::sharesForLikeWork(cut.work());
    CutCost other =
        costOfCut(korin::sparse::cutUnknowns(lower.view(), processes, &domainOf, shares));
    const bool better = !(other.most() > cut.most());
    cuts = better ? 2.0 : 3.0;
    moved += other.moved() + (better ? 0.0 : cut.moved());
    if (better) cut = std::move(other);
  }

  DomainsPlan plan;
  const double m = cut.interface(), p = processes, others = (p - 1.0) / p;
  plan.processes = processes;
  plan.interfaceUnknowns = static_cast<std::int64_t>(m);
  plan.balance = cut.mean() > 0.0 ? cut.most() / cut.mean() : 1.0;

  // Schur complements go to where the interface lies, and blocks of its inverse back.
  const double squares = sizeof(double) * others * cut.sum(triangle);
  const double boundaries = cut.sum([](const DomainCost& d) { return d.boundary; });
  // To the first process and back.
  const auto summed = [&](double values) { return 2.0 * sizeof(double) * (p - 1.0) * values; };
  // The columns' sizes, the diagonal for its signs and for the scaling; the pattern and the domains
  // for each cut, of which the third is the first again.
  const double looks = std::min(cuts, 2.0);
  plan.messageBytes = 3.0 * summed(n) +
                      sizeof(Entry) * (movedToAssemblers(A, assembler, processes) + moved) +
                      looks * (others * (sizeof(Index) * entries + sizeof(Offset) * n) +
                               sizeof(Index) * (p - 1.0) * n) +
                      cuts * sizeof(Index) * boundaries * (others + p - 1.0) + 2.0 * squares +
                      summed(n) + summed(m);

  const auto message = [&](double bytes) { return bytes / kNetwork / p + kLatency * p; };
  const double slowed = processes > 1 ? model.sharing : 1.0;
  plan.seconds.factor =
      slowed * cut.largest([](const DomainCost& d) { return d.seconds.factor; }) + message(squares);
  plan.seconds.inverse = slowed * cut.largest([](const DomainCost& d) {
    return d.seconds.inverse;
  }) + message(squares + summed(n) + summed(m));
  if (m > 0.0) {
    plan.seconds.factor += shared(model.factor.seconds(m, 0.0), processes);
    plan.seconds.inverse += shared(model.inverse.seconds(m, 0.0), processes);
  }

  // Each process keeps its entries as they were given and as they were assembled, and vectors of
  // all unknowns: who has them, the diagonal for the scaling, and for the variances and their
  // checks.
  const double part = interfaceBytes(m, p);
  const double vectors = n * (sizeof(double) + 2.0 * sizeof(Index));
  const double given = 2.0 * sizeof(Entry) * entries / p;
  plan.factorBytes = cut.largest([](const DomainCost& d) { return d.held; }) + part + vectors;
  // Of unknowns with equal neighbourhoods as many share a node, and their neighbours likewise.
  const double together = n / nodes;
  const double cutting = given + vectors + sizeof(Index) * entries + sizeof(Offset) * n +
                         kToCut * (2.0 * entries - n) / (together * together);
  const double dealing = given + vectors + (kToDeal * entries + kToAnalyse * n) / p;
  const double factorising = cut.largest([](const DomainCost& d) {
    // A triangle as it is collected, as it goes, and as it comes.
    return d.held + std::max(d.toFactorise, 3.0 * sizeof(double) * triangle(d));
  });
  const double inverting = cut.largest([](const DomainCost& d) {
    // With triangles that the heap keeps.
    return d.held + d.toInvert + 2.0 * sizeof(double) * (d.interior + d.boundary + triangle(d));
  });
  plan.bytes = std::max({cutting, dealing, factorising + part + vectors + given,
                         inverting + 2.0 * part + vectors + given + 5.0 * sizeof(double) * n});
  return plan;
}

}  // namespace zeph
