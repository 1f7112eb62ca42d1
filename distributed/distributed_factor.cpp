#include "distributed/distributed_factor.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <limits>
#include <string>

#include "distributed/assembly.h"
#include "distributed/backend.h"
#include "distributed/communication.h"
#include "distributed/condition.h"
#include "distributed/factor_parts.h"
#include "kernels/processor.h"
#include "zeph/checks/memory.h"
#include "zeph/factor.h"
#include "zeph/factor/trust.h"
#include "zeph/factor/watch.h"
#include "zeph/matrix/requirements.h"

namespace zeph {

using distributed::Assembled;
using distributed::Communicator;
using distributed::DistributedBackend;
using std::size_t;

const char* name(Engine engine) {
  switch (engine) {
    case Engine::Automatic:
      return "automatic";
    case Engine::Domains:
      return "domains";
    case Engine::Mumps:
      return "mumps";
  }
  return "";
}

const char* name(InterfaceMethod method) {
  switch (method) {
    case InterfaceMethod::Automatic:
      return "automatic";
    case InterfaceMethod::Dense:
      return "dense";
    case InterfaceMethod::Sparse:
      return "sparse";
  }
  return "";
}

namespace distributed {

void beginStage(const Communicator& comm, const DistributedOptions& options, const char* stage,
                double share) {
  comm.together([&] {
    if (!comm.first() || !options.progress || options.progress(stage, share)) return;
    throw Error(ErrorKind::Cancelled, "stopped on request while " + std::string(stage));
  });
}

void requireRoom(const Communicator& comm, const DistributedOptions& options,
                 const std::string& what, double bytes) {
  if (options.memoryLimit > 0.0) {
    requireBytes("the part of one process in " + what, bytes, options.memoryLimit);
  } else if (comm.here() == 1) {
    requireBytes("the part of one process in " + what, bytes, 0.0);
  } else {
    requireBytes(
        "the parts of the " + std::to_string(comm.here()) + " processes of one machine in " + what,
        bytes * comm.here(), 0.0);
  }
}

}  // namespace distributed

namespace {

// Refinement stops here, or where it gains less than half.
constexpr double kGoodBackwardError = 8.0 * std::numeric_limits<double>::epsilon();
constexpr int kMostRefinements = 5;
// Rows whose terms are all so small that they lose digits to underflow are not judged.
constexpr double kLeastMagnitude =
    std::numeric_limits<double>::min() / std::numeric_limits<double>::epsilon();

// In front of a Cholesky factorisation, why there can be none; empty where nothing is known.
std::string againstCholesky(const Assembled& A) {
  if (!A.symmetric()) return A.against;
  if (A.unusableDiagonal < 0) return {};
  const auto i = static_cast<size_t>(A.unusableDiagonal);
  return "diagonal entry " + position(A.indexBase, i, i) + " of " + A.source + " is not positive";
}

struct Made {
  std::unique_ptr<DistributedBackend> backend;
  std::string reason;
};

Made byCholesky(const Communicator& comm, const Assembled& A, const DistributedOptions& options) {
  const bool asked = options.route == Route::Cholesky;
  const std::string reason =
      asked ? "as asked" : A.source + " is symmetric with a positive diagonal";
  if (options.engine == Engine::Mumps) return {makeMumpsBackend(comm, A, true, options), reason};
  return {makeDomainsBackend(comm, A, options), reason};
}

// `firm`: as FactorParts::make has it.
Made factorised(const Communicator& comm, const Assembled& A, const DistributedOptions& options,
                bool firm) {
  if (options.route == Route::Lu || options.route == Route::LuSolves) {
    if (options.engine == Engine::Domains) {
      comm.fail(Error(ErrorKind::Unfit,
                      "the engine \"domains\" has no LU; leave LU out, or take the "
                      "engine \"mumps\""));
    }
    return {makeMumpsBackend(comm, A, false, options), "as asked"};
  }
  std::string against = againstCholesky(A);
  if (against.empty()) {
    try {
      return byCholesky(comm, A, options);
    } catch (const Error& e) {
      const bool goesOn = e.kind() == ErrorKind::NotPositiveDefinite &&
                          options.route == Route::Automatic && options.engine != Engine::Domains &&
                          !firm;
      if (!goesOn) throw;
      against = "its Cholesky factorisation broke down";
      if (e.row() >= 0) {
        against += " at row " + std::to_string(static_cast<size_t>(e.row()) + A.indexBase);
      }
    }
  } else if (options.route == Route::Cholesky || options.engine == Engine::Domains) {
    if (A.symmetric()) comm.fail(notPositiveDefinite(A.source, A.indexBase, A.unusableDiagonal));
    comm.fail(Error(ErrorKind::Unfit,
                    against + "; " +
                        (options.route == Route::Cholesky
                             ? "the Cholesky route needs a symmetric matrix, use LU (--lu)"
                             : "the engine \"domains\" needs a symmetric matrix, "
                               "take the engine \"mumps\"")));
  }
  return {makeMumpsBackend(comm, A, false, options), against};
}

}  // namespace

class DistributedFactor::Impl {
 public:
  Impl(MPI_Comm given, const SparseMatrix& share, const DistributedOptions& wanted, bool firm)
      : comm(given), options(wanted) {
    if (options.threads <= 0) {
      options.threads = std::max(1, korin::kernels::availableProcessors() / comm.here());
    }
    call([&] {
      requireSameOptions();
      beginStage(comm, options, "assembling");
      A = assemble(comm, share);
      made = factorised(comm, A, options, firm);
      describe();
    });
  }

