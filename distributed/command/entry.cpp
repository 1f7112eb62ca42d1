// What the command calls: one question to all processes, from MPI_Init to MPI_Finalize.
#include <mpi.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "distributed/distributed_factor.h"
#include "distributed/factor_parts.h"
#include "zeph/dense_matrix.h"
#include "zeph/jobs/distributed_call.h"

namespace zeph::distributed {
namespace {

using std::size_t;
using Vector = std::vector<double>;

constexpr int kPieceTag = 2;

struct Question {
  SparseMatrix share;
  DenseMatrix right;  // on rank 0
};

// The size and the form that rank 0 knows, on those that have read nothing.
void shareShape(const Communicator& comm, SparseMatrix& share, bool mine) {
  std::uint64_t shape[] = {share.rows, share.cols, static_cast<std::uint64_t>(share.symmetry),
                           share.triangular ? 1U : 0U, share.indexBase};
  comm.broadcast(0, shape, std::size(shape));
  std::string source = share.source;
  comm.broadcast(0, source);
  share.source = source;
  if (mine) return;
  share.rows = shape[0];
  share.cols = shape[1];
  share.symmetry = static_cast<Symmetry>(shape[2]);
  share.triangular = shape[3] != 0;
  share.indexBase = shape[4];
}

// Each process gets an equal range of the entries that rank 0 has read.
void scatter(const Communicator& comm, const Entry* all, std::uint64_t count,
             std::vector<Entry>& mine) {
  comm.broadcast(0, &count, 1);
  const auto first = [&](int p) {
    const auto size = static_cast<std::uint64_t>(comm.size()), k = static_cast<std::uint64_t>(p);
    return count / size * k + count % size * k / size;
  };
  const auto length = [&](int p) { return first(p + 1) - first(p); };
  comm.together([&] { mine.resize(length(comm.rank())); });
  if (!comm.first()) {
    comm.receive(0, kPieceTag, mine.data(), mine.size());
    return;
  }
  std::copy_n(all, mine.size(), mine.begin());
  for (int p = 1; p < comm.size(); ++p) comm.send(p, kPieceTag, all + first(p), length(p));
}

Question read(const Communicator& comm, const zeph_distributed_call& call) {
  zeph_distributed_share got{};
  Question q;
  int status = 0;
  comm.together(
      [&] {
        const char* sentence = "";
        status = call.read(call.context, comm.rank(), comm.size(), &got, &sentence);
        if (status != 0) throw Error(errorKind(status), sentence);
        q.share.rows = got.rows;
        q.share.cols = got.cols;
        q.share.symmetry = static_cast<Symmetry>(got.symmetry);
        q.share.triangular = got.triangular != 0;
        if (got.source != nullptr) q.share.source = got.source;
        q.share.indexBase = got.index_base;
        q.right.rows = got.rows;
        q.right.cols = got.columns;
        q.right.values.assign(got.right, got.right + got.rows * got.columns);
      },
      Communicator::Naming::None);
  int whole = got.whole;
  comm.broadcast(0, &whole, 1);
  shareShape(comm, q.share, got.rows > 0);
  if (whole != 0) {
    scatter(comm, got.entries, got.count, q.share.entries);
  } else {
    comm.together([&] { q.share.entries.assign(got.entries, got.entries + got.count); });
  }
  call.release(call.context);
  return q;
}

// Σ |a(i,j)| of each row.
Vector rowSizes(const FactorParts& f) {
  Vector rows(f.A.n, 0.0);
  for (const Entry& e : f.A.entries) {
    rows[e.row] += std::abs(e.value);
    if (e.row != e.col && f.A.symmetric()) rows[e.col] += std::abs(e.value);
  }
  f.comm.sum(rows.data(), rows.size());
  return rows;
}

double largestOf(const Vector& v) {
  double largest = 0.0;
  for (const double x : v) largest = std::max(largest, std::abs(x));
  return largest;
}

// ‖b - A x‖ / (‖A‖ ‖x‖ + ‖b‖) in the largest norms.
double relativeResidual(const FactorParts& f, const Vector& x, const Vector& b, double norm) {
  Vector left(f.A.n), size(f.A.n);
  residual(f.comm, f.A, x.data(), b.data(), left.data(), size.data());
  const double r = largestOf(left);
  return r > 0.0 ? r / (norm * largestOf(x) + largestOf(b)) : 0.0;
}

void addReport(const DistributedReport& r, zeph_distributed_answer& a) {
  a.engine = name(r.engine);
  a.interface = name(r.interface);
  a.reason = r.reason.c_str();
  a.route = static_cast<int>(r.route);
  a.processes = r.processes;
  a.threads = r.threads;
  a.unknowns = r.unknowns;
  a.entries_of_a = r.entriesOfA;
  a.entries_of_l = r.entriesOfL;
  a.interface_unknowns = r.interfaceUnknowns;
  a.operations = r.operations;
  a.bytes = r.bytes;
  a.message_bytes = r.messageBytes;
  a.balance = r.balance;
  a.seconds_ordering = r.secondsOrdering;
  a.seconds_factorisation = r.secondsFactorisation;
  a.seconds_inverse = r.secondsInverse;
  a.condition_estimate = r.conditionEstimate;
  a.relative_error_estimate = r.relativeErrorEstimate;
  a.backward_error = r.backwardError;
  a.uncertain_variances = r.uncertainVariances;
  a.last_error_estimate = r.lastErrorEstimate;
  a.worst_unknown = r.worstUnknown;
}

// `report` and `warnings` are those of the worst column.
void solveAll(const DistributedFactor& f, const FactorParts& parts, DenseMatrix& right,
              Vector& values, zeph_distributed_answer& answer, DistributedReport& report,
              std::vector<std::string>& warnings) {
  const Communicator& comm = parts.comm;
  comm.broadcast(0, &right.cols, 1);
  const double norm = largestOf(rowSizes(parts));
  for (size_t c = 0; c < right.cols; ++c) {
    Vector b(parts.A.n);
    if (comm.first()) std::copy_n(right.values.begin() + c * parts.A.n, parts.A.n, b.begin());
    comm.broadcast(0, b.data(), b.size());
    const Vector x = f.solve(b);
    const double worst = report.backwardError;
    if (f.report().lastErrorEstimate >= report.lastErrorEstimate) {
      report = f.report();
      warnings = f.warnings();
    }
    report.backwardError = std::max(worst, f.report().backwardError);
    answer.relative_residual =
        std::max(answer.relative_residual, relativeResidual(parts, x, b, norm));
    if (comm.first()) values.insert(values.end(), x.begin(), x.end());
  }
}

void ask(const zeph_distributed_call& call) {
  const Communicator comm(MPI_COMM_WORLD);
  Question q = read(comm, call);
  DistributedOptions options;
  options.engine = static_cast<Engine>(call.engine);
  options.interface = static_cast<InterfaceMethod>(call.interface);
  options.route = static_cast<Route>(call.route);
  options.threads = call.threads;
  options.memoryLimit = call.memory;
  options.scratchFolder = call.scratch;
  options.progress = [&call](const char* stage, double share) {
    return call.progress(call.context, stage, share) != 0;
  };
  const DistributedFactor f = FactorParts::make(MPI_COMM_WORLD, q.share, options, true);
  q.share.entries = {};
  const FactorParts parts = FactorParts::of(f);

  zeph_distributed_answer answer{};
  Vector values;
  DistributedReport report = f.report();
  std::vector<std::string> warnings;
  switch (static_cast<DistributedTask>(call.task)) {
    case DistributedTask::Variances:
      values = f.variances();
      break;
    case DistributedTask::Solve:
      solveAll(f, parts, q.right, values, answer, report, warnings);
      break;
    case DistributedTask::LogDeterminant:
      answer.log_determinant = f.logDeterminant();
      answer.sign = f.determinantSign();
      break;
  }
  if (static_cast<DistributedTask>(call.task) != DistributedTask::Solve) {
    report = f.report();
    warnings = f.warnings();
  }
  report.messageBytes = f.report().messageBytes;
  addReport(report, answer);
  std::vector<const char*> sentences;
  sentences.reserve(warnings.size());
  for (const std::string& sentence : warnings) sentences.push_back(sentence.c_str());
  answer.warnings = sentences.data();
  answer.warning_count = sentences.size();
  answer.values = values.data();
  answer.count = values.size();
  if (comm.first()) call.take(call.context, &answer);
}

}  // namespace
}  // namespace zeph::distributed

extern "C" ZEPH_API int zeph_distributed_run(const zeph_distributed_call* call) {
  using namespace zeph;
  if (call->version != kDistributedCallVersion) {
    call->fail(call->context,
               "the command and its distributed component are of different versions; install both "
               "from one",
               -1);
    return exitCode(ErrorKind::Usage);
  }
  int provided = 0;
  MPI_Init_thread(nullptr, nullptr, MPI_THREAD_FUNNELED, &provided);
  int status = 0;
  try {
    distributed::ask(*call);
  } catch (const Error& e) {
    call->fail(call->context, e.what(), e.row());
    status = exitCode(e.kind());
  } catch (const std::exception& e) {
    // Memory that ran out between two messages: the others wait for this process.
    int rank = 0;
    MPI_Comm_rank(MPI_COMM_WORLD, &rank);
    std::fprintf(stderr, "zeph: rank %d: not enough memory (%s); all processes end\n", rank,
                 e.what());
    MPI_Abort(MPI_COMM_WORLD, exitCode(ErrorKind::Memory));
  }
  MPI_Finalize();
  return status;
}