  void refactorise(const double* values, size_t count) {
    call([&] {
      requireValues(comm, values, count, A);
      hasNumbers = false;
      describe();
      report.conditionEstimate = 0.0;
      result = {};
      beginStage(comm, options, "assembling");
      const std::string against = assembleAgain(comm, values, A);
      const bool cholesky = report.route == Route::Cholesky;
      if (!against.empty()) {
        comm.fail(Error(ErrorKind::Unfit,
                        against + (cholesky ? "; the Cholesky route needs a symmetric matrix"
                                            : "; its factor was made for symmetric values, make "
                                              "another one for these")));
      }
      if (cholesky && A.unusableDiagonal >= 0) {
        comm.fail(notPositiveDefinite(A.source, A.indexBase, A.unusableDiagonal));
      }
      made.backend->refactorise();
      describe();
      hasNumbers = true;
    });
  }

  // What the engine reports, and what holds of every factor.
  void describe() {
    report = made.backend->report();
    report.reason = made.reason;
    report.processes = comm.size();
    report.threads = options.threads;
    report.unknowns = static_cast<std::int64_t>(A.n);
    report.entriesOfA = A.positions;
    countMessages();
  }

  // A call that needs the numbers of the factor.
  template <class Work>
  auto ask(const Work& work) const -> decltype(work()) {
    return call([&] {
      if (!hasNumbers) {
        comm.fail(Error(
            ErrorKind::Unfit,
            "the factor of " + A.source + " has no numbers since its last refactorisation failed"));
      }
      return work();
    });
  }

  // Errors that the processes have agreed on come through; any other one would leave processes
  // waiting for ever.
  template <class Work>
  auto call(const Work& work) const -> decltype(work()) {
    comm.beginCall();
    try {
      return work();
    } catch (...) {
      if (!comm.agreed()) comm.endRun(std::current_exception());
      throw;
    }
  }

  // A result has been made, which it is.
  void tell(const char* what, const Doubt& doubt) const {
    result = {what, doubt.error <= 1.0 ? doubt.error : 1.0, doubt.unknown};
    report.lastErrorEstimate = result.error;
    report.worstUnknown = result.unknown;
  }

  void countMessages() const { report.messageBytes = comm.sum(comm.bytesSent()); }

  const Communicator comm;
  DistributedOptions options;
  Assembled A;
  Made made;
  bool hasNumbers = true;
  mutable DistributedReport report;
  mutable GivenResult result;

 private:
  void requireSameOptions() const {
    const std::int64_t mine[] = {
        static_cast<std::int64_t>(options.engine), static_cast<std::int64_t>(options.route),
        static_cast<std::int64_t>(options.interface), options.scratchFolder.empty() ? 0 : 1};
    std::int64_t firsts[] = {mine[0], mine[1], mine[2], mine[3]};
    comm.broadcast(0, firsts, std::size(firsts));
    comm.together([&] {
      if (std::equal(std::begin(mine), std::end(mine), firsts)) return;
      throw Error(ErrorKind::Usage,
                  "engine, route, interface or the use of a scratch folder are not those that "
                  "rank 0 asks for");
    });
  }
};

DistributedFactor::DistributedFactor(MPI_Comm comm, const SparseMatrix& share,
                                     const DistributedOptions& options)
    : impl_(std::make_unique<Impl>(comm, share, options, false)) {}
DistributedFactor::DistributedFactor(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
DistributedFactor::~DistributedFactor() = default;
DistributedFactor::DistributedFactor(DistributedFactor&&) noexcept = default;
DistributedFactor& DistributedFactor::operator=(DistributedFactor&&) noexcept = default;

size_t DistributedFactor::rows() const {
  return impl_->A.n;
}

std::vector<double> DistributedFactor::variances() const {
  const Impl& f = *impl_;
  return f.ask([&] {
    beginStage(f.comm, f.options, "inverting");
    const StopWatch clock;
    std::vector<double> diagonal = f.comm.together([&] { return std::vector<double>(f.A.n); });
    const InverseCheck check = f.made.backend->variances(diagonal.data());
    f.report.secondsInverse = f.comm.largest(clock.seconds());
    f.report.identityResidual = check.identityResidual;
    f.report.relativeErrorEstimate = check.relativeErrorEstimate;
    f.report.uncertainVariances = check.uncertainVariances;
    f.report.firstUncertain = check.firstUncertain;
    if (check.condition > 0.0) f.report.conditionEstimate = check.condition;
    f.countMessages();
    if (!(check.relativeErrorEstimate <= kLargestRelativeError)) f.comm.fail(singular(f.A.source));
    f.tell("the variances", {check.relativeErrorEstimate, check.worstUnknown});
    f.result.uncertain = check.uncertainVariances;
    f.result.firstUncertain = check.firstUncertain;
    return diagonal;
  });
}

std::vector<double> DistributedFactor::covariance(const std::vector<std::int64_t>& rows,
                                                  const std::vector<std::int64_t>& cols) const {
  const Impl& f = *impl_;
  return f.ask([&] {
    f.comm.together([&] {
      if (rows.size() != cols.size()) {
        throw Error(ErrorKind::Unfit, "there are " + std::to_string(rows.size()) + " rows and " +
                                          std::to_string(cols.size()) + " columns");
      }
      for (const auto* indices : {&rows, &cols}) {
        for (const std::int64_t i : *indices) {
          if (i >= 0 && static_cast<size_t>(i) < f.A.n) continue;
          throw Error(ErrorKind::Unfit, "index " + std::to_string(i) +
                                            " is none of the rows 0 to " +
                                            std::to_string(f.A.n - 1) + " of " + f.A.source);
        }
      }
    });
    if (f.comm.largest(static_cast<std::int64_t>(rows.size())) !=
        f.comm.least(static_cast<std::int64_t>(rows.size()))) {
      f.comm.fail(Error(ErrorKind::Unfit, "the processes ask for different numbers of entries"));
    }
    beginStage(f.comm, f.options, "inverting");
    std::vector<double> values = f.comm.together([&] { return std::vector<double>(rows.size()); });
    const Doubt doubt =
        f.made.backend->covariance(rows.data(), cols.data(), rows.size(), values.data());
    if (!rows.empty()) f.tell("the entries of the inverse", doubt);
    f.countMessages();
    return values;
  });
}

std::vector<double> DistributedFactor::solve(const std::vector<double>& b) const {
  const Impl& f = *impl_;
  return f.ask([&] {
    f.comm.together([&] {
      if (b.size() != f.A.n) {
        throw Error(ErrorKind::Unfit, "the right-hand side has " + std::to_string(b.size()) +
                                          " entries; " + f.A.source + " needs " +
                                          std::to_string(f.A.n));
      }
      const auto bad =
          std::find_if_not(b.begin(), b.end(), [](double v) { return std::isfinite(v); });
      if (bad == b.end()) return;
      const auto row = static_cast<size_t>(bad - b.begin());
      throw Error(
          ErrorKind::Unfit,
          "entry " + position(f.A.indexBase, row, 0) + " of the right-hand side is not finite",
          static_cast<std::int64_t>(row));
    });
    beginStage(f.comm, f.options, "solving");
    std::vector<double> x = b, best, left, size;
    f.comm.together([&] {
      best.resize(f.A.n);
      left.resize(f.A.n);
      size.resize(f.A.n);
    });
    f.comm.broadcast(0, x);
    const std::vector<double> right = x;
    double least = std::numeric_limits<double>::infinity();
    f.made.backend->solve(x.data(), false);
    for (int round = 0;; ++round) {
      residual(f.comm, f.A, x.data(), right.data(), left.data(), size.data());
      double backward = 0.0;
      for (size_t i = 0; i < f.A.n; ++i) {
        if (left[i] == 0.0 || size[i] <= kLeastMagnitude) continue;
        const double share = std::abs(left[i]) / size[i];
        if (!(share <= backward)) backward = share;  // also where it is none
      }
      if (!(backward < least)) break;
      const bool slow = backward > 0.5 * least;
      least = backward;
      best = x;
      if (least <= kGoodBackwardError || slow || round == kMostRefinements) break;
      f.made.backend->solve(left.data(), false);
      for (size_t i = 0; i < f.A.n; ++i) x[i] += left[i];
    }
    f.report.backwardError = least;
    const bool finite =
        std::all_of(best.begin(), best.end(), [](double v) { return std::isfinite(v); });
    if (!std::isfinite(least) || !finite) {
      f.comm.fail(Error(ErrorKind::Unfit,
                        "the solution overflows the range of a double; scale the right-hand side"));
    }
    if (least > kLargestRelativeError) f.comm.fail(singular(f.A.source));
    f.tell("the solution", f.made.backend->solutionDoubt(least));
    f.countMessages();
    return best;
  });
}

double DistributedFactor::logDeterminant() const {
  const Impl& f = *impl_;
  return f.ask([&] {
    f.tell("the determinant", f.made.backend->determinantDoubt());
    f.countMessages();
    return f.made.backend->logDeterminant();
  });
}

int DistributedFactor::determinantSign() const {
  return impl_->ask([&] { return impl_->made.backend->determinantSign(); });
}

void DistributedFactor::refactorise(const double* values, size_t count) {
  impl_->refactorise(values, count);
}

void DistributedFactor::refactorise(const std::vector<double>& values) {
  refactorise(values.data(), values.size());
}

double DistributedFactor::estimateCondition() const {
  const Impl& f = *impl_;
  return f.ask([&] {
    if (f.report.conditionEstimate == 0.0) {
      f.report.conditionEstimate = distributed::estimateCondition(f.comm, f.A, *f.made.backend);
    }
    return f.report.conditionEstimate;
  });
}

std::vector<std::string> DistributedFactor::warnings() const {
  const Impl& f = *impl_;
  return warningsOf(f.result, f.A.source, f.A.indexBase, f.A.n);
}

DistributedReport DistributedFactor::report() const {
  return impl_->report;
}

namespace distributed {

DistributedFactor FactorParts::make(MPI_Comm comm, const SparseMatrix& share,
                                    const DistributedOptions& options, bool firm) {
  return DistributedFactor(std::make_unique<DistributedFactor::Impl>(comm, share, options, firm));
}

FactorParts FactorParts::of(const DistributedFactor& f) {
  return {f.impl_->comm, f.impl_->A};
}

ErrorKind errorKind(int status) {
  for (const ErrorKind kind :
       {ErrorKind::Usage, ErrorKind::Input, ErrorKind::NotPositiveDefinite, ErrorKind::Singular,
        ErrorKind::Output, ErrorKind::Memory, ErrorKind::Cancelled}) {
    if (exitCode(kind) == status) return kind;
  }
  return ErrorKind::Unfit;
}

}  // namespace distributed

}  // namespace zeph
